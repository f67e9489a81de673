#include <sys/statvfs.h>

#include "tests/addons/encryption/full_disk.h"

namespace {

bool file_system_is_full = false;

}  // namespace

// Which of the two is called depends on the size of file offsets.
extern "C" {
int __real_statvfs(const char* path, struct statvfs* system);
int __real_statvfs64(const char* path, struct statvfs* system);
int __wrap_statvfs(const char* path, struct statvfs* system) {
  const int rc = __real_statvfs(path, system);
  if (file_system_is_full) system->f_bavail = 16;
  return rc;
}
int __wrap_statvfs64(const char* path, struct statvfs* system) {
  const int rc = __real_statvfs64(path, system);
  if (file_system_is_full) system->f_bavail = 16;
  return rc;
}
}

namespace corvan_test {

void fill_file_system(bool is_full) {
  file_system_is_full = is_full;
}

}  // namespace corvan_test
