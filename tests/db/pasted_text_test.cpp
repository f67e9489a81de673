// SQL text that a peer or a careless caller could choose. It becomes part of the statement: it can
// widen what the statement reads or deletes, and nothing else.

#include <sqlite3.h>

#include <string>
#include <vector>

#include "tests/db/crafted_text.h"

namespace corvan_test {
namespace {

using Corvan::CV_GROUP;
using Corvan::MessageResponse;
using Corvan::Session;

using Uids = std::vector<std::string>;

// ---- Texts that are pasted ----------------------------------------------------------------------

// Whatever the text, a reading statement only reads: no row changes.
class PastedText : public CraftedText {
 protected:
  void SetUp() override {
    CraftedText::SetUp();
    before_ = rows(kEverything);
  }

  void expect_unchanged(const std::string& label) {
    EXPECT_EQ(rows(kEverything), before_) << label;
    EXPECT_FALSE(in_transaction()) << label;
    EXPECT_EQ(open_statements(), 0) << label;
  }

  std::vector<MessageResponse> history_by_kind(const std::string& kind) {
    std::vector<MessageResponse> page;
    store().get_history_message_by_object_name("room", CV_GROUP, {kind}, 0, 20, page, true);
    return page;
  }

  Rows before_;
};

// The ends of the statements that contain SQL text, and what an attacker would put there.
const std::vector<std::string>& written_attempts() {
  static const std::vector<std::string> texts{
      "1);delete from t_message;--",
      "1');delete from t_message;--",
      "';delete from t_message;--",
      "1);drop table t_session;--",
      "1');drop table t_session;--",
      "1');pragma user_version=9;--",
      "1) returning (delete from t_message)--",
      "1') union delete from t_message--",
      "1') union select * from (delete from t_message returning id)--",
      "(with gone as (delete from t_message returning id) select id from gone)",
      "(insert into t_sync values('x',1,1) returning 1)",
      "(update t_session set title='x' returning 1)",
      "1');vacuum;--",
      "1');begin;--",
      "1');attach 'elsewhere' as elsewhere;--",
      "(select load_extension('libm.so'))",
      "(select writefile('elsewhere','x'))",
      "(select fts3_tokenizer('simple',x'0000000000000000'))",
  };
  return texts;
}

TEST_F(PastedText, ReadingStatementNeverWrites) {
  for (const std::string& text : written_attempts()) {
    std::vector<std::string> uids;
    store().is_message_exist(text, uids);
    history_by_kind(text);
    history("room", text);
    store().is_table_exist(text);
    std::vector<Session> list;
    std::string kinds = text;
    store().load_session(list, kinds, 0, 5, false);
    store().load_message(list, text);
    store().load_distinct_session_with_unread(list, text);
    store().load_session_with_latestid(list, text);
    expect_unchanged(text);
  }
  EXPECT_FALSE(file_exists(folder.file("elsewhere")));
}

TEST_F(PastedText, TextThatDoesNotParseChangesNothing) {
  for (const char* text : {"'", "')", "\"", "1,,2", "1)(", "x' y", "/*", "select"}) {
    std::vector<std::string> uids{"kept"};
    EXPECT_FALSE(store().is_message_exist(text, uids)) << text;
    EXPECT_EQ(uids, Uids{"kept"});
    std::vector<Session> list;
    std::string kinds = text;
    EXPECT_FALSE(store().load_session(list, kinds, 0, 5, false)) << text;
    EXPECT_FALSE(store().load_message(list, text)) << text;
    EXPECT_FALSE(store().load_distinct_session_with_unread(list, text)) << text;
    EXPECT_FALSE(store().load_session_with_latestid(list, text)) << text;
    EXPECT_TRUE(list.empty());
    EXPECT_EQ(log.take().size(), 5U) << text;
    expect_unchanged(text);
  }
}

TEST_F(PastedText, UidListCanMatchEveryMessage) {
  std::vector<std::string> uids;
  EXPECT_TRUE(store().is_message_exist("'x') or ('1'='1'", uids));
  EXPECT_EQ(uids, (Uids{"uid1", "uid2", "uid3"}));
  uids.clear();
  EXPECT_TRUE(store().is_message_exist("select server_uid from t_message where id=3", uids));
  EXPECT_EQ(uids, Uids{"uid3"});
}

TEST_F(PastedText, UidListCanReadOtherColumnsAndTables) {
  std::vector<std::string> uids;
  EXPECT_TRUE(store().is_message_exist(
      "'x') union all select content from t_message union all select user_id from t_sync--", uids));
  EXPECT_EQ(uids, (Uids{"first", "second", "third", "me"}));
  expect_unchanged("union");
}

TEST_F(PastedText, KindCanReadOtherKindsAndConversations) {
  EXPECT_EQ(contents(history_by_kind("CV:TxtMsg")), Uids{"first"});
  const std::vector<MessageResponse> page = history_by_kind("x') or ('1'='1");
  EXPECT_EQ(contents(page), (Uids{"third", "second", "first"}));
  for (const MessageResponse& m : page) {
    EXPECT_EQ(m.session_id_, "room");  // the third is in another conversation
    EXPECT_EQ(m.session_type_, CV_GROUP);
  }
  EXPECT_EQ(contents(history("room", "x') or ('1'='1")), (Uids{"third", "second", "first"}));
}

TEST_F(PastedText, KindCanReadOtherTables) {
  EXPECT_EQ(contents(history_by_kind("x') union select 1,user_id,0,0,receive_time,'','','','' "
                                     "from t_sync--")),
            Uids{"me"});
  expect_unchanged("union");
}

TEST_F(PastedText, TableNameCanQueryAnything) {
  EXPECT_FALSE(store().is_table_exist("t_missing"));
  EXPECT_TRUE(store().is_table_exist("' or '1'='1"));
  const std::string first = "' or exists(select 1 from t_message where content like 'thi%')--";
  EXPECT_TRUE(store().is_table_exist(first));  // in this way, each row can be read letter by letter
  const std::string other = "' or exists(select 1 from t_message where content like 'tho%')--";
  EXPECT_FALSE(store().is_table_exist(other));
}

TEST_F(PastedText, UidCanDeleteEverything) {
  store().delete_message("room", CV_GROUP, Uids{"x') or 1=1 --"});
  EXPECT_EQ(rows("select id from t_message"), Rows{});
  EXPECT_EQ(rows("select latest_id from t_session where session_type=2"), Rows{"-1"});
  EXPECT_EQ(rows("select latest_id from t_session where session_type=1"), Rows{"3"});
}

TEST_F(PastedText, UidCanDeleteWhatASubselectFinds) {
  store().delete_message("room", CV_GROUP,
                         Uids{"x') or id in (select latest_id from t_session where title='Secret"});
  EXPECT_EQ(rows("select id from t_message"), (Rows{"1", "2"}));
}

TEST_F(PastedText, UidCannotRunASecondStatement) {
  store().delete_message("room", CV_GROUP, Uids{"uid1'); delete from t_session; --"});
  EXPECT_EQ(rows("select id from t_message order by id"),
            (Rows{"2", "3"}));  // the first statement ran
  EXPECT_EQ(rows("select session_id from t_session order by 1"), (Rows{"room", "secret"}));
}

TEST_F(PastedText, UidThatDoesNotParseDeletesNothing) {
  for (const char* uid : {"'", "uid1') where '1'='1", "uid1') returning", "uid1')) --"}) {
    store().delete_message("room", CV_GROUP, Uids{"uid2", uid});
    EXPECT_EQ(log.take().size(), 1U) << uid;
    expect_unchanged(uid);
  }
}

TEST_F(PastedText, KindsCanListEveryConversation) {
  std::vector<Session> list;
  std::string kinds = "0) or (1";
  EXPECT_TRUE(store().load_session(list, kinds, 0, 5, false));
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].session_id_, "secret");
  EXPECT_EQ(list[1].session_id_, "room");
}

TEST_F(PastedText, IdsCanLoadEveryMessage) {
  for (const char* ids : {"0) or (1", "select id from t_message"}) {
    std::vector<Session> list;
    EXPECT_TRUE(store().load_message(list, ids));
    EXPECT_EQ(list.size(), 3U) << ids;
    list.clear();
    EXPECT_TRUE(store().load_distinct_session_with_unread(list, ids));
    EXPECT_EQ(list.size(), 2U) << ids;
  }
  std::vector<Session> list;
  EXPECT_TRUE(store().load_session_with_latestid(list, "0) or (1"));
  EXPECT_EQ(list.size(), 2U);
  list.clear();
  EXPECT_TRUE(store().load_message(
      list, "0) union select user_id,2,'content','kind','sender',0,0,0,0,'uid' from t_sync--"));
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0].session_id_, "me");
}

// ---- Texts that are whole statements ------------------------------------------------------------

TEST_F(PastedText, AnyWholeStatementRuns) {
  EXPECT_TRUE(store().common_message_int(1, 2, "delete from t_message"));
  EXPECT_EQ(rows("select id from t_message"), Rows{});
  EXPECT_TRUE(store().common_message_text(1, "x", "delete from t_sync"));
  EXPECT_EQ(rows("select user_id from t_sync"), Rows{});
  EXPECT_TRUE(store().common_session_operation("room", 2, "delete from t_session"));
  EXPECT_EQ(rows("select session_id from t_session"), Rows{});
  EXPECT_EQ(store().execute_none_query("drop table t_sync"), SQLITE_DONE);
  EXPECT_EQ(store().get_pragma("insert into t_version values('2') returning 7"), 7);
  EXPECT_EQ(rows("select count(*) from t_version"), Rows{"2"});
}

TEST_F(PastedText, OnlyTheFirstWholeStatementRuns) {
  const std::string two = "update t_message set read_status=read_status; delete from t_message";
  EXPECT_TRUE(store().common_message_int(1, 2, two));
  EXPECT_TRUE(store().common_message_text(1, "x", two));
  EXPECT_TRUE(store().common_session_operation("room", 2, two));
  EXPECT_EQ(store().execute_none_query(two), SQLITE_DONE);
  EXPECT_EQ(store().get_pragma("pragma user_version; delete from t_message"), 1);
  expect_unchanged(two);
}

TEST_F(PastedText, WholeStatementsThatReturnRowsFail) {
  const std::string reading = "select 1 from t_message where id=? or id<>?";
  EXPECT_FALSE(store().common_message_int(1, 2, reading));
  EXPECT_FALSE(store().common_message_text(1, "x", reading));
  EXPECT_FALSE(store().common_session_operation("room", 2, reading));
}

TEST_F(PastedText, ArgumentsWithoutAParameterAreIgnored) {
  EXPECT_TRUE(store().common_message_int(1, 2, "update t_message set sent_status=?"));
  EXPECT_EQ(rows("select distinct sent_status from t_message"), Rows{"2"});
  EXPECT_EQ(log.take(), Rows{});
}

using PastedTextDeath = PastedText;

TEST_F(PastedTextDeath, TextWithoutAStatementAborts) {
  const char* const bind = "Check failed: stmt != nullptr\n# bind stmt nullptr\n";
  const char* const step = "Check failed: stmt != nullptr\n# step stmt nullptr\n";
  for (const char* text : {"", "--", " ;", "-- delete from t_message", "/* nothing */", " \n"}) {
    EXPECT_DEATH(store().execute_none_query(text), step) << text;
    EXPECT_DEATH(store().get_pragma(text), step) << text;
    EXPECT_DEATH(store().common_message_int(1, 2, text), bind) << text;
    EXPECT_DEATH(store().common_message_text(1, "x", text), bind) << text;
    EXPECT_DEATH(store().common_session_operation("room", 2, text), bind) << text;
  }
}

TEST_F(PastedText, TextWithoutAStatementIsPreparedToNull) {
  for (const char* text : {"", "--", " ;", "/* nothing */", "\xef\xbb\xbf"}) {
    int32_t rc = 7;
    EXPECT_EQ(store().prepare_sql(text, rc), nullptr) << text;
    EXPECT_EQ(rc, SQLITE_OK) << text;
  }
  EXPECT_EQ(log.take(), Rows{});
}

// ---- Texts of an older store's schema -----------------------------------------------------------

class OlderStore : public PastedText {
 protected:
  void attach() {
    ASSERT_EQ(store().execute_none_query("attach '" + old_ + "' as odb"), SQLITE_DONE);
  }
  void copy() {
    attach();
    store().createdb_copydata();
    ASSERT_EQ(store().execute_none_query("detach odb"), SQLITE_DONE);
  }

  const std::string old_ = folder.file("old");
};

TEST_F(OlderStore, NamesWithQuotesAreCopied) {
  corvan_test::plant(old_, "create table \"it's; drop table t_sync;--\"(a default 'x''y')");
  copy();
  EXPECT_EQ(rows("select name from sqlite_master where name like 'it%'"),
            Rows{"it's; drop table t_sync;--"});
  EXPECT_EQ(rows("select user_id from t_sync"), Rows{"me"});
  log.take();  // the tables that this older store does not have
}

// Triggers are skipped by their type; SQLite rejects a file that calls a trigger a table.
TEST_F(OlderStore, AttachingRefusesATriggerDisguisedAsATable) {
  corvan_test::plant(old_,
                     "create table t_sync(user_id text primary key,a integer,b integer);"
                     "create trigger gift after insert on t_sync begin delete from t_message; end;"
                     "pragma writable_schema=on;"
                     "update sqlite_master set type='table' where name='gift'");
  EXPECT_EQ(store().execute_none_query("attach '" + old_ + "' as odb"), SQLITE_CORRUPT);
  EXPECT_FALSE(log.take().empty());
  expect_unchanged("attach");
}

// Indexes are copied as well. With one that this schema does not have, copied rows replace others,
// and later saves fail.
TEST_F(OlderStore, CopiedUniqueIndexRefusesMessages) {
  corvan_test::plant(old_,
                     "create table t_message(id integer primary key,a,b,c,d,e,f,g,h,i,j,"
                     "client_uid integer,k);"
                     "create unique index gift on t_message(client_uid);"
                     "insert into t_message values(9,'','','','','','','','','','',1,'')");
  copy();
  EXPECT_EQ(rows("select id from t_message order by id"), (Rows{"2", "3", "9"}));
  EXPECT_EQ(save(NewMessage().from("u07").client(3)), -1);
  log.take();
}

TEST_F(OlderStore, SecondStatementOfASchemaTextDoesNotRun) {
  corvan_test::plant(
      old_,
      "create table t_gift(a);"
      "pragma writable_schema=on;"
      "update sqlite_master set sql='create table t_gift(a); delete from t_message'");
  copy();
  EXPECT_EQ(rows("select name from sqlite_master where name='t_gift'"), Rows{"t_gift"});
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"3"});
  log.take();
}

TEST_F(OlderStore, AttachingRefusesASchemaTextThatSqliteCannotRead) {
  corvan_test::plant(old_,
                     "create table t_gift(a);"
                     "pragma writable_schema=on;"
                     "update sqlite_master set sql='delete from t_message'");
  EXPECT_EQ(store().execute_none_query("attach '" + old_ + "' as odb"), SQLITE_CORRUPT);
  EXPECT_FALSE(log.take().empty());
  expect_unchanged("attach");
  EXPECT_TRUE(file_exists(file()));
}

// If SQLite finds damage in either file while it prepares a statement, the store's own file is
// deleted.
TEST_F(OlderStore, DamageOfTheAttachedSchemaDeletesTheStoresOwnFile) {
  corvan_test::plant(old_, "create table t_gift(a)");
  attach();
  corvan_test::plant(old_,
                     "pragma writable_schema=on; update sqlite_master set sql='nothing';"
                     "pragma schema_version=99");
  store().createdb_copydata();
  EXPECT_FALSE(file_exists(file()));
  EXPECT_TRUE(file_exists(old_));
  EXPECT_EQ(store().get_pragma("select 1"), -1);
  log.take();
}

}  // namespace
}  // namespace corvan_test
