// Findings about the file and its schema.

#include <string>
#include <vector>

#include "tests/tools/verify_fixture.h"

namespace corvan_test {
namespace {

TEST_F(VerifyTest, FindsWrongSchema) {
  expect_findings({
      {"create trigger t after delete on t_sync begin select 1; end", "schema-extra", "impossible",
       "trigger t", "CREATE TRIGGER t after delete on t_sync begin select 1; end"},
      {"alter table t_sync add column more text", "table-differs", "impossible", "t_sync",
       Json::array({"column more text"}), Json::array()},
      {"delete from t_version", "version-missing", "allowed", "t_version", nullptr, "1"},
      {"insert into t_version values('1')", "version-twice", "impossible", "t_version",
       Json::array({"1", "1"})},
      {"update t_version set database_version='9'", "version-other", "impossible",
       "database_version", "9", "1"},
      {"pragma user_version=0", "setting-other", "impossible", "user_version", 0, 1},
      {"pragma journal_mode=delete", "journal-mode", "allowed", "journal_mode", "delete", "wal"},
      {"pragma journal_mode=delete;pragma page_size=8192;vacuum;pragma journal_mode=wal",
       "setting-other", "impossible", "page_size", "8192", "4096"},
      {"update sqlite_sequence set seq=2", "sequence-behind", "impossible", "sqlite_sequence", 2, 6,
       "sequence"},
      {"delete from sqlite_sequence", "sequence-behind", "impossible", "sqlite_sequence", nullptr,
       6, "sequence"},
      {"insert into sqlite_sequence values('t_message',500)", "sequence-behind", "impossible",
       "sqlite_sequence", Json::array({6, 500}), 500, "sequence"},
      {"pragma user_version=4", "user-version", "allowed", "user_version", 4, 1},
      {"create index t_sync_old on t_sync(sent_time)", "index-older", "allowed", "t_sync_old",
       "CREATE INDEX t_sync_old on t_sync(sent_time)", nullptr, "indexes"},
      {"create table more(a)", "table-extra", "note", "more", nullptr},
      {"create index mine on t_sync(sent_time)", "index-extra", "note", "mine",
       "CREATE INDEX mine on t_sync(sent_time)"},
  });
}

TEST_F(VerifyTest, ReportsDamagedFileAndRefusesRepair) {
  import_sample();
  const std::string clean = read_file(file());
  const int page =
      std::stoi(rows("select rootpage from sqlite_master where name='t_message_server_uid'").at(0));
  std::string broken = clean;
  broken.replace(static_cast<std::size_t>(page - 1) * 4096, 4096, 4096, '\x5a');
  write_file(file(), broken);
  const Json report = verify(1);
  EXPECT_EQ(report["damaged"], true);
  EXPECT_EQ(finding(report, "file-damaged")["class"], "impossible");
  EXPECT_EQ(report["messages"], 6);
  const Outcome outcome = run({"verify", store()});
  EXPECT_NE(outcome.out.find("; the file is damaged: see 'corvan salvage'\n"), std::string::npos);
  expect_refused({}, file() +
                         ": damaged; nothing was changed; 'corvan salvage' recovers what can "
                         "be read");
  EXPECT_EQ(read_file(file()), broken);

  // Checks that depend on unreadable rows are skipped.
  const int table = std::stoi(corvan_test::rows(write("sound", clean),
                                                "select rootpage from sqlite_master "
                                                "where name='t_message'")
                                  .at(0));
  broken = clean;
  broken.replace(static_cast<std::size_t>(table - 1) * 4096, 4096, 4096, '\x5a');
  write_file(file(), broken);
  const Json rest = verify(1);
  EXPECT_EQ(rest["complete"], false);
  EXPECT_EQ(rest["sessions"], 3);
  EXPECT_EQ(codes(rest), (Rows{"file-damaged", "rows-unread"}));

  write_file(file(), "no database at all, but long enough to be taken for one by its size" +
                         std::string(600, 'x'));
  const Json not_one = verify(1);
  EXPECT_EQ(not_one["complete"], false);
  EXPECT_EQ(codes(not_one), Rows{"file-damaged"});
}

TEST_F(VerifyTest, RefusesOtherFiles) {
  const auto expect_error = [this](const std::string& error) {
    for (const Arguments& more : std::vector<Arguments>{{}, {"--repair", "times"}}) {
      Arguments arguments = {"verify", store()};
      arguments.insert(arguments.end(), more.begin(), more.end());
      const Outcome outcome = run(arguments);
      EXPECT_EQ(outcome.status, 2);
      EXPECT_EQ(outcome.err, "corvan: " + file() + ": " + error + "\n");
      EXPECT_EQ(outcome.out, "");
    }
  };
  expect_error("no store here; name the folder that holds the file \"corvan\"");
  std::filesystem::create_directory(store());
  write_file(file(), "");
  expect_error("an empty file, not a message store");
  plant("create table other(a)");
  expect_error("a database, but not a message store");
}

}  // namespace
}  // namespace corvan_test
