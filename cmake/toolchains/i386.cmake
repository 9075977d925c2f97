# 32-bit x86: long has 32 bits, eight-byte members are aligned to four.
set(CMAKE_SYSTEM_PROCESSOR i686)
set(VELK_TRIPLET i686-linux-gnu)
set(VELK_QEMU i386)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
