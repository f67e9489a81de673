# Builds for 64-bit Windows with Debian's mingw-w64, with POSIX threads, which std::thread and std::mutex
# need, and runs programs under Wine. Programs are linked statically: they need no DLL of the compiler.
# Variables, set by scripts/test_matrix.sh:
#   CORVAN_WINDOWS_SYSROOT  the folder with the libraries for Windows, in usr/
#   CORVAN_WINE_PREFIX      the folder for Wine's registry and drive C
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CORVAN_WINDOWS_SYSROOT CORVAN_WINE_PREFIX)
set(sysroot "${CORVAN_WINDOWS_SYSROOT}")

set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_C_COMPILER x86_64-w64-mingw32-gcc-posix)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_EXE_LINKER_FLAGS_INIT -static)

set(CMAKE_FIND_ROOT_PATH "${sysroot}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
set(ENV{PKG_CONFIG_LIBDIR} "${sysroot}/usr/lib/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "")

# The absolute path: tests start programs without searching PATH.
find_program(bash_path bash REQUIRED)
set(CMAKE_CROSSCOMPILING_EMULATOR
  "${bash_path};${CMAKE_CURRENT_LIST_DIR}/../../scripts/wine.sh;${CORVAN_WINE_PREFIX}")
