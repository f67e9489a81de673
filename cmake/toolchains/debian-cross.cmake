# Builds for another architecture with Debian's cross compilers and runs programs under QEMU. Variables,
# set by scripts/test_matrix.sh:
#   CORVAN_CROSS_TRIPLET    such as aarch64-linux-gnu
#   CORVAN_CROSS_PROCESSOR  such as aarch64
#   CORVAN_CROSS_SYSROOT    the folder with the unpacked packages of that architecture
#   CORVAN_CROSS_EMULATOR   such as qemu-aarch64-static
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
  CORVAN_CROSS_TRIPLET CORVAN_CROSS_PROCESSOR CORVAN_CROSS_SYSROOT CORVAN_CROSS_EMULATOR)
set(triplet "${CORVAN_CROSS_TRIPLET}")
set(sysroot "${CORVAN_CROSS_SYSROOT}")

set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR "${CORVAN_CROSS_PROCESSOR}")
set(CMAKE_C_COMPILER "${triplet}-gcc")
set(CMAKE_CXX_COMPILER "${triplet}-g++")
# Silence the notes on the ABI change of 32-bit ARM in g++ 7: nothing here was built before it.
set(CMAKE_CXX_FLAGS_INIT "-Wno-psabi")

set(CMAKE_FIND_ROOT_PATH "${sysroot}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} "${sysroot}/usr/lib/${triplet}/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${sysroot}")

# The absolute path: tests start programs without searching PATH.
find_program(emulator_path "${CORVAN_CROSS_EMULATOR}" REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR
  "${emulator_path};-L;/usr/${triplet};-E;LD_LIBRARY_PATH=${sysroot}/usr/lib/${triplet}")
