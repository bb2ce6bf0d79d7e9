# Shared part of the Debian multiarch cross toolchains.
set(CMAKE_C_COMPILER ${ORU_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${ORU_CROSS_TRIPLET}-g++)
set(CMAKE_LIBRARY_ARCHITECTURE ${ORU_CROSS_TRIPLET})

set(CMAKE_FIND_ROOT_PATH /usr/${ORU_CROSS_TRIPLET} /)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

# Without this pkg-config silently hands out the host's libusb.
set(ENV{PKG_CONFIG_LIBDIR} /usr/lib/${ORU_CROSS_TRIPLET}/pkgconfig:/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_PATH} "")

# No binfmt here: ctest calls qemu explicitly. No -L: the multiarch loader
# and libc in / belong together.
set(CMAKE_CROSSCOMPILING_EMULATOR ${ORU_CROSS_EMULATOR})
