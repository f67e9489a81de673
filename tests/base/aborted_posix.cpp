#include <gtest/gtest.h>

#include <csignal>

#include "tests/base/aborted.h"

namespace corvan_test {

bool aborted(int status) {
  return testing::KilledBySignal(SIGABRT)(status);
}

// QEMU reports the signal.
std::string written_before_abort(const std::string& lines) {
  return "^" + lines + "(qemu: .*\n)?$";
}

}  // namespace corvan_test
