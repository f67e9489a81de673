// A repair that fails must change nothing.

#include <sqlite3.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/verify_fixture.h"

namespace corvan_test {
namespace {

TEST_F(VerifyTest, FailedRepairChangesNothing) {
  import_sample();
  plant("update t_session set unread_count=8 where session_id='room'");
  {
    // Nothing here may open and close the store's files: closing one releases the lock.
    const WriteAhead writer(file(), "begin immediate");
    const Outcome outcome = run({"verify", store(), "--repair", kAll});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + file() +
                               ": in use by another process (database is locked); nothing was "
                               "changed; try again while the client is idle\n");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(codes(verify(1)), Rows{"counter-unread"});
  }
  {
    const WriteAhead writer(file(), "begin immediate");
    const pid_t pid = start({"verify", store(), "--repair", kAll}, create_output(temporary("out")));
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    interrupt_process(pid, interrupts()[0]);
    EXPECT_EQ(wait(pid), interrupted_status(interrupts()[0]));
  }
  EXPECT_EQ(backups(), Rows{});
  EXPECT_EQ(codes(verify(1)), Rows{"counter-unread"});

  const std::string taken = write("taken", "");
  expect_refused({"--backup", taken}, taken + ": exists already; name a new place");
  expect_refused({"--backup", folder.file("no/where")},
                 folder.file("no") + ": no such folder; create it first");
}

TEST_F(VerifyTest, ABackupThatDoesNotFitChangesNothing) {
  import_sample();
  plant("update t_session set unread_count=8 where session_id='room'");
  // The backup does not fit, but the 32 KiB that SQLite writes beside the store do.
  largest_file = std::uint64_t{40} << 10;
  const Outcome outcome = run({"verify", store(), "--repair", "counters"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find("; nothing was changed; make room there, or name another folder with "
                             "--backup\n"),
            std::string::npos)
      << outcome.err;
  EXPECT_EQ(outcome.err.find("unfinished"), std::string::npos) << outcome.err;
  largest_file = 0;
  EXPECT_EQ(backups(), Rows{});
  EXPECT_EQ(codes(verify(1)), Rows{"counter-unread"});
}

TEST_F(VerifyTest, FailedCommitLeavesStoreAndBackup) {
  import_sample();
  plant("pragma journal_mode=delete;update t_session set unread_count=8 where session_id='room'");
  const char* const counter = "select unread_count from t_session where session_id='room'";
  // Outside WAL mode, a reader prevents commits.
  sqlite3* reader = nullptr;
  ASSERT_EQ(sqlite3_open(file().c_str(), &reader), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(reader, "begin;select * from t_session", nullptr, nullptr, nullptr),
            SQLITE_OK);

  const std::string first = folder.file("first");
  const Outcome outcome = run({"verify", store(), "--repair", "counters", "--backup", first});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find("; nothing was changed; try again while the client is idle; the "
                             "original was copied to " +
                             first + "\n"),
            std::string::npos)
      << outcome.err;
  EXPECT_EQ(corvan_test::rows(first + "/corvan", counter), Rows{"8"});

  const std::string second = folder.file("second");
  const pid_t pid = start({"verify", store(), "--repair", "counters", "--backup", second},
                          create_output(temporary("out")));
  for (int i = 0; i < 5000 && !std::filesystem::exists(second); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  interrupt_process(pid, interrupts()[0]);
  EXPECT_EQ(wait(pid), interrupted_status(interrupts()[0]));
  EXPECT_EQ(corvan_test::rows(second + "/corvan", counter), Rows{"8"});

  sqlite3_close(reader);
  EXPECT_EQ(rows(counter), Rows{"8"});
  EXPECT_EQ(changes(repair("counters")), Rows{"counters room unread_count 8 -> 3"});
}

TEST_F(VerifyTest, RefusesReadOnlyStore) {
  import_sample();
  plant("update t_session set unread_count=8 where session_id='room'");
  make_read_only();
  expect_refused({}, file() +
                         ": attempt to write a readonly database; nothing was changed; make the "
                         "file and its folder writable");
  EXPECT_EQ(changes(repair("counters", {"--dry-run"})), Rows{"counters room unread_count 8 -> 3"});
}

TEST_F(VerifyTest, RefusesBadUsage) {
  import_sample();
  for (const Arguments& more : std::vector<Arguments>{{"--repair", "counts"},
                                                      {"--dry-run"},
                                                      {"--backup", folder.file("b")},
                                                      {"--repair", "times", "--backup", ""}}) {
    Arguments arguments = {"verify", store()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << more.back();
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
  }
}

}  // namespace
}  // namespace corvan_test
