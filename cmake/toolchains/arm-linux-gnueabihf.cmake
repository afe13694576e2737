# 32-bit ARM, hard float (ARMv7 with VFP): Debian's cross compiler against the private sysroot of script/arm-sysroot.
# CTest runs the programs under qemu-user, which finds loader and libraries in the same sysroot.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR armv7l)

if(DEFINED ENV{FW_ARM_SYSROOT})
  set(CMAKE_SYSROOT $ENV{FW_ARM_SYSROOT})
else()
  set(CMAKE_SYSROOT ${CMAKE_CURRENT_LIST_DIR}/../../build/arm-sysroot)
endif()
cmake_path(ABSOLUTE_PATH CMAKE_SYSROOT NORMALIZE)
if(NOT EXISTS ${CMAKE_SYSROOT}/.packages)
  message(FATAL_ERROR "No sysroot in ${CMAKE_SYSROOT}: run script/arm-sysroot first")
endif()

set(CMAKE_C_COMPILER arm-linux-gnueabihf-gcc)
set(CMAKE_CXX_COMPILER arm-linux-gnueabihf-g++)
set(CMAKE_LIBRARY_ARCHITECTURE arm-linux-gnueabihf)

# Programs come from this machine, everything else from the sysroot.
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_DIR} "")
set(ENV{PKG_CONFIG_LIBDIR}
  ${CMAKE_SYSROOT}/usr/lib/arm-linux-gnueabihf/pkgconfig:${CMAKE_SYSROOT}/usr/share/pkgconfig)
set(ENV{PKG_CONFIG_SYSROOT_DIR} ${CMAKE_SYSROOT})

find_program(FW_QEMU_ARM NAMES qemu-arm qemu-arm-static)
if(FW_QEMU_ARM)
  set(CMAKE_CROSSCOMPILING_EMULATOR ${FW_QEMU_ARM};-L;${CMAKE_SYSROOT})
endif()

# Everything is compiled by this one compiler; that its predecessors before version 7 passed some values differently is noise.
set(CMAKE_CXX_FLAGS_INIT -Wno-psabi)
