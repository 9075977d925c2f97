# The machine's g++ with the musl of musl-tools, or, with -DVELK_MUSL=FOLDER, the smaller musl that tools/musl.sh
# installed in FOLDER. Debian has no C++ library for musl, but the device's binaries need only g++'s headers.
execute_process(COMMAND gcc -print-multiarch OUTPUT_VARIABLE VELK_MULTIARCH OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -dumpversion OUTPUT_VARIABLE VELK_GXX OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR ${VELK_MULTIARCH})
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELK_MUSL)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)  # CMake's test program would not link

if(VELK_MUSL)
  set(VELK_MUSL_LIB ${VELK_MUSL}/lib)
else()
  set(VELK_MUSL_LIB /usr/lib/${CMAKE_SYSTEM_PROCESSOR}-linux-musl)
endif()
# musl has a wrapper for gcc only. g++ gets the same options, and the paths of the C++ headers. Those use
# __GLIBC_PREREQ, which only glibc defines.
set(VELK_FOR_MUSL -specs=${VELK_MUSL_LIB}/musl-gcc.specs)
set(CMAKE_C_COMPILER gcc ${VELK_FOR_MUSL})
set(CMAKE_CXX_COMPILER g++ ${VELK_FOR_MUSL})
set(CMAKE_CXX_FLAGS_INIT "-isystem /usr/include/c++/${VELK_GXX} \
-isystem /usr/include/${VELK_MULTIARCH}/c++/${VELK_GXX} '-D__GLIBC_PREREQ(a,b)=0'")
