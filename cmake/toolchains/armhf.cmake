# 32-bit ARM with hardware floating point: char is unsigned, long has 32 bits.
set(CMAKE_SYSTEM_PROCESSOR arm)
set(VELK_TRIPLET arm-linux-gnueabihf)
set(VELK_QEMU arm)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
