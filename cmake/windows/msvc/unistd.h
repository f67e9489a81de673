// MSVC has no unistd.h. The store needs its unlink().

#ifndef CMAKE_WINDOWS_MSVC_UNISTD_H_
#define CMAKE_WINDOWS_MSVC_UNISTD_H_

#include <io.h>

#endif  // CMAKE_WINDOWS_MSVC_UNISTD_H_
