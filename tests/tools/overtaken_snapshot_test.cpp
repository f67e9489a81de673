// The store is written while its snapshot is taken.

#include <atomic>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/leased_file.h"
#include "tests/tools/look_sample.h"
#include "tools/store/library_store.h"

namespace corvan_test {
namespace {

// The bytes of a store's file and of its log.
struct Files {
  std::string main;
  std::string log;
};

class OvertakenSnapshotTest : public LookTest {
 protected:
  void SetUp() override {
    import_sample();
    std::filesystem::create_directory(folder.file("side"));
    std::filesystem::copy_file(file(), side_);
  }

  Files side() const { return {read_file(side_), read_file(side_ + "-wal")}; }

  // The conversation "room", as `list` shows it. The first attempt to copy reads the main file
  // `first` and the log `log_read`; before it ends, `then` replaces the files. No value if the file
  // system has no leases, which the test needs to stop the program.
  std::optional<Json> list_room(const std::string& first, const std::string& log_read,
                                const Files& then) {
    write_file(file(), first);
    write_file(file() + "-wal", log_read);
    write_file(temporary("in"), "");
    pid_t pid = 0;
    {
      const LeasedFile journal(file() + "-journal");  // empty, and copied last
      if (!journal.is_held()) return std::nullopt;
      pid = start({"list", store(), "--type", "group", "--json"}, create_output(temporary("out")));
      EXPECT_TRUE(journal.wait_for_opener());
      write_file(file(), then.main);
      write_file(file() + "-wal", then.log);
    }
    EXPECT_EQ(wait(pid), 0) << read_err();
    return Json::parse(read_file(temporary("out")))[0];
  }

  const std::string side_ = folder.file("side/corvan");
};

TEST_F(OvertakenSnapshotTest, CopiesAgainIfTheMainFileChanged) {
  const std::string before = read_file(side_);
  const WriteAhead writer(side_,
                          "update t_message set content='folded in' where id=3;"
                          "pragma wal_checkpoint(truncate);"
                          "update t_session set title='in the log'");
  const Files after = side();
  ASSERT_NE(after.main, before);
  // The old file and the new log are valid, but never existed together.
  const std::optional<Json> listed = list_room(before, after.log, after);
  if (!listed) GTEST_SKIP() << "the file system has no leases";
  const Json& room = *listed;
  EXPECT_EQ(room["message"]["content"], "folded in");
  EXPECT_EQ(room["title"], "in the log");
}

TEST_F(OvertakenSnapshotTest, CopiesAgainIfTheLogWasRestarted) {
  const WriteAhead first(side_, "update t_message set content='older' where id=3");
  const std::string older = side().log;
  const WriteAhead second(side_,
                          "update t_message set content='folded in' where id=3;"
                          "pragma wal_checkpoint(passive)");
  const std::string main = side().main;
  const WriteAhead third(side_, "update t_session set title='in the log'");
  const Files after = side();
  ASSERT_EQ(after.main, main);
  ASSERT_NE(after.log.substr(0, 32), older.substr(0, 32)) << "the log has not started anew";
  // The older log would hide what was checkpointed.
  const std::optional<Json> listed = list_room(main, older, after);
  if (!listed) GTEST_SKIP() << "the file system has no leases";
  const Json& room = *listed;
  EXPECT_EQ(room["message"]["content"], "folded in");
  EXPECT_EQ(room["title"], "in the log");
}

TEST_F(OvertakenSnapshotTest, UsesTheCopiedPartOfALogThatHasGrown) {
  const WriteAhead first(side_, "update t_message set content='older' where id=3");
  const Files before = side();
  const WriteAhead second(side_, "update t_session set title='newer'");
  const Files after = side();
  const std::optional<Json> listed = list_room(before.main, before.log, after);
  if (!listed) GTEST_SKIP() << "the file system has no leases";
  const Json& room = *listed;
  EXPECT_EQ(room["message"]["content"], "older");
  EXPECT_EQ(room["title"], "");
}

class BusyStoreTest : public LookTest {};

TEST_F(BusyStoreTest, SnapshotIsConsistentWhileAnotherThreadWrites) {
  import(line({}) + line({}));
  std::atomic<bool> stop{false};
  std::atomic<int> saved{0};
  std::atomic<int> pause{8};  // between steps, in milliseconds
  // Two messages per transaction: every consistent state has an even number. A checkpoint follows
  // every few transactions.
  std::thread writer([&] {
    corvan_tool::LibraryStore open(store(), "me");
    open->execute_none_query("pragma wal_autocheckpoint=30");
    open->execute_none_query("pragma synchronous=off");
    while (!stop) {
      open->start_transaction();
      for (int i = 0; i < 2; ++i) {
        open->save_message("room", Corvan::CV_GROUP, "CV:TxtMsg", "u01", std::string(300, 'x'),
                           true, 0, 0, false, kSampleTime + saved, 0, "", false, false, true);
      }
      open->commit_transaction();
      ++saved;
      std::this_thread::sleep_for(std::chrono::milliseconds(pause));
    }
    EXPECT_EQ(open.failure(), "");
  });
  int good = 0;
  for (int i = 0; i < 16; ++i) {
    if (i == 15) pause = 0;  // hardly any time to copy
    for (const Arguments& arguments :
         std::vector<Arguments>{{"check", store()}, {"list", store(), "--json"}}) {
      const int before = saved;
      const Outcome outcome = run(arguments);
      if (outcome.status == 2) {
        EXPECT_EQ(outcome.err,
                  "corvan: " + file() +
                      ": changes too often to be copied; try again while the client is idle\n");
        if (good == 0) pause = 2 * pause;  // a slow machine needs more time
        continue;
      }
      EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
      ++good;
      if (arguments[0] == "check") {
        EXPECT_EQ(outcome.out, "ok\n");
        continue;
      }
      const Json entry = Json::parse(outcome.out)[0];
      EXPECT_EQ(entry["unread_count"].get<int>() % 2, 0);
      EXPECT_EQ(entry["unread_count"], entry["message"]["msg_id"]);
      EXPECT_GE(entry["unread_count"].get<int>(), 2 + 2 * before) << "an old state";
    }
  }
  stop = true;
  writer.join();
  EXPECT_GT(good, 0);
  EXPECT_EQ(output({"check", store()}), "ok\n");
}

}  // namespace
}  // namespace corvan_test
