// A file system that seems full to a conversion.

#ifndef TESTS_ADDONS_ENCRYPTION_FULL_DISK_H_
#define TESTS_ADDONS_ENCRYPTION_FULL_DISK_H_

namespace corvan_test {

// From now on, file systems have no room, or as much as they have.
void fill_file_system(bool is_full);

}  // namespace corvan_test

#endif  // TESTS_ADDONS_ENCRYPTION_FULL_DISK_H_
