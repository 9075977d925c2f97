# 64-bit RISC-V: char is unsigned.
set(CMAKE_SYSTEM_PROCESSOR riscv64)
set(VELK_TRIPLET riscv64-linux-gnu)
set(VELK_QEMU riscv64)
include(${CMAKE_CURRENT_LIST_DIR}/debian.cmake)
