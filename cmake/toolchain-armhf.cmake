# Cross build for 32-bit Raspberry Pi class boards (Debian armhf, ARMv7).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(ORU_CROSS_TRIPLET arm-linux-gnueabihf)
set(ORU_CROSS_EMULATOR qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-common.cmake)
