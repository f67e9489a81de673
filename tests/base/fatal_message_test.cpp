#include "base/fatal_message.h"

#include <gtest/gtest.h>

#include <csignal>

namespace corvan_test {
namespace {

TEST(FatalMessage, WritesFileLineAndTextAndAborts) {
  EXPECT_EXIT(cvrtc::FatalMessage("db/unit.cpp", 1207).stream() << "Check failed: x\n# note",
              testing::KilledBySignal(SIGABRT),
              "^Fatal error in db/unit\\.cpp, line 1207\nCheck failed: x\n# note\n(qemu: .*\n)?$");
}

TEST(FatalMessage, AbortsWithoutText) {
  EXPECT_EXIT(cvrtc::FatalMessage("unit.cpp", 1), testing::KilledBySignal(SIGABRT),
              "unit\\.cpp, line 1\n");
}

}  // namespace
}  // namespace corvan_test
