# Builds for another architecture with Debian's cross compilers, and runs what was built under QEMU.
# Variables say for which, as scripts/test_matrix.sh sets them: CORVAN_CROSS_TRIPLET
# (aarch64-linux-gnu), CORVAN_CROSS_PROCESSOR (aarch64), CORVAN_CROSS_SYSROOT, the folder into which
# the packages of that architecture were unpacked, and CORVAN_CROSS_EMULATOR (qemu-aarch64-static).
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
  CORVAN_CROSS_TRIPLET CORVAN_CROSS_PROCESSOR CORVAN_CROSS_SYSROOT CORVAN_CROSS_EMULATOR)
set(triplet "${CORVAN_CROSS_TRIPLET}")
set(sysroot "${CORVAN_CROSS_SYSROOT}")

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR "${CORVAN_CROSS_PROCESSOR}")
set(CMAKE_C_COMPILER "${triplet}-gcc")
set(CMAKE_CXX_COMPILER "${triplet}-g++")
# 32-bit ARM passes some values otherwise than before g++ 7; nothing here is so old.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

set(CMAKE_FIND_ROOT_PATH "${sysroot}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} "${sysroot}/usr/lib/${triplet}/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${sysroot}")

# With its folder: tests start programs without a search for them.
find_program(emulator_path "${CORVAN_CROSS_EMULATOR}" REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR
  "${emulator_path};-L;/usr/${triplet};-E;LD_LIBRARY_PATH=${sysroot}/usr/lib/${triplet}")
