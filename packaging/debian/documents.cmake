# Runs before packaging: Debian requires compressed manual pages, a changelog and the licence.
set(root ${CPACK_TEMPORARY_INSTALL_DIRECTORY}/usr)
set(doc ${root}/share/doc/velk)
set(source ${CMAKE_CURRENT_LIST_DIR}/../..)

function(compress)
  execute_process(COMMAND gzip -9nf ${ARGN} COMMAND_ERROR_IS_FATAL ANY)
endfunction()

file(GLOB pages ${root}/share/man/man*/*.[1-9])
compress(${pages})
file(CREATE_LINK syslog-service.8.gz ${root}/share/man/man8/syslog.8.gz SYMBOLIC)
configure_file(${source}/LICENSE ${doc}/copyright COPYONLY)
configure_file(${source}/CHANGELOG.md ${doc}/changelog COPYONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/changelog ${doc}/changelog.Debian COPYONLY)
compress(${doc}/changelog ${doc}/changelog.Debian)
configure_file(${CMAKE_CURRENT_LIST_DIR}/lintian-overrides ${root}/share/lintian/overrides/velk COPYONLY)
