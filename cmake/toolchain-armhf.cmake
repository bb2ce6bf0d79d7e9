# Cross build for 32-bit Raspberry Pi class boards (Debian armhf, ARMv7).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR arm)
set(ORU_CROSS_TRIPLET arm-linux-gnueabihf)
set(ORU_CROSS_EMULATOR qemu-arm)
include(${CMAKE_CURRENT_LIST_DIR}/toolchain-common.cmake)
# GCC notes that the ABI of passing some iterators changed in GCC 7.1; every
# part is built with this compiler, so the note says nothing here.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")
