# One of Debian's cross compilers, for the files beside this one: they set VELK_TRIPLET and VELK_QEMU, the suffix
# of the emulator that runs the tests of what was built.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_C_COMPILER ${VELK_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${VELK_TRIPLET}-g++)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${VELK_QEMU}-static -L /usr/${VELK_TRIPLET})
set(CMAKE_FIND_ROOT_PATH /usr/${VELK_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
