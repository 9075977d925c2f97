# 64-bit, big endian, char is unsigned.
set(CMAKE_SYSTEM_PROCESSOR s390x)
set(VELK_TRIPLET s390x-linux-gnu)
set(VELK_QEMU s390x)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
