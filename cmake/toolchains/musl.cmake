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
  set(VELK_SPECS ${VELK_MUSL}/lib/musl-gcc.specs)
else()
  set(VELK_SPECS /usr/lib/${CMAKE_SYSTEM_PROCESSOR}-linux-musl/musl-gcc.specs)
endif()
set(CMAKE_C_COMPILER gcc -specs=${VELK_SPECS})
set(CMAKE_CXX_COMPILER g++ -specs=${VELK_SPECS})
# The specs leave out where g++ has its C++ headers; those ask the C library a question that is glibc's own.
set(CMAKE_CXX_FLAGS_INIT "-isystem /usr/include/c++/${VELK_GXX} \
-isystem /usr/include/${VELK_MULTIARCH}/c++/${VELK_GXX} '-D__GLIBC_PREREQ(a,b)=0'")
