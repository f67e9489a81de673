// Stores that another program has altered: tables and columns take the names that SQLite or the
// tool has for something else.

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/export_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {
namespace {

constexpr const char* kNoRowIds =
    " has no row ids that SQL can name: it is WITHOUT ROWID, or has columns named rowid, _rowid_ "
    "and oid; in a copy of the store, rename one of these columns or make the table anew with row ids";

class ForeignSchemaTest : public ExportSample {
 protected:
  ForeignSchemaTest() { import_sample(); }

  // Replaces a part of the statement that makes a table, which keeps its rows.
  void change_table(const std::string& table, const std::string& part, const std::string& with) {
    const std::string sql = rows("select sql from sqlite_master where name='" + table + "'")[0];
    const std::size_t at = sql.find(part);
    ASSERT_NE(at, std::string::npos) << sql;
    std::string changed = sql;
    changed.replace(at, part.size(), with);
    for (std::size_t quote = 0; (quote = changed.find('\'', quote)) != std::string::npos;) {
      changed.insert(quote, 1, '\'');
      quote += 2;
    }
    plant("pragma writable_schema=on;update sqlite_master set sql='" + changed + "' where name='" +
          table + "'");
  }

  // Makes a table anew from its statement with a part replaced, and copies the named columns.
  void rebuild(const std::string& table, const std::string& columns, const std::string& part,
               const std::string& with) {
    std::string sql = rows("select sql from sqlite_master where name='" + table + "'")[0];
    const std::size_t at = sql.find(part);
    ASSERT_NE(at, std::string::npos) << sql;
    sql.replace(at, part.size(), with);
    plant("alter table " + table + " rename to old_rows;" + sql + ";insert into " + table + "(" +
          columns + ") select " + columns + " from old_rows;drop table old_rows");
  }

  std::vector<std::string> html() {
    const std::string place = folder.file("pages");
    output({"export", store(), "--format", "html", "--output", place});
    std::vector<std::string> texts = {read_file(place + "/index.html")};
    for (const char* page : {"1", "2", "3"}) {
      texts.push_back(read_file(place + "/pages/0000" + page + ".html"));
    }
    std::filesystem::remove_all(place);
    return texts;
  }

  // The records of an export but for its header's time, and what it says on standard error.
  std::vector<Json> records(std::string& said) {
    const Outcome outcome = run({"export", store(), "--format", "jsonl"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    said = outcome.err;
    std::vector<Json> all = lines(outcome.out);
    if (!all.empty()) all[0].erase("export_time");
    return all;
  }

  // The findings of these codes, in the whole.
  std::vector<Json> findings(const std::vector<std::string>& codes) {
    std::vector<Json> result;
    const Json all = Json::parse(run({"verify", store(), "--json"}).out);
    for (const Json& finding : all["findings"]) {
      for (const std::string& code : codes) {
        if (finding["code"] == code) result.push_back(finding);
      }
    }
    return result;
  }
};

// What shadows SQLite's row ids, as columns of t_session.
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

TEST_F(ForeignSchemaTest, RepairChangesTheRowOfItsFindingAlone) {
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
    // A chat room's counter goes down to what may count.
    Rows expected = right;
    expected[1] = "room|3|2|0|4|1700000004000";
    EXPECT_EQ(rows(counters), expected);
    std::filesystem::remove_all(folder.file("backup"));
    write_file(file(), before);
  }
}

TEST_F(ForeignSchemaTest, RepairWithoutRowIdsChangesNothing) {
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
  EXPECT_EQ(run({"verify", store()}).status, 1) << "looking needs no row ids";
  EXPECT_EQ(findings({"counter-unread"}).size(), 1U);
  EXPECT_EQ(findings({"rows-unread"}).size(), 0U);
}

TEST_F(ForeignSchemaTest, ColumnsOfRowIdNamesChangeNoExport) {
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
      EXPECT_EQ(
          said.find("corvan: " + file() +
                    ": left out, since it is no part of a message store: column " + table + "."),
          0U)
          << said;
      write_file(file(), before);
    }
  }
}

TEST_F(ForeignSchemaTest, ExportsThatNeedRowIdsAreRefusedWithoutThem) {
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

TEST_F(ForeignSchemaTest, TablesWithoutRowIdsAreRefusedOrRead) {
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

TEST_F(ForeignSchemaTest, EachExportNeedsTheRowIdsOfSomeTables) {
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

// A file's own tables and views come before the tables and functions that SQLite offers.
TEST_F(ForeignSchemaTest, TablesNamedLikeSqlitesOwnMisleadNothing) {
  std::string said;
  const std::vector<Json> as_jsonl = records(said);
  const std::vector<std::string> as_html = html();
  const auto sizes = [this] {
    Json result;
    const Json stats = json({"stats", store(), "--json"});
    for (const Json& table : stats["tables"]) {
      if (table["name"].get<std::string>().rfind("t_", 0) == 0) result.push_back(table);
    }
    return result;
  };
  const Json before = sizes();
  plant(
      "create table dbstat(name,pgsize,schema);insert into dbstat values('t_message',77,'main');"
      "create view pragma_table_info as select 'gone' as name;"
      "create table pragma_table_xinfo(name);create table pragma_index_list(name);"
      "create table pragma_index_info(name);create table json_each(value);"
      "create table sqlite(name);create table \"temp.dbstat\"(name,pgsize)");
  EXPECT_EQ(records(said), as_jsonl);
  EXPECT_NE(said.find("table dbstat, "), std::string::npos) << said;
  EXPECT_NE(said.find("view pragma_table_info"), std::string::npos) << said;
  EXPECT_EQ(html(), as_html);
  EXPECT_EQ(run({"export", store(), "--format", "csv"}).status, 0);
  EXPECT_EQ(sizes(), before);
  EXPECT_EQ(findings({"table-differs", "rows-unread"}).size(), 0U);
  plant("drop index t_session_list");
  const Json made = json({"index", store(), "--json"});
  EXPECT_EQ(made["created"][0]["bytes"], 4096);
}

TEST_F(ForeignSchemaTest, LettersCaseMakesNoOtherColumn) {
  plant(
      "update t_session set is_top='x',unread_count='many' where session_type=2;"
      "update t_message set sent_time='late',is_mention=x'01' where id=3;"
      "insert into t_sync values('me','then',1)");
  const std::vector<std::string> codes = {"column-type", "not-judged", "counter-unread",
                                          "counter-untold"};
  const std::vector<Json> before = findings(codes);
  ASSERT_GE(before.size(), 2U);
  std::string said;
  const std::vector<Json> as_jsonl = records(said);
  change_table("t_session", "is_top", "Is_Top");
  change_table("t_session", "unread_count", "UNREAD_COUNT");
  change_table("t_message", "sent_time", "Sent_Time");
  change_table("t_message", "is_mention", "IS_MENTION");
  change_table("t_sync", "receive_time", "Receive_time");
  EXPECT_EQ(findings(codes), before);
  EXPECT_EQ(records(said), as_jsonl);
  EXPECT_EQ(said, "");
}

TEST_F(ForeignSchemaTest, LettersCaseMakesNoOtherTable) {
  std::string said;
  const std::vector<Json> before = records(said);
  const std::vector<std::string> as_html = html();
  const Json verified = Json::parse(run({"verify", store(), "--json"}).out)["findings"];
  for (const auto& [name, changed] :
       std::vector<std::pair<std::string, std::string>>{{"t_message", "T_Message"},
                                                        {"t_session", "T_SESSION"},
                                                        {"t_sync", "T_sync"},
                                                        {"t_version", "t_Version"}}) {
    change_table(name, name, changed);
    plant("pragma writable_schema=on;update sqlite_master set tbl_name='" + changed +
          "',name=iif(type='table','" + changed + "',name) where tbl_name='" + name + "'");
  }
  plant("update sqlite_sequence set name='T_Message'");
  std::vector<Json> after = records(said);
  for (Json& record : after) {
    if (record["type"] == "sequence") record["name"] = "t_message";
  }
  EXPECT_EQ(after, before);
  EXPECT_EQ(said, "");
  EXPECT_EQ(html(), as_html);
  EXPECT_EQ(Json::parse(run({"verify", store(), "--json"}).out)["findings"], verified);
  import(line({{ "content", "new" }}));
  EXPECT_EQ(rows("select name,seq from sqlite_sequence"), Rows{"T_Message|7"});
  plant("update sqlite_sequence set name='t_message'");
  EXPECT_EQ(findings({"sequence-behind"}).size(), 1U) << "SQLite does not find that row";
  EXPECT_EQ(run({"verify", store(), "--repair", "sequence"}).status, 0);
  EXPECT_EQ(rows("select name,seq from sqlite_sequence"), Rows{"T_Message|7"});
}

TEST_F(ForeignSchemaTest, ColumnsThatTheExportLeavesOutAreNamed) {
  std::string said;
  const std::vector<Json> before = records(said);
  plant(
      "alter table t_session add column type text default 'end';"
      "alter table t_message add column rowid integer default 5;"
      "alter table t_message add column \"type\" text default 'session';"
      "alter table t_message add column \"a\"\"b'c\" text default 'x';"
      "alter table t_message add column \"format\" integer as (7);"
      "alter table t_sync add column \"\x1b[2J\" integer");
  EXPECT_EQ(records(said), before);
  EXPECT_EQ(said, "corvan: " + file() +
                      ": left out, since it is no part of a message store: "
                      "column t_sync.\\x1b[2J, column t_session.type, column t_message.rowid, "
                      "column t_message.type, column t_message.a\"b'c, column t_message.format\n");
}

TEST_F(ForeignSchemaTest, AGeneratedColumnOfTheStoreIsExportedAndRestored) {
  rebuild("t_message",
          "id,session_id,session_type,object_name,sender,direction,sent_status,read_status,"
          "is_mention,sent_time,client_uid,server_uid",
          "content text default ''", "content text generated always as (sender||'!')");
  std::string said;
  const std::vector<Json> all = records(said);
  EXPECT_NE(said.find("t_message has no column content text"), std::string::npos) << said;
  for (const Json& record : all) {
    if (record["type"] == "message") {
      EXPECT_EQ(record["content"], "u01!");
    }
  }
  const std::string text = run({"export", store(), "--format", "jsonl"}).out;
  EXPECT_EQ(run({"restore", "-", folder.file("restored")}, text).status, 0);
  EXPECT_EQ(corvan_test::rows(folder.file("restored") + "/corvan", "select content from t_message"),
            Rows(6, "u01!"));
  EXPECT_EQ(findings({"rows-unread"}).size(), 0U);
}

TEST_F(ForeignSchemaTest, MessagesWithOtherIdsAreLookedAt) {
  plant("update t_message set server_uid='same'");
  plant(
      "create table other as select * from t_message;drop table t_message;"
      "alter table other rename to t_message;"
      "update t_message set id='first' where id=1;update t_message set id=null where id=2");
  const Outcome outcome = run({"verify", store()});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(findings({"server-uid-twice"}).size(), 1U);
}

TEST_F(ForeignSchemaTest, TheVersionIsReadByItsName) {
  plant(
      "create table other(app text default 'mail',database_version text);"
      "insert into other(database_version) select * from t_version;drop table t_version;"
      "alter table other rename to t_version");
  EXPECT_EQ(findings({"version-other"}).size(), 0U);
  plant("alter table t_version rename column database_version to release");
  EXPECT_EQ(findings({"table-differs"}).size(), 1U);
}

TEST_F(ForeignSchemaTest, AViewIsNoTableOfAStore) {
  plant("alter table t_session rename to other;create view t_session as select * from other");
  for (const Arguments& arguments : std::vector<Arguments>{
           {"verify", store(), "--repair", "counters"}, {"export", store(), "--format", "jsonl"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + file() + ": a database, but not a message store\n");
  }
}

}  // namespace
}  // namespace corvan_test
