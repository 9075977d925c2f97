# 64-bit ARM: char is unsigned.
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(VELK_TRIPLET aarch64-linux-gnu)
set(VELK_QEMU aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
