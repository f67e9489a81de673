// For MSVC, whose C library has no unistd.h: the store needs unlink() of it.

#ifndef CMAKE_WINDOWS_MSVC_UNISTD_H_
#define CMAKE_WINDOWS_MSVC_UNISTD_H_

#include <io.h>

#endif  // CMAKE_WINDOWS_MSVC_UNISTD_H_
