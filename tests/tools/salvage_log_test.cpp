// How salvage reads a write-ahead log.

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/tools/salvage_fixture.h"
#include "tests/tools/store_pages.h"

namespace corvan_test {
namespace {

TEST_F(SalvageTest, ReadsTheLogAndReportsItsDamage) {
  std::string log;
  {
    const WriteAhead writer(file(),
                            "insert into t_message(session_id,session_type,content,server_uid) "
                            "values('room-1',2,'in the log','log-1');"
                            "update t_message set content='changed' where id=5");
    sound = read_file(file());
    log = read_file(file() + "-wal");
  }
  std::filesystem::remove(file() + "-shm");
  write_file(file(), sound);
  write_file(file() + "-wal", log);
  Json report = salvage(0);
  EXPECT_EQ(new_rows("select content from t_message where id in(5,1501) order by id"),
            (Rows{"changed", "in the log"}));
  EXPECT_GT(report["tables"]["t_message"]["from_log"], 1);
  EXPECT_GT(report["log"]["used"], 0);
  EXPECT_EQ(report["log"]["damaged"], false);

  // With a byte of the first commit changed, neither commit can be trusted.
  log[32 + 24 + 100] = static_cast<char>(~log[32 + 24 + 100]);
  write_file(file() + "-wal", log);
  report = salvage(1);
  EXPECT_EQ(new_rows("select count(*) from t_message"), Rows{"1495"});
  EXPECT_EQ(report["log"]["used"], 0);
  EXPECT_EQ(report["log"]["damaged"], true);
  EXPECT_EQ(report["tables"]["t_message"]["lost_at_most"], nullptr);
  EXPECT_GT(report["tables"]["t_message"]["doubtful_by"]["log"], 0);
  EXPECT_EQ(new_rows("select * from sqlite_sequence"), Rows{"t_message|1501"});
  report = salvage(1, {"--doubtful"});
  EXPECT_EQ(new_rows("select content from t_message where id=1501"), Rows{"in the log"});

  std::filesystem::remove(file() + "-wal");
  salvage(0);
  EXPECT_EQ(new_rows("select count(*),max(id) from t_message"), Rows{"1495|1500"});
}

TEST_F(SalvageTest, IdsOfLostCommitsAreNotAssignedAgain) {
  std::string log = log_of(file(),
                           "update t_message set content='first' where id=5;"
                           "update sqlite_sequence set seq=2000 where name='t_message'");
  log[32 + 24 + 100] = static_cast<char>(~log[32 + 24 + 100]);
  write_file(file() + "-wal", log);
  EXPECT_EQ(salvage(1)["largest_id"], 2000);
  std::filesystem::remove(file() + "-wal");

  // Nor are ids that indexes name, if the stored largest id is too small.
  plant("update sqlite_sequence set seq=5");
  sound = read_file(file());
  const StorePages pages = store_pages_of("t_message");
  for (const auto& [page, on_page] : pages.rows) {
    const bool has_last = std::find(on_page.begin(), on_page.end(), 1499) != on_page.end() ||
                          std::find(on_page.begin(), on_page.end(), 1500) != on_page.end();
    if (has_last) overwrite(sound, page, 0, std::string(kPageSize, 'x'));
  }
  write_file(file(), sound);
  EXPECT_EQ(salvage(1)["largest_id"], 1500);
}

TEST_F(SalvageTest, TakesThePageSizeFromTheLog) {
  const std::string log = log_of(file(), "update t_message set content='in the log' where id=5");
  overwrite(sound, 1, 16, std::string("\x20\0", 2));
  write_file(file(), sound);
  write_file(file() + "-wal", log);
  const Json report = salvage(0);
  EXPECT_EQ(report["page_size"], kPageSize);
  EXPECT_EQ(new_rows("select content from t_message where id=5"), Rows{"in the log"});
  EXPECT_EQ(new_rows("select count(*) from t_message"), Rows{"1495"});
}

TEST_F(SalvageTest, LossesAreUnknownIfTheLogIsTruncated) {
  const std::string log = log_of(file(),
                                 "update t_message set content='first' where id=5;"
                                 "update t_message set content=content||'x'");
  for (const std::size_t size : {std::size_t{31}, log.size() - 1}) {
    SCOPED_TRACE(size);
    write_file(file() + "-wal", log.substr(0, size));
    const Json report = salvage(1);
    EXPECT_EQ(report["log"]["cut"], true);
    EXPECT_EQ(report["tables"]["t_message"]["lost_at_most"], nullptr);
    EXPECT_EQ(new_rows("select count(*) from t_message"), Rows{"1495"});
  }
  std::filesystem::remove_all(salvaged);
  const std::string text = run({"salvage", store(), salvaged}).out;
  EXPECT_NE(text.find(" pages of the log were used; the rest belong to no complete commit\n"),
            std::string::npos);
  EXPECT_NE(text.find("\nthe log is cut off: "), std::string::npos) << text;

  // A log that ends with a whole frame does not show that something is missing.
  write_file(file() + "-wal", log.substr(0, log.size() - kPageSize - 24));
  const Json report = salvage(0);
  EXPECT_EQ(report["log"]["cut"], false);
  EXPECT_LT(report["log"]["used"], report["log"]["pages"]);
  write_file(file() + "-wal", "");
  EXPECT_EQ(salvage(0)["log"]["cut"], false);
}

TEST_F(SalvageTest, NoticesTheLogOfAnotherStore) {
  const Rows own = rows("select * from t_message");
  const std::string other = folder.file("other");
  const std::string many =
      "insert into t_message(session_id,content) with recursive n(i) as (select 1 union all "
      "select i+1 from n where i<400) select 'room','another store' from n";
  // A smaller store, then one of the same size with other ids.
  for (const char* sql :
       {"delete from t_message; vacuum", "update t_message set id=id+5000; vacuum"}) {
    SCOPED_TRACE(sql);
    write_file(other, sound);
    corvan_test::plant(other, sql);
    const std::string log = log_of(other, many);
    write_file(file(), sound);
    write_file(file() + "-wal", log);
    EXPECT_EQ(salvage(1)["log"]["fits"], false);
    std::filesystem::remove_all(salvaged);
    EXPECT_NE(run({"salvage", store(), salvaged}).out.find("also try --without-log"),
              std::string::npos);
    const Json report = salvage(0, {"--without-log"});
    EXPECT_EQ(report["log"]["read"], false);
    EXPECT_EQ(new_rows("select * from t_message"), own);
  }
}

TEST_F(SalvageTest, AcceptsALogThatShrinksTheFile) {
  plant("delete from t_message where id>300");
  sound = read_file(file());
  write_file(file() + "-wal", log_of(file(), "vacuum"));
  write_file(file(), sound);
  const Json report = salvage(0);
  EXPECT_EQ(report["log"]["fits"], true);
  EXPECT_LT(report["pages"], sound.size() / kPageSize);
}

TEST_F(SalvageTest, ReadsALogWithoutItsFile) {
  const std::string log = log_of(file(), "vacuum");
  std::filesystem::remove(file());
  write_file(file() + "-wal", log);
  const Json report = salvage(0);
  EXPECT_EQ(report["tables"]["t_message"]["recovered"], 1495);
  EXPECT_EQ(new_rows("select count(*) from t_message"), Rows{"1495"});
  expect_equal_messages();
  EXPECT_EQ(run({"salvage", store(), salvaged + "2", "--without-log"}).status, 2);

  const Outcome outcome = run({"salvage", file() + "-wal", salvaged + "2"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err,
            "corvan: " + std::filesystem::canonical(file() + "-wal").generic_u8string() +
                ": this is a write-ahead log; name the file next to it instead, "
                "without -wal, even if that file is gone\n");
}

}  // namespace
}  // namespace corvan_test
