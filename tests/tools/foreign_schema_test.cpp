// Stores that another program has altered: tables and columns have names that SQLite or the tool
// uses for something else.

#include <string>
#include <utility>
#include <vector>

#include "tests/tools/foreign_schema_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {
namespace {

class ForeignSchemaTest : public ForeignSchemaSample {};

// Tables and views of the file hide tables and functions of SQLite with the same name.
TEST_F(ForeignSchemaTest, TablesNamedLikeSqliteTablesDoNoHarm) {
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

TEST_F(ForeignSchemaTest, LetterCaseOfColumnsDoesNotMatter) {
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

TEST_F(ForeignSchemaTest, LetterCaseOfTablesDoesNotMatter) {
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

TEST_F(ForeignSchemaTest, ExportNamesColumnsThatItLeavesOut) {
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
                      ": left out, not part of a message store: "
                      "column t_sync.\\x1b[2J, column t_session.type, column t_message.rowid, "
                      "column t_message.type, column t_message.a\"b'c, column t_message.format\n");
}

TEST_F(ForeignSchemaTest, GeneratedColumnIsExportedAndRestored) {
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

TEST_F(ForeignSchemaTest, VerifyReadsMessagesWithInvalidIds) {
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

TEST_F(ForeignSchemaTest, VersionIsReadByColumnName) {
  plant(
      "create table other(app text default 'mail',database_version text);"
      "insert into other(database_version) select * from t_version;drop table t_version;"
      "alter table other rename to t_version");
  EXPECT_EQ(findings({"version-other"}).size(), 0U);
  plant("alter table t_version rename column database_version to release");
  EXPECT_EQ(findings({"table-differs"}).size(), 1U);
}

TEST_F(ForeignSchemaTest, ViewIsNotATableOfAStore) {
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
