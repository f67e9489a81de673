// Examines a sound store while a test interferes.

#ifndef TESTS_DAMAGE_DAMAGE_CHECKS_H_
#define TESTS_DAMAGE_DAMAGE_CHECKS_H_

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "tests/damage/child.h"
#include "tests/damage/examination.h"
#include "tests/damage/files.h"
#include "tests/support/sqlite_ledger.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

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
    watch_prepares(nullptr);  // on Windows, the work ran in this process
    return ended.otherwise + ended.outcome.complaint.data();
  }

  // A statement that occurs once in the sweep.
  static bool is_check(const char* sql) { return std::strcmp(sql, "pragma integrity_check;") == 0; }

  static inline std::string watched_file;
};

}  // namespace corvan_test

#endif  // TESTS_DAMAGE_DAMAGE_CHECKS_H_
