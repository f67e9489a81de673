// The checks of examination.h notice the end of a process and the deletion of an open file.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <csignal>
#include <string>

#include "tests/damage/damage_checks.h"

namespace corvan_test {
namespace {

TEST_F(DamageChecks, NoticesAProcessThatDies) {
  EXPECT_EQ(complaint([](const char* sql, int /*code*/, sqlite3_stmt* /*stmt*/) {
              if (is_check(sql)) std::raise(SIGKILL);
            }),
            "killed by signal 9 in check_integrity");
}

TEST_F(DamageChecks, NoticesAProcessThatExitsWithACode) {
  EXPECT_EQ(complaint([](const char* sql, int /*code*/, sqlite3_stmt* /*stmt*/) {
              if (is_check(sql)) _exit(23);
            }),
            "exit code 23 in check_integrity");
}

TEST_F(DamageChecks, NoticesADeletionWithoutAReason) {
  const std::string text = complaint([](const char* sql, int /*code*/, sqlite3_stmt* /*stmt*/) {
    if (is_check(sql)) unlink(watched_file.c_str());
  });
  EXPECT_EQ(text.rfind("check_integrity: deleted the file without damage met at a prepare\n", 0),
            0U)
      << text;
}

}  // namespace
}  // namespace corvan_test
