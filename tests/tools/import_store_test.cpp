// The store that an import saves into: new, damaged, foreign, locked or read-only.

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "tests/tools/import_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {
namespace {

class ImportStoreTest : public ImportSample {};

TEST_F(ImportStoreTest, CreatesFolderAndItsParents) {
  const std::string deep = folder.file("a/b/c");
  ASSERT_EQ(run({"import", deep, "--user", "me", "-"}, numbered(1)).status, 0);
  EXPECT_EQ(corvan_test::rows(deep + "/corvan", "select count(*) from t_message"), Rows{"1"});
  EXPECT_EQ(listing(deep).size(), 1U) << "a checkpoint removes the log at the end";
  // A slash at the end of the folder does not matter.
  ASSERT_EQ(run({"import", deep + "/", "--user", "me", "-"}, numbered(2)).status, 0);
  EXPECT_EQ(corvan_test::rows(deep + "/corvan", "select count(*) from t_message"), Rows{"2"});
}

TEST_F(ImportStoreTest, RejectsFileAsFolder) {
  const std::string path = write("file", "text");
  const Outcome outcome = run({"import", path, "--user", "me", "-"}, numbered(1));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + path + ": is not a folder; name the store's folder\n");
  EXPECT_EQ(read_file(path), "text");
}

TEST_F(ImportStoreTest, EmptyStoreFileBecomesStore) {
  std::filesystem::create_directory(store());
  write_file(file(), "");
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  EXPECT_EQ(contents(), Rows{"1"});
}

TEST_F(ImportStoreTest, LeavesDamagedFileUnchanged) {
  std::filesystem::create_directory(store());
  write_file(file(), std::string(5000, 'x'));
  const Listing before = listing(store());
  const Outcome outcome = import_text(numbered(1));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() +
                             ": damaged (file is not a database); keep a copy: opening it with "
                             "the library deletes it; 'corvan salvage' rescues what can be read\n");
  EXPECT_EQ(listing(store()), before);
}

TEST_F(ImportStoreTest, DoesNotDeleteStoreWithDamagedPage) {
  ASSERT_EQ(import_text(numbered(500)).status, 0);
  const std::string root = rows("select rootpage from sqlite_master where name='t_message'").at(0);
  std::string bytes = read_file(file());
  bytes.replace((std::stoul(root) - 1) * 4096, 4096, 4096, '\xff');
  write_file(file(), bytes);
  const Outcome outcome = import_text(numbered(1));
  EXPECT_EQ(outcome.status, 2);
  // The rest depends on whether opening the store or the first save reads the page.
  EXPECT_EQ(outcome.err.find("corvan: " + file() + ": database disk image is malformed"), 0U)
      << outcome.err;
  EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
  EXPECT_EQ(read_file(file()).size(), bytes.size());
}

TEST_F(ImportStoreTest, DoesNotDeleteStoreMadeUnreadableByItsLog) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  const std::string other = folder.file("other");
  std::filesystem::copy_file(file(), other);
  const WriteAhead writer(other,
                          "pragma writable_schema=on;"
                          "update sqlite_master set sql='create nothing' where name='t_sync'");
  std::filesystem::copy_file(other + "-wal", file() + "-wal");
  const Listing before = listing(store());
  const Outcome outcome = import_text(numbered(2));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.find("corvan: " + file() + ": damaged (malformed database schema"), 0U)
      << outcome.err;
  EXPECT_EQ(listing(store()), before);
}

TEST_F(ImportStoreTest, LeavesForeignDatabaseUnchanged) {
  std::filesystem::create_directory(store());
  plant("create table t_message(id);insert into t_message values(1)");
  const Listing before = listing(store());
  const Outcome outcome = import_text(numbered(1));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() + ": a database, but not a message store\n");
  EXPECT_EQ(listing(store()), before);
}

TEST_F(ImportStoreTest, LeavesLogOfForeignDatabaseUnchanged) {
  const std::string other = folder.file("other");
  const WriteAhead writer(other, "create table t(x);insert into t values(1)");
  std::filesystem::create_directory(store());
  for (const char* suffix : {"", "-wal"}) {
    std::filesystem::copy_file(other + suffix, file() + suffix);
  }
  const Listing before = listing(store());
  const Outcome outcome = import_text(numbered(1));
  EXPECT_EQ(outcome.err, "corvan: " + file() + ": a database, but not a message store\n");
  EXPECT_EQ(listing(store()), before);
}

TEST_F(ImportStoreTest, ReadsLogOfKilledWriter) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  {
    const WriteAhead writer(file(), "insert into t_message(content) values('in the log')");
    std::filesystem::create_directory(folder.file("killed"));
    for (const char* suffix : {"", "-wal"}) {
      std::filesystem::copy_file(file() + suffix, folder.file("killed/corvan") + suffix);
    }
  }
  ASSERT_EQ(run({"import", folder.file("killed"), "--user", "me", "-"}, numbered(1, 2)).status, 0);
  EXPECT_EQ(
      corvan_test::rows(folder.file("killed/corvan"), "select content from t_message order by id"),
      (Rows{"1", "in the log", "2"}));
}

TEST_F(ImportStoreTest, ReportsLockedStore) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  const WriteAhead writer(file(), "begin immediate");
  const Outcome outcome = import_text(numbered(2));
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() +
                             ": in use by another process (database is locked); nothing was "
                             "changed; try again while the client is idle\n");
  EXPECT_EQ(contents(), Rows{"1"});
}

TEST_F(ImportStoreTest, WaitsForShortLock) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  auto writer = std::make_unique<WriteAhead>(file(), "begin immediate");
  std::thread release([&writer] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    writer.reset();
  });
  const Outcome outcome = import_text(numbered(2));
  release.join();
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(contents(), (Rows{"1", "2"}));
}

TEST_F(ImportStoreTest, InterruptKeepsWholeBatches) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  const Pipe pipe = make_pipe();
  // Keeps the store open: each query below opens and closes a connection, and the last connection
  // that closes takes the lock.
  const WriteAhead other(file(), "select count(*) from t_message");
  const pid_t pid =
      start({"import", store(), "--user", "me", "--batch", "2", "-"}, null_output(), pipe.read_end);
  write_all(pipe.write_end, numbered(3, 2));
  for (int i = 0; i < 5000 && contents().size() < 3; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  interrupt_process(pid, interrupts()[0]);
  EXPECT_EQ(wait(pid), interrupted_status(interrupts()[0]));
  close(pipe.write_end);
  EXPECT_EQ(contents(), (Rows{"1", "2", "3"}));
  EXPECT_EQ(counts(import_text(numbered(4))), "1 stored, 0 completed, 3 refused, 0 bad");
}

TEST_F(ImportStoreTest, FailureRollsBackItsBatch) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  plant(
      "create trigger t before insert on t_message when new.content='5' "
      "begin select raise(abort,'no room'); end");
  const Outcome outcome = import_text(numbered(6, 2), {"--batch", "2"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() + ": no room; nothing was stored from " + log() +
                             ":3 on (at " + log() + ":4)\n");
  EXPECT_EQ(counts(outcome), "2 stored, 0 completed, 0 refused, 0 bad");
  EXPECT_EQ(contents(), (Rows{"1", "2", "3"}));
  EXPECT_EQ(rows(kSessions), Rows{"room|2|3000|3|0|3"});
}

TEST_F(ImportStoreTest, ReportsReadOnlyStore) {
  ASSERT_EQ(import_text(numbered(1)).status, 0);
  const std::string log_path = write("more.jsonl", numbered(2));
  make_read_only();
  const Listing before = listing(store());
  const Outcome outcome = run({"import", store(), "--user", "me", log_path});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() +
                             ": attempt to write a readonly database; nothing was changed; make "
                             "the file and its folder writable\n");
  EXPECT_EQ(listing(store()), before);
}

}  // namespace
}  // namespace corvan_test
