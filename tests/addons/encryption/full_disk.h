// A file system that seems full to a conversion.

#ifndef TESTS_ADDONS_ENCRYPTION_FULL_DISK_H_
#define TESTS_ADDONS_ENCRYPTION_FULL_DISK_H_

namespace corvan_test {

// Makes all file systems seem full, or ends that.
void fill_file_system(bool is_full);

}  // namespace corvan_test

#endif  // TESTS_ADDONS_ENCRYPTION_FULL_DISK_H_
