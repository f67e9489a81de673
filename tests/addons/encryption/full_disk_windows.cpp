#include <windows.h>

#include "tests/addons/encryption/full_disk.h"

namespace {

using Call = decltype(&GetDiskFreeSpaceExW);

bool file_system_is_full = false;

}  // namespace

// The addresses through which programs call the function.
extern "C" {
extern Call __real___imp_GetDiskFreeSpaceExW;
extern Call __wrap___imp_GetDiskFreeSpaceExW;
}

namespace {

BOOL WINAPI free_space(LPCWSTR folder, PULARGE_INTEGER free, PULARGE_INTEGER size,
                       PULARGE_INTEGER all_free) {
  const BOOL rc = __real___imp_GetDiskFreeSpaceExW(folder, free, size, all_free);
  if (file_system_is_full) free->QuadPart = 65536;
  return rc;
}

}  // namespace

Call __wrap___imp_GetDiskFreeSpaceExW = free_space;

namespace corvan_test {

void fill_file_system(bool is_full) {
  file_system_is_full = is_full;
}

}  // namespace corvan_test
