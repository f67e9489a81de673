#include <gtest/gtest.h>

#include "tests/base/aborted.h"

namespace corvan_test {

bool aborted(int status) {
  return testing::ExitedWithCode(3)(status);
}

// abort() may add lines of its own.
std::string written_before_abort(const std::string& lines) {
  return "^" + lines;
}

}  // namespace corvan_test
