// Commands that create a file or a folder.

#include <filesystem>
#include <functional>
#include <string>

#include "tests/tools/failed_calls.h"

namespace corvan_test {
namespace {

class FailedSyncOfOutput : public ToolTest {
 protected:
  FailedSyncOfOutput() : made(folder.file("made")) { import(messages(1, kStoredBefore)); }

  // Runs the program once for each sync of its output `made` and of the folder around it, and makes
  // that sync fail. Calls `check` with each outcome, then removes `made`.
  void at_every_sync(const Arguments& arguments, const std::function<void(const Outcome&)>& check) {
    const std::string mark = temporary("sync-failed");
    const std::string around = std::filesystem::path(made).parent_path().string();
    int sync = 1;
    for (; sync <= kMostCalls; ++sync) {
      SCOPED_TRACE("sync " + std::to_string(sync));
      variables = {"LD_PRELOAD=" CORVAN_FAILING_CALLS, "CORVAN_FAIL_CALL=sync",
                   "CORVAN_FAIL_IN=" + around, "CORVAN_FAIL_AT=" + std::to_string(sync),
                   "CORVAN_FAIL_MARK=" + mark};
      const Outcome outcome = run(arguments);
      variables.clear();
      if (!std::filesystem::remove(mark)) break;
      check(outcome);
      std::filesystem::remove_all(made);
      EXPECT_EQ(listing(folder.path()).size(), 1U) << "something was left";
    }
    EXPECT_GT(sync, 1) << "no sync failed";
    EXPECT_LT(sync, kMostCalls);
    std::filesystem::remove_all(made);
  }

  // The output is either complete, and only its name may be lost, or absent.
  void expect_made_or_nothing(const Outcome& outcome) {
    EXPECT_EQ(outcome.status, 2);
    const bool is_made = outcome.err == "corvan: " + made +
                                            ": is complete, but its folder cannot be "
                                            "synced: Input/output error; it may be missing "
                                            "after a power loss\n";
    times_made += is_made ? 1 : 0;
    EXPECT_EQ(std::filesystem::exists(made), is_made) << outcome.err;
    EXPECT_EQ(outcome.err.find("nothing was kept") == std::string::npos, is_made) << outcome.err;
    EXPECT_EQ(outcome.err.find("no such index"), std::string::npos) << outcome.err;
  }

  int times_made = 0;
  const std::string made;
};

TEST_F(FailedSyncOfOutput, AnExportIsCompleteOrAbsent) {
  at_every_sync({"export", store(), "--format", "jsonl", "--output", made},
                [this](const Outcome& outcome) { expect_made_or_nothing(outcome); });
  EXPECT_EQ(times_made, 1);
}

TEST_F(FailedSyncOfOutput, ASalvagedStoreIsCompleteOrAbsent) {
  at_every_sync({"salvage", store(), made}, [this](const Outcome& outcome) {
    // SQLite ignores some failures, such as that of a folder's sync.
    if (outcome.status != 0) return expect_made_or_nothing(outcome);
    EXPECT_EQ(corvan_test::rows(made + "/corvan", "select count(*) from t_message"), Rows{"10"});
  });
  EXPECT_EQ(times_made, 1);
}

TEST_F(FailedSyncOfOutput, AnImportIntoANewStoreCanBeRepeated) {
  const std::string log = temporary("log.jsonl");
  write_file(log, messages(1, kLines));
  const Arguments arguments = {"import", made, "--user", "me", log};
  at_every_sync(arguments, [&](const Outcome& /*outcome*/) {
    const Outcome again = run(arguments);
    EXPECT_EQ(again.status, 0) << again.err;
  });
}

}  // namespace
}  // namespace corvan_test
