# 32-bit MIPS, big endian: has no eight-byte atomics.
set(CMAKE_SYSTEM_PROCESSOR mips)
set(VELK_TRIPLET mips-linux-gnu)
set(VELK_QEMU mips)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
