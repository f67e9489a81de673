// The checks of examination.h notice violations.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <string>
#include <utility>

#include "tests/damage/child.h"
#include "tests/damage/examination.h"
#include "tests/damage/files.h"
#include "tests/support/sqlite_ledger.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/unrecorded.h"

namespace corvan_test {
namespace {

class DamageChecks : public testing::Test {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }
  DamageChecks() { other_store(); }

  // The complaint about a sound file if `watcher` interferes with each statement.
  static std::string complaint(PrepareWatcher watcher) {
    const TemporaryFolder folder;
    write_files(folder.path(), closed_store());
    watched_file = folder.file("corvan");
    const Ended ended = in_child([&](Outcome& outcome) {
      watch_prepares(watcher);
      examine(folder.path(), {}, outcome);
    });
    return ended.otherwise + ended.outcome.complaint.data();
  }

  // A statement that occurs once in the sweep.
  static bool is_check(const char* sql) { return std::strcmp(sql, "pragma integrity_check;") == 0; }

  static inline std::string watched_file;
};

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

TEST_F(DamageChecks, NoticesATransactionLeftOpen) {
  const std::string text = complaint([](const char* sql, int /*code*/, sqlite3_stmt* /*stmt*/) {
    if (is_check(sql)) sqlite3_exec(store_connection(), "begin", nullptr, nullptr, nullptr);
  });
  EXPECT_EQ(text.rfind("check_integrity: left a transaction open\n", 0), 0U) << text;
}

TEST_F(DamageChecks, NoticesAStatementLeftOpen) {
  static sqlite3_stmt* left = nullptr;  // until the next one is prepared
  const std::string text = complaint([](const char* sql, int /*code*/, sqlite3_stmt* /*stmt*/) {
    sqlite3_finalize(std::exchange(left, nullptr));
    if (is_check(sql)) prepare_unrecorded(store_connection(), "select 1", &left);
  });
  EXPECT_EQ(text, "check_integrity: left a statement open\n");
}

}  // namespace
}  // namespace corvan_test
