#include "tests/tools/leased_file.h"

// Windows has no leases: a file that is held makes other programs fail, not wait.

namespace corvan_test {

LeasedFile::LeasedFile(const std::string& /*path*/) {}

LeasedFile::~LeasedFile() = default;

bool LeasedFile::wait_for_opener() const {
  return is_held();
}

}  // namespace corvan_test
