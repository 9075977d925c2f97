# The machine's own g++ with musl: the C library of musl-tools, or with -DVELK_MUSL=FOLDER one that tools/musl.sh
# put there, which is smaller. There is no C++ library for it, and the device's binaries need none: of the C++
# headers they use only parts that are headers alone.
execute_process(COMMAND gcc -print-multiarch OUTPUT_VARIABLE VELK_MULTIARCH OUTPUT_STRIP_TRAILING_WHITESPACE)
execute_process(COMMAND g++ -dumpversion OUTPUT_VARIABLE VELK_GXX OUTPUT_STRIP_TRAILING_WHITESPACE)
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR ${VELK_MULTIARCH})
set(CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VELK_MUSL)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)  # nothing can be linked as C++

if(VELK_MUSL)
  set(VELK_MUSL_LIB ${VELK_MUSL}/lib)
else()
  set(VELK_MUSL_LIB /usr/lib/${CMAKE_SYSTEM_PROCESSOR}-linux-musl)
endif()
# What musl's own gcc wrapper does; there is none for g++, which then has to be told where its C++ headers are. Those
# ask the C library a question that is glibc's own.
set(VELK_FOR_MUSL -specs=${VELK_MUSL_LIB}/musl-gcc.specs)
set(CMAKE_C_COMPILER gcc ${VELK_FOR_MUSL})
set(CMAKE_CXX_COMPILER g++ ${VELK_FOR_MUSL})
set(CMAKE_CXX_FLAGS_INIT "-isystem /usr/include/c++/${VELK_GXX} \
-isystem /usr/include/${VELK_MULTIARCH}/c++/${VELK_GXX} '-D__GLIBC_PREREQ(a,b)=0'")
