#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/tools/program.h"

namespace {

using namespace corvan_test;

constexpr const char* kEveryMessage = "select * from t_message order by id";
constexpr const char* kEverySession = "select rowid,* from t_session order by rowid";

class BackupTest : public ToolTest {
 protected:
  BackupTest() {
    import(line(
               {{ "content",
                  "first" }}) +
           line({{"content", "second"},
                 { "sent_time",
                   1700000001000 }}));
  }

  Rows copied(const std::string& sql) const { return corvan_test::rows(backup + "/corvan", sql); }
  Rows content() const {
    Rows names;
    for (const auto& [name, state] : listing(folder.path())) names.push_back(name);
    return names;
  }

  const std::string backup = folder.file("backup");
};

TEST_F(BackupTest, HoldsEveryRow) {
  const std::string text = output({"backup", store(), backup});
  EXPECT_EQ(text.find(backup + "/corvan: 2 messages, 1 conversations, "), 0U) << text;
  for (const char* sql : {kEveryMessage, kEverySession, "select * from t_sync",
                          "select rowid,* from t_version", "select * from sqlite_sequence",
                          "select type,name,tbl_name,sql from sqlite_master order by name",
                          "pragma user_version", "pragma journal_mode"}) {
    EXPECT_EQ(copied(sql), rows(sql)) << sql;
  }
}

TEST_F(BackupTest, IncludesTheContentOfTheLogInOneFile) {
  const WriteAhead writer(file(), "update t_message set content='in the log' where id=1");
  const Listing before = listing(store());
  const Json result = json({"backup", store(), backup, "--json"});
  EXPECT_EQ(listing(store()), before);
  EXPECT_EQ(result["ok"], true);
  EXPECT_EQ(result["file"], backup + "/corvan");
  EXPECT_EQ(result["messages"], 2);
  EXPECT_EQ(result["sessions"], 1);
  EXPECT_EQ(result["damage"], nullptr);
  EXPECT_GT(result["log_bytes"], 4096);
  EXPECT_EQ(result["bytes"], std::filesystem::file_size(backup + "/corvan"));
  EXPECT_EQ(listing(backup).size(), 1U);
  EXPECT_EQ(copied("select content from t_message"), Rows({"in the log", "second"}));
}

TEST_F(BackupTest, KeepsADamagedStoreAsItIsWithItsLog) {
  const WriteAhead writer(file(), "update t_message set content='in the log' where id=1");
  std::string bytes = read_file(file());
  for (std::size_t i = 4096; i + 4096 <= bytes.size(); ++i) bytes[i] = '\x5a';
  write_file(file(), bytes);
  const std::string log = read_file(file() + "-wal");
  const Outcome outcome = run({"backup", store(), backup});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_NE(outcome.out.find("damaged ("), std::string::npos) << outcome.out;
  EXPECT_NE(outcome.out.find("corvan salvage"), std::string::npos) << outcome.out;
  EXPECT_EQ(read_file(backup + "/corvan"), bytes);
  EXPECT_EQ(read_file(backup + "/corvan-wal"), log);
  EXPECT_EQ(read_file(file()), bytes);
}

TEST_F(BackupTest, DoesNotReportLackOfRoomAsDamage) {
  // The file and the log each fit, but the file with the log's content does not.
  const WriteAhead writer(file(), "insert into t_message(content) values(zeroblob(200000))");
  largest_file = std::filesystem::file_size(file() + "-wal") + 4096;
  ASSERT_LT(largest_file, 4096 * std::stoul(rows("pragma page_count")[0]));
  const Outcome outcome = run({"backup", store(), backup});
  EXPECT_EQ(outcome.status, 2) << outcome.out;
  EXPECT_EQ(outcome.err.find("corvan: " + backup + ": the copy cannot be completed: "), 0U)
      << outcome.err;
  EXPECT_NE(outcome.err.find("room"), std::string::npos) << outcome.err;
  EXPECT_EQ(content(), Rows({"store"}));
}

TEST_F(BackupTest, DoesNotOverwrite) {
  std::filesystem::create_directory(backup);
  const Outcome outcome = run({"backup", store(), backup});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + backup + ": exists already; name a new place\n");
  EXPECT_EQ(listing(backup), Listing{});
}

TEST_F(BackupTest, IsReadableOnlyByItsOwner) {
  output({"backup", store(), backup});
  const auto others = std::filesystem::perms::group_all | std::filesystem::perms::others_all;
  for (const std::string& path : {backup, backup + "/corvan"}) {
    EXPECT_EQ(std::filesystem::status(path).permissions() & others, std::filesystem::perms::none)
        << path;
  }
}

TEST_F(BackupTest, NamesAMissingParentFolder) {
  const Outcome outcome = run({"backup", store(), folder.file("none/backup")});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + folder.file("none") + ": no such folder; create it first\n");
}

TEST_F(BackupTest, AFailureLeavesNothingBehind) {
  largest_file = 8192;
  EXPECT_EQ(run({"backup", store(), backup}).status, 2);
  EXPECT_EQ(content(), Rows({"store"}));
  largest_file = 0;
  for (const char* other : {"empty", "text", "database"}) {
    const std::string place = folder.file(other);
    std::filesystem::create_directory(place);
    write_file(place + "/corvan", "");
    if (std::string(other) == "database")
      corvan_test::plant(place + "/corvan", "create table t(a)");
    if (std::string(other) == "text") std::filesystem::remove(place + "/corvan");
    const Outcome outcome = run({"backup", place, backup});
    EXPECT_EQ(outcome.status, 2) << other;
    EXPECT_NE(outcome.err.find(place + "/corvan"), std::string::npos) << outcome.err;
    EXPECT_FALSE(std::filesystem::exists(backup)) << other;
    std::filesystem::remove_all(place);
  }
  EXPECT_EQ(content(), Rows({"store"}));
}

}  // namespace
