#include "base/fatal_message.h"

#include <gtest/gtest.h>

#include "tests/base/aborted.h"

namespace corvan_test {
namespace {

TEST(FatalMessage, WritesFileLineAndTextAndAborts) {
  EXPECT_EXIT(cvrtc::FatalMessage("db/unit.cpp", 1207).stream() << "Check failed: x\n# note",
              aborted,
              written_before_abort("Fatal error in db/unit\\.cpp, line 1207\n"
                                   "Check failed: x\n# note\n"));
}

TEST(FatalMessage, AbortsWithoutText) {
  EXPECT_EXIT(cvrtc::FatalMessage("unit.cpp", 1), aborted,
              written_before_abort("Fatal error in unit\\.cpp, line 1\n\n"));
}

}  // namespace
}  // namespace corvan_test
