// Stores whose tables have columns with the names of row ids, or have no row ids.

#include <filesystem>
#include <string>
#include <vector>

#include "tests/tools/foreign_schema_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {
namespace {

constexpr const char* kNoRowIds =
    " has no row ids that SQL can name: it is WITHOUT ROWID, or has columns named rowid, _rowid_ "
    "and oid; in a copy of the store, rename one of these columns or recreate the table with row ids";

class RowIdsTest : public ForeignSchemaSample {};

// Columns of t_session that hide the row ids of SQLite.
const std::vector<std::string>& shadows() {
  static const std::vector<std::string> all = {
      "alter table t_session add column rowid integer default 1",
      "alter table t_session add column RowID integer default 1",
      "alter table t_session add column \"rowid\" integer as (1)",
      R"(alter table t_session add column rowid integer default 2;
         alter table t_session add column _ROWID_ integer default 2)",
      R"(alter table t_session add column rowid text default '3';
         alter table t_session add column oid text default '3')"};
  return all;
}

TEST_F(RowIdsTest, RepairChangesOnlyTheRowOfItsFinding) {
  for (const std::string& shadow : shadows()) {
    SCOPED_TRACE(shadow);
    const std::string before = read_file(file());
    const std::string counters =
        "select session_id,session_type,unread_count,mention_count,latest_id,session_time "
        "from t_session order by 1,2";
    const Rows right = rows(counters);
    plant(shadow);
    plant("update t_session set unread_count=41,latest_id=99 where session_type=3");
    const Outcome outcome =
        run({"verify", store(), "--repair", "counters,latest", "--backup", folder.file("backup")});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    // The counter of a chat room is repaired to the largest possible value.
    Rows expected = right;
    expected[1] = "room|3|2|0|4|1700000004000";
    EXPECT_EQ(rows(counters), expected);
    std::filesystem::remove_all(folder.file("backup"));
    write_file(file(), before);
  }
}

TEST_F(RowIdsTest, RepairWithoutRowIdsChangesNothing) {
  plant(
      "alter table t_session add column rowid integer default 1;"
      "alter table t_session add column Oid integer default 1;"
      "alter table t_session add column _rowid_ integer default 1;"
      "update t_session set unread_count=41 where session_type=3");
  const Listing before = listing(store());
  const Rows around = names_like("");
  for (const char* how : {"--dry-run", "--json"}) {
    const Outcome outcome = run({"verify", store(), "--repair", "counters", how});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              "corvan: " + file() + ": nothing was changed; table t_session" + kNoRowIds + "\n");
    EXPECT_EQ(listing(store()), before);
    EXPECT_EQ(names_like(""), around);
  }
  EXPECT_EQ(run({"verify", store()}).status, 1) << "checks need no row ids";
  EXPECT_EQ(findings({"counter-unread"}).size(), 1U);
  EXPECT_EQ(findings({"rows-unread"}).size(), 0U);
}

TEST_F(RowIdsTest, ColumnsNamedLikeRowIdsDoNotAffectExports) {
  plant(
      "delete from t_session where session_id='u02';"
      "update t_session set rowid=rowid+10");
  std::string said;
  const std::vector<Json> as_jsonl = records(said);
  EXPECT_EQ(said, "");
  const std::vector<std::string> as_html = html();
  const std::string as_csv = output({"export", store(), "--format", "csv"});
  for (const std::string& shadow : shadows()) {
    for (const char* table : {"t_session", "t_message", "t_version"}) {
      SCOPED_TRACE(shadow + " of " + table);
      const std::string before = read_file(file());
      std::string sql = shadow;
      for (std::size_t at = 0; (at = sql.find("t_session", at)) != std::string::npos; ++at) {
        sql.replace(at, 9, table);
      }
      plant(sql);
      EXPECT_EQ(html(), as_html);
      EXPECT_EQ(output({"export", store(), "--format", "csv"}), as_csv);
      EXPECT_EQ(records(said), as_jsonl);
      EXPECT_EQ(said.find("corvan: " + file() + ": left out, not part of a message store: column " +
                          table + "."),
                0U)
          << said;
      write_file(file(), before);
    }
  }
}

TEST_F(RowIdsTest, RejectsExportsThatNeedMissingRowIds) {
  plant(
      "alter table t_session add column rowid integer;"
      "alter table t_session add column oid integer;"
      "alter table t_session add column _rowid_ integer");
  const std::string why =
      file() + ": table t_session" + kNoRowIds + "; --format csv does without row ids\n";
  expect_refused({"--format", "jsonl"}, why);
  expect_refused({"--format", "html", "--output", folder.file("out")}, why);
  EXPECT_EQ(run({"export", store(), "--format", "csv"}).status, 0);
}

TEST_F(RowIdsTest, ReadsTablesWithoutRowIdsWherePossible) {
  const std::string csv = output({"export", store(), "--format", "csv"});
  plant(
      "create table other(session_id text,session_type integer,title text default '',"
      "draft text default '',is_top integer default 0,session_time integer default 0,"
      "unread_count integer default 0,mention_count integer default 0,silence integer default 0,"
      "latest_id integer default 0,read_time integer default 0,receipt_time integer default 0,"
      "oid integer,primary key(session_id,session_type)) without rowid;"
      "insert into other select *,1 from t_session;drop table t_session;"
      "alter table other rename to t_session;"
      "update t_session set unread_count=41 where session_type=2");
  const std::string why = file() + ": table t_session" + kNoRowIds;
  expect_refused({"--format", "jsonl"}, why + "; --format csv does without row ids\n");
  expect_refused({"--format", "html", "--output", folder.file("out")},
                 why + "; --format csv does without row ids\n");
  EXPECT_EQ(output({"export", store(), "--format", "csv"}), csv);
  EXPECT_EQ(findings({"counter-unread"}).size(), 1U);
  const Listing before = listing(store());
  const Outcome outcome = run({"verify", store(), "--repair", "counters"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err,
            "corvan: " + file() + ": nothing was changed; table t_session" + kNoRowIds + "\n");
  EXPECT_EQ(listing(store()), before);
}

TEST_F(RowIdsTest, EachExportNeedsTheRowIdsOfSomeTables) {
  const std::string before = read_file(file());
  const std::string html_place = folder.file("out");
  const std::vector<Arguments> exports = {{"--format", "jsonl"},
                                          {"room", "--format", "jsonl"},
                                          {"--format", "html", "--output", html_place},
                                          {"--format", "csv"}};
  const auto refused = [&](const char* table) {
    for (const char* column : {"rowid", "oid", "_rowid_"}) {
      plant(std::string("alter table ") + table + " add column " + column + " integer");
    }
    std::vector<bool> result;
    for (const Arguments& more : exports) {
      Arguments arguments = {"export", store()};
      arguments.insert(arguments.end(), more.begin(), more.end());
      result.push_back(run(arguments).status == 2);
      std::filesystem::remove_all(html_place);
    }
    write_file(file(), before);
    return result;
  };
  EXPECT_EQ(refused("t_version"), (std::vector<bool>{true, true, false, false}));
  EXPECT_EQ(refused("t_sync"), (std::vector<bool>{true, false, false, false}));
  EXPECT_EQ(refused("t_session"), (std::vector<bool>{true, true, true, false}));
  EXPECT_EQ(refused("t_message"), (std::vector<bool>{false, false, true, false}));
}

}  // namespace
}  // namespace corvan_test
