#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "tests/tools/program.h"

namespace {

using namespace corvan_test;

class CompactTest : public ToolTest {
 protected:
  // A store with three conversations and the free space of deleted messages.
  CompactTest() {
    std::string lines;
    for (int i = 0; i < 300; ++i) {
      lines += line({{"session_id", "room" + std::to_string(i % 3)},
                     {"content", std::string(1000, 'x')},
                     {"sent_time", 1700000000000 + i}});
    }
    import(lines);
    plant("delete from t_message where id%10<>0");
  }

  Rows everything() const {
    Rows all;
    for (const char* sql :
         {"select * from t_message order by id", "select * from t_session", "select * from t_sync",
          "select rowid,* from t_version", "select * from sqlite_sequence",
          "select type,name,tbl_name,sql from sqlite_master order by name", "pragma user_version",
          "pragma page_size", "pragma journal_mode"}) {
      for (const std::string& row : rows(sql)) all.push_back(row);
    }
    return all;
  }
};

TEST_F(CompactTest, FreesSpaceAndKeepsEveryRow) {
  const Rows before = everything();
  const auto size = std::filesystem::file_size(file());
  const Json result = json({"compact", store(), "--json"});
  EXPECT_EQ(everything(), before);
  EXPECT_LT(std::filesystem::file_size(file()), size / 2);
  EXPECT_EQ(result["before"]["file_bytes"], size);
  EXPECT_EQ(result["after"]["file_bytes"], std::filesystem::file_size(file()));
  EXPECT_EQ(result["after"]["log_bytes"], 0);
  EXPECT_EQ(result["freed_bytes"], size - std::filesystem::file_size(file()));
  EXPECT_EQ(rows("pragma freelist_count"), Rows({"0"}));
}

TEST_F(CompactTest, IncludesTheLogOfAClientThatHasTheStoreOpen) {
  const WriteAhead writer(file(), "update t_message set content='in the log' where id=10");
  const auto log = std::filesystem::file_size(file() + "-wal");
  const std::string text = output({"compact", store()});
  EXPECT_GT(log, 0U);
  EXPECT_EQ(std::filesystem::file_size(file() + "-wal"), 0U);
  EXPECT_NE(text.find("freed "), std::string::npos) << text;
  EXPECT_EQ(rows("select content from t_message where id=10"), Rows({"in the log"}));
}

TEST_F(CompactTest, DoesNotChangeALockedStore) {
  const WriteAhead writer(file(), "begin;update t_message set content='held' where id=10");
  const std::string bytes = read_file(file());
  const Outcome outcome = run({"compact", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find(file() + ": in use by another process"), std::string::npos)
      << outcome.err;
  EXPECT_NE(outcome.err.find("try again while the client is idle"), std::string::npos);
  EXPECT_EQ(read_file(file()), bytes);
}

TEST_F(CompactTest, RefusesADamagedStoreAndDoesNotChangeIt) {
  std::string bytes = read_file(file());
  // A damaged index is enough to refuse the store.
  const std::string page =
      rows("select rootpage from sqlite_master where name='t_message_sent_time'")[0];
  const std::size_t at = (std::stoul(page) - 1) * 4096;
  for (std::size_t i = at + 8; i < at + 4096; ++i) bytes[i] = '\x5a';
  write_file(file(), bytes);
  const Outcome outcome = run({"compact", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.find("corvan: " + file() + ": "), 0U) << outcome.err;
  EXPECT_NE(outcome.err.find("see 'corvan salvage'"), std::string::npos) << outcome.err;
  EXPECT_EQ(read_file(file()), bytes);
}

TEST_F(CompactTest, CountsTheLogOfALinkedFile) {
  const WriteAhead writer(file(), "update t_message set content='in the log' where id=10");
  const auto log = std::filesystem::file_size(file() + "-wal");
  const std::string linked = folder.file("linked");
  std::filesystem::create_directory(linked);
  std::filesystem::create_symlink(file(), linked + "/corvan");
  EXPECT_EQ(json({"stats", linked, "--json"})["log_bytes"], log);
  EXPECT_EQ(json({"compact", linked, "--json"})["before"]["log_bytes"], log);
}

TEST_F(CompactTest, ReportsAReadOnlyStore) {
  make_read_only();
  const Listing before = listing(store());
  const Outcome outcome = run({"compact", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.find("corvan: " + file() + ": "), 0U) << outcome.err;
  EXPECT_NE(outcome.err.find("; make the file and its folder writable\n"), std::string::npos)
      << outcome.err;
  EXPECT_EQ(listing(store()), before);
}

TEST_F(CompactTest, AnInterruptWhileWaitingChangesNothing) {
  const Rows before = everything();
  const WriteAhead writer(file(), "begin immediate");  // for which the program waits two seconds
  for (const char* command : {"compact", "index"}) {
    const pid_t pid = start({command, store()}, null_output());
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    interrupt_process(pid, interrupts()[0]);
    EXPECT_EQ(wait(pid), interrupted_status(interrupts()[0])) << command;
    EXPECT_EQ(listing(copies()), Listing{}) << command;
    EXPECT_EQ(everything(), before) << command;
  }
}

TEST_F(CompactTest, AFullDiskDoesNoHarm) {
  const Rows before = everything();
  largest_file = 65536;
  const Outcome outcome = run({"compact", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.find("corvan: " + file() + ": "), 0U) << outcome.err;
  EXPECT_EQ(everything(), before);
  EXPECT_EQ(rows("pragma integrity_check"), Rows({"ok"}));
}

}  // namespace
