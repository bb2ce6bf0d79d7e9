# Cross build for 64-bit Raspberry Pi class boards (Debian arm64).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ORU_CROSS_TRIPLET aarch64-linux-gnu)
set(ORU_CROSS_EMULATOR qemu-aarch64)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-common.cmake)
