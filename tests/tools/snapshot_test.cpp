// Commands that only read work on a snapshot: they change nothing, and leave nothing behind.

#include <sqlite3.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/tools/leased_file.h"
#include "tests/tools/look_sample.h"

namespace corvan_test {
namespace {

class SnapshotTest : public LookTest {};

TEST_F(SnapshotTest, ReadingChangesNothing) {
  import_sample();
  write_file(store() + "/bystander", "x");
  const Listing before = listing(store());
  for (const Arguments& arguments : commands(store())) {
    EXPECT_EQ(run(arguments).status, 0) << arguments[0];
    EXPECT_EQ(listing(store()), before) << arguments[0];
  }
}

TEST_F(SnapshotTest, ShowsMessagesOfAnOpenWriter) {
  import_sample();
  const WriteAhead writer(
      file(),
      "insert into t_message(session_id,session_type,content,sender,direction,sent_time) "
      "values('room',2,'in the log','u01',1,1700000009000);"
      "update t_session set latest_id=7,unread_count=9 where session_id='room'");
  const Listing before = listing(store());
  ASSERT_EQ(before.size(), 3U) << "a file, its log and the log's index";
  for (const Arguments& arguments : commands(store())) {
    EXPECT_EQ(run(arguments).status, 0) << arguments[0];
    EXPECT_EQ(listing(store()), before) << arguments[0];
  }
  EXPECT_EQ(json({"show", store(), "7", "--json"})["content"], "in the log");
  EXPECT_NE(output({"list", store()}).find("in the log"), std::string::npos);
  EXPECT_EQ(ids({}), (std::vector<int>{1, 2, 3, 7}));
  EXPECT_EQ(json({"unread", store(), "--type", "2", "--json"})["group"]["unread_count"], 9);
  EXPECT_EQ(output({"check", store()}), "ok\n");
}

TEST_F(SnapshotTest, HidesAnOpenTransaction) {
  import_sample();
  const WriteAhead writer(file(), "begin immediate;update t_message set content='unfinished'");
  EXPECT_EQ(json({"show", store(), "1", "--json"})["content"], "first");
  EXPECT_EQ(output({"check", store()}), "ok\n");
}

TEST_F(SnapshotTest, ShowsMessagesOfAKilledWriter) {
  import_sample();
  const std::string killed = folder.file("killed");
  std::filesystem::create_directory(killed);
  {
    const WriteAhead writer(file(), "update t_message set content='in the log' where id=1");
    for (const char* suffix : {"", "-wal", "-shm"}) {
      std::filesystem::copy_file(file() + suffix, killed + "/corvan" + suffix);
    }
  }
  for (const char* gone : {"", "-shm"}) {
    if (*gone != '\0') std::filesystem::remove(killed + "/corvan" + gone);
    const Listing before = listing(killed);
    for (const Arguments& arguments : commands(killed)) {
      EXPECT_EQ(run(arguments).status, 0) << arguments[0];
      EXPECT_EQ(listing(killed), before) << arguments[0];
    }
    EXPECT_EQ(json({"show", killed, "1", "--json"})["content"], "in the log");
  }
}

TEST_F(SnapshotTest, RollsBackAJournalOnlyInTheCopy) {
  import_sample();
  const std::string killed = folder.file("killed");
  std::filesystem::create_directory(killed);
  plant("pragma journal_mode=delete");
  {
    // With a cache of one page, the writer changes the file before the transaction ends.
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(file().c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db,
                           "pragma cache_size=1;begin;"
                           "update t_message set content=hex(zeroblob(5000));"
                           "update t_session set title=hex(zeroblob(5000))",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    for (const char* suffix : {"", "-journal"}) {
      std::filesystem::copy_file(file() + suffix, killed + "/corvan" + suffix);
    }
    sqlite3_close(db);
  }
  const Listing before = listing(killed);
  EXPECT_EQ(json({"show", killed, "1", "--json"})["content"], "first");
  EXPECT_EQ(output({"check", killed}), "ok\n");
  EXPECT_EQ(listing(killed), before);
}

TEST_F(SnapshotTest, ReadsTheLogBesideTheFileThatALinkNames) {
  import_sample();
  const WriteAhead writer(file(), "update t_message set content='in the log' where id=1");
  const std::string linked = folder.file("linked");
  std::filesystem::create_directory(linked);
  std::filesystem::create_symlink(file(), linked + "/corvan");
  EXPECT_EQ(json({"show", linked, "1", "--json"})["content"], "in the log");
}

TEST_F(SnapshotTest, ReadsAReadOnlyStore) {
  import_sample();
  make_read_only();
  const Listing before = listing(store());
  for (const Arguments& arguments : commands(store())) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
  }
  EXPECT_EQ(listing(store()), before);
}

TEST_F(SnapshotTest, RemovesTheCopyWhenOutputIsClosedEarly) {
  import_sample();
  for (const Arguments& arguments : commands(store())) {
    const Pipe pipe = make_pipe();
    close(pipe.read_end);
    EXPECT_EQ(wait(start(arguments, pipe.write_end)), 2) << arguments[0];
    EXPECT_EQ(listing(copies()), Listing{}) << arguments[0];
  }
}

TEST_F(SnapshotTest, RemovesTheCopyOnASignal) {
  import_sample();
  const std::size_t size = read_file(file()).size();
  for (const int interrupt : interrupts()) {
    // The program waits at the log, after it has copied the main file.
    const LeasedFile log(file() + "-wal");
    if (!log.is_held()) GTEST_SKIP() << "the file system has no leases";
    const pid_t pid = start({"list", store()}, null_output());
    EXPECT_TRUE(log.wait_for_opener());
    for (const auto& entry : std::filesystem::directory_iterator(copies())) {
      EXPECT_EQ(std::filesystem::file_size(entry.path() / "corvan"), size);
    }
    interrupt_process(pid, interrupt);
    EXPECT_EQ(wait(pid), interrupted_status(interrupt));
    EXPECT_EQ(listing(copies()), Listing{}) << interrupt;
  }
}

}  // namespace
}  // namespace corvan_test
