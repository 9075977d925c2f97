# 32-bit MIPS, big endian: no eight-byte atomics of its own.
set(CMAKE_SYSTEM_PROCESSOR mips)
set(VELK_TRIPLET mips-linux-gnu)
set(VELK_QEMU mips)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
