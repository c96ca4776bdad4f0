# 32-bit ARM, hard-float, with Debian's cross compiler; scripts/setup-armhf gets it and the libraries that programs need.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

# Debian's packages for armhf, unpacked: for linking, and for running under emulation.
set(armhf_tree ${CMAKE_CURRENT_LIST_DIR}/../../build/armhf-tree)
cmake_path(NORMAL_PATH armhf_tree)
set(CMAKE_FIND_ROOT_PATH ${armhf_tree})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-arm;-L;${armhf_tree})

set(ENV{PKG_CONFIG_SYSROOT_DIR} ${armhf_tree})
set(ENV{PKG_CONFIG_PATH} "")
set(ENV{PKG_CONFIG_LIBDIR} ${armhf_tree}/usr/lib/arm-linux-gnueabihf/pkgconfig)
set(CMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES ${armhf_tree}/usr/include/arm-linux-gnueabihf)
# Libraries that those libraries need, and which the programs themselves do not name.
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " \"-Wl,-rpath-link,${armhf_tree}/usr/lib/arm-linux-gnueabihf\"")
# GCC notes that its calls differ from GCC 6's. Nothing that old is linked.
string(APPEND CMAKE_CXX_FLAGS_INIT " -Wno-psabi")
