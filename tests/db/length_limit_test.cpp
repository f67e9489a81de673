// Texts longer than SQLite's limit. Such a text is not bound at all: the statement runs with NULL
// instead.

#include <sqlite3.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/db/crafted_text.h"
#include "tests/support/failures.h"

namespace corvan_test {
namespace {

using Corvan::CV_GROUP;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::UpdateValue;

using Uids = std::vector<std::string>;

constexpr int kLimit = 1000;

// The store's connection accepts no text longer than kLimit.
class LengthLimit : public CraftedText {
 protected:
  void SetUp() override {
    CraftedText::SetUp();
    limit(SQLITE_LIMIT_LENGTH, kLimit);
  }

  void limit(int which, int value) {
    int32_t rc = 0;
    sqlite3_stmt* const stmt = store().prepare_sql("select 1", rc);
    sqlite3_limit(sqlite3_db_handle(stmt), which, value);
    store().finalize(stmt);
  }

  // The rows of a table that the fixture does not have.
  Rows added(const std::string& columns, const std::string& from) const {
    const std::string known = from == "t_message" ? "id>3" : from == "t_session" ? "rowid>2" : "1";
    return rows("select " + columns + " from " + from + " where " + known + " order by rowid");
  }

  const std::string within_ = std::string(kLimit, 'x');
  const std::string over_ = std::string(kLimit + 1, 'x');
  const std::string half_ = std::string(kLimit / 2, 'x');
};

const Rows kTooBig = run_failed(SQLITE_TOOBIG, "string or blob too big");

TEST_F(LengthLimit, TextUpToTheLimitIsBoundAndALongerOneIsNot) {
  int32_t rc = 0;
  sqlite3_stmt* const stmt = store().prepare_sql("select length(?)", rc);
  EXPECT_EQ(Corvan::CvDbSingleton::bind(stmt, 1, within_), SQLITE_OK);
  EXPECT_EQ(Corvan::CvDbSingleton::bind(stmt, 1, over_), SQLITE_TOOBIG);
  EXPECT_EQ(store().step(stmt, false), SQLITE_ROW);
  EXPECT_EQ(sqlite3_column_type(stmt, 0), SQLITE_NULL);  // the value bound before is lost as well
  store().finalize(stmt);
  EXPECT_EQ(log.take(), Rows{});
}

// From here on: silent failures. Each test ends with an empty log.
class SilentLoss : public LengthLimit {
 protected:
  void TearDown() override {
    EXPECT_EQ(log.take(), Rows{});
    LengthLimit::TearDown();
  }
};

TEST_F(SilentLoss, ContentIsSavedAsNull) {
  EXPECT_EQ(save(NewMessage().text(over_)), 4);
  EXPECT_EQ(added("content", "t_message"), Rows{"NULL"});
  MessageResponse m;
  m.msg_id_ = 4;
  EXPECT_TRUE(store().get_message_by_id(m));
  EXPECT_EQ(m.content_, "");
  EXPECT_EQ(contents(history("room"))[1], "");
  SessionInfo info;
  info.session_id_ = "room";
  info.session_type_ = CV_GROUP;
  EXPECT_TRUE(store().get_session(info));
  EXPECT_EQ(info.message_.content_, "");
}

TEST_F(SilentLoss, KindAndSenderAreSavedAsNull) {
  EXPECT_EQ(save(NewMessage().kind(over_)), 4);
  EXPECT_EQ(save(NewMessage().from(over_)), 5);
  EXPECT_EQ(added("object_name,sender", "t_message"), (Rows{"NULL|u01", "CV:TxtMsg|NULL"}));
}

// Neither duplicate test finds the message.
TEST_F(SilentLoss, MessageSavedAgainIsStoredTwice) {
  EXPECT_EQ(save(NewMessage().named(over_)), 4);
  EXPECT_EQ(save(NewMessage().named(over_)), 5);
  EXPECT_EQ(save(NewMessage().client(8).from(over_)), 6);
  EXPECT_EQ(save(NewMessage().client(8).from(over_)), 7);
  EXPECT_EQ(added("server_uid,sender", "t_message"),
            (Rows{"NULL|u01", "NULL|u01", "|NULL", "|NULL"}));
  EXPECT_FALSE(store().is_message_exist(over_));
}

// Each save creates a conversation that only the list finds, not the operations on one
// conversation.
TEST_F(SilentLoss, MessageIsSavedWithoutAConversation) {
  EXPECT_EQ(save(NewMessage().in(over_, CV_GROUP).client(8)), 4);
  EXPECT_EQ(save(NewMessage().in(over_, CV_GROUP).client(8)), 5);
  EXPECT_EQ(added("session_id,client_uid", "t_message"), (Rows{"NULL|8", "NULL|8"}));
  EXPECT_EQ(added("session_id,session_type,unread_count", "t_session"),
            (Rows{"NULL|2|1", "NULL|2|1"}));
  EXPECT_FALSE(store().is_session_exist(over_, CV_GROUP));
  EXPECT_FALSE(store().is_session_exist("", CV_GROUP));
  EXPECT_TRUE(history(over_).empty());
  EXPECT_TRUE(store().delete_session(over_, CV_GROUP));
  EXPECT_TRUE(store().clear_message(over_, CV_GROUP, false));
  EXPECT_EQ(added("session_id", "t_message").size(), 2U);
  int32_t unread = 0;
  EXPECT_TRUE(store().get_total_unread_count(unread));
  EXPECT_EQ(unread, 4);
  std::vector<SessionInfo> list;
  EXPECT_TRUE(store().get_session_list_by_page({CV_GROUP}, 0, 9, list));
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[1].session_id_, "");
  EXPECT_EQ(list[1].message_.content_, "hello");
}

TEST_F(SilentLoss, BatchStoresNullNotTheTextOfThePreviousRecord) {
  std::vector<std::unique_ptr<MessageResponse>> batch;
  for (int i = 0; i < 7; ++i) {
    batch.push_back(std::make_unique<MessageResponse>());
    MessageResponse& m = *batch.back();
    m.session_id_ = m.object_name_ = m.sender_ = m.content_ = m.server_uid_ = "t";
    m.is_store_ = true;
    m.msg_id_ = -1;
  }
  batch[1]->session_id_ = over_;
  batch[2]->object_name_ = over_;
  batch[3]->sender_ = over_;
  batch[4]->content_ = over_;
  batch[5]->server_uid_ = over_;
  EXPECT_TRUE(store().save_message(batch));
  EXPECT_EQ(added("session_id,object_name,sender,content,server_uid", "t_message"),
            (Rows{"t|t|t|t|t", "NULL|t|t|t|t", "t|NULL|t|t|t", "t|t|NULL|t|t", "t|t|t|NULL|t",
                  "t|t|t|t|NULL", "t|t|t|t|t"}));
  EXPECT_EQ(batch[4]->msg_id_, 8);
}

TEST_F(SilentLoss, CompletedMessageLosesItsServerUid) {
  EXPECT_EQ(save(NewMessage().own(8)), 4);
  EXPECT_EQ(save(NewMessage().own(8).named(over_)), 4);
  EXPECT_EQ(added("server_uid", "t_message"), Rows{"NULL"});
  const std::string uids = "select server_uid from t_message where id<4 order by id";
  store().set_send_time_for_dup_msg(1, 900, over_);
  UpdateValue value;
  value.msg_id_ = 2;
  value.server_uid_new_ = over_;
  store().set_send_time_for_dup_msg({value});
  EXPECT_EQ(store().set_sendtime(3, 900, over_, 0), SQLITE_DONE);
  EXPECT_EQ(rows(uids), (Rows{"NULL", "NULL", "NULL"}));
  plant("update t_message set server_uid='u' where id=1");
  store().set_send_time(1, 900, over_, "room", CV_GROUP, 0);
  EXPECT_EQ(rows(uids)[0], "NULL");
}

TEST_F(SilentLoss, ReplacingContentAndKindErasesThem) {
  EXPECT_TRUE(store().set_message_content(1, over_, ""));
  EXPECT_TRUE(store().set_message_content(2, "c", over_));
  EXPECT_TRUE(store().common_message_text(3, over_, "update t_message set content=? where id=?"));
  EXPECT_EQ(rows("select content,object_name from t_message order by id"),
            (Rows{"NULL|CV:TxtMsg", "c|NULL", "NULL|CV:TxtMsg"}));
}

TEST_F(SilentLoss, DraftIsErasedAndMovesTheConversation) {
  EXPECT_TRUE(store().set_message_draft("room", CV_GROUP, over_));
  EXPECT_EQ(rows("select draft,session_time from t_session where session_type=2"),
            Rows{"NULL|1000000"});
}

TEST_F(SilentLoss, ConversationIsCreatedWithoutItsNameOrId) {
  EXPECT_TRUE(store().add_session("new", CV_GROUP, 5, 6, over_, 0, 0));
  EXPECT_TRUE(store().add_session(over_, CV_GROUP, 5, 6, "name", 0, 0));
  EXPECT_TRUE(store().add_session(over_, CV_GROUP, 5, 6, "name", 0, 0));
  EXPECT_TRUE(store().set_is_top(over_, CV_GROUP, true, true));
  EXPECT_TRUE(store().set_is_top(over_, CV_GROUP, true, true));
  EXPECT_EQ(added("session_id,title,is_top", "t_session"),
            (Rows{"new|NULL|0", "NULL|name|0", "NULL|name|0", "NULL||1", "NULL||1"}));
}

TEST_F(SilentLoss, EachSyncTimeIsInsertedAsANewRow) {
  store().close_db();
  ASSERT_TRUE(open(over_));
  limit(SQLITE_LIMIT_LENGTH, kLimit);
  EXPECT_TRUE(store().set_sync_time(7, true));
  EXPECT_TRUE(store().set_sync_time(7, true));
  EXPECT_EQ(rows("select * from t_sync order by rowid"),
            (Rows{"me|10|20", "NULL|7|0", "NULL|7|0"}));
  int64_t received = 77;
  int64_t sent = 78;
  EXPECT_TRUE(store().get_sync_time(&received, &sent));
  EXPECT_EQ(received, 77);
}

// A conversation that was stored under a higher limit: no operation reaches it or reports this.
TEST_F(SilentLoss, WritesToAConversationChangeNothing) {
  plant("insert into t_session(session_id,session_type,unread_count) values('" + over_ + "',2,1);" +
        "insert into t_message(session_id,session_type,direction,sent_time,server_uid) values('" +
        over_ + "',2,1,50,'long')");
  const Rows before = rows(kEverything);
  EXPECT_TRUE(store().update_message_receipt_status(over_, CV_GROUP, 5000));
  EXPECT_TRUE(store().clear_message(over_, CV_GROUP, false));
  EXPECT_TRUE(store().delete_message(over_, CV_GROUP));
  EXPECT_TRUE(store().update_message_status(over_, CV_GROUP));
  EXPECT_TRUE(store().set_is_top(over_, CV_GROUP, false, true));
  EXPECT_TRUE(store().set_message_draft(over_, CV_GROUP, ""));
  EXPECT_TRUE(store().set_silence(over_, CV_GROUP, 3));
  EXPECT_TRUE(store().remove_session(over_, CV_GROUP));
  EXPECT_TRUE(store().delete_session(over_, CV_GROUP));
  EXPECT_TRUE(store().common_session_operation(
      over_, CV_GROUP, "update t_session set title='t' where session_id=? and session_type=?"));
  store().set_session_time(over_, CV_GROUP, 5000, "CV:TxtMsg", 1, 1, 1, 0);
  store().set_sessiontime(5000, 1, over_, CV_GROUP);
  EXPECT_TRUE(store().set_message_latestid(over_, CV_GROUP, 1, 5000));
  EXPECT_TRUE(store().set_unread_by_value(over_, CV_GROUP, 1, 1));
  EXPECT_TRUE(store().sync_unread(over_, CV_GROUP, 5));
  EXPECT_TRUE(store().clear_unread(over_, CV_GROUP));
  store().set_unread_readtime(over_, CV_GROUP, 5);
  store().set_receipttime(over_, CV_GROUP, 5);
  store().delete_message(over_, CV_GROUP, Uids{"none"});
  EXPECT_EQ(rows(kEverything), before);
}

TEST_F(SilentLoss, ReadsOfAConversationFindNothing) {
  plant("insert into t_session(session_id,session_type,unread_count) values('" + over_ + "',2,1);" +
        "insert into t_message(session_id,session_type,sent_time) values('" + over_ + "',2,50)");
  EXPECT_FALSE(store().is_session_exist(over_, CV_GROUP));
  EXPECT_FALSE(store().is_message_exist(over_, CV_GROUP, int64_t{0}));
  EXPECT_EQ(store().get_max_message_id(CV_GROUP, over_, 2), -1);
  int32_t number = 77;
  EXPECT_TRUE(store().get_unread_count(over_, CV_GROUP, number));
  EXPECT_EQ(number, 77);
  EXPECT_TRUE(store().get_message_count(over_, CV_GROUP, number));
  EXPECT_EQ(number, 0);
  EXPECT_TRUE(history(over_).empty());
}

// ---- Rows and statements over the limit ---------------------------------------------------------

TEST_F(LengthLimit, SaveOfARowOverTheLimitFails) {
  const NewMessage m = NewMessage().text(half_).named(half_);
  EXPECT_EQ(save(m), -1);
  EXPECT_EQ(added("id", "t_message"), Rows{});
  EXPECT_EQ(rows("select unread_count from t_session where session_type=2"), Rows{"1"});
  const Rows written = log.take();
  ASSERT_EQ(written.size(), 3U);
  EXPECT_EQ(Rows(written.begin(), written.begin() + 2), kTooBig);
  EXPECT_NE(written[2].find("cv;;;save_msg;;;step error: 18"), std::string::npos) << written[2];
}

TEST_F(LengthLimit, BatchRecordOverTheLimitReceivesThePreviousId) {
  std::vector<std::unique_ptr<MessageResponse>> batch;
  for (int i = 0; i < 3; ++i) {
    batch.push_back(std::make_unique<MessageResponse>());
    batch.back()->is_store_ = true;
    batch.back()->msg_id_ = -1;
  }
  batch[1]->content_ = batch[1]->server_uid_ = half_;
  EXPECT_TRUE(store().save_message(batch));
  EXPECT_EQ(joined(batch[0]->msg_id_, batch[1]->msg_id_, batch[2]->msg_id_), "4|4|5|");
  EXPECT_EQ(added("id", "t_message"), (Rows{"4", "5"}));
  EXPECT_FALSE(log.take().empty());
}

TEST_F(LengthLimit, ChangeThatMakesARowTooLongFailsAndKeepsTheRow) {
  plant("update t_message set server_uid='" + half_ + "' where id=1;" +
        "update t_session set title='" + half_ + "' where session_type=2");
  const Rows before = rows(kEverything);
  EXPECT_FALSE(store().set_message_content(1, half_, ""));
  EXPECT_EQ(log.take(), kTooBig);
  EXPECT_FALSE(store().set_message_draft("room", CV_GROUP, half_));
  EXPECT_EQ(log.take(), kTooBig);
  EXPECT_EQ(rows(kEverything), before);
}

TEST_F(LengthLimit, StoredTextOverTheLimitIsNotRead) {
  plant("update t_message set content='" + over_ + "' where id=1");
  MessageResponse m;
  m.msg_id_ = 1;
  EXPECT_FALSE(store().get_message_by_id(m));
  EXPECT_EQ(log.take(), kTooBig);
  EXPECT_EQ(contents(history("room")), Uids{"second"});  // the rows read until then
  EXPECT_EQ(log.take(), kTooBig);
}

// The statements that grow with their parameters; all others have fixed lengths.
TEST_F(LengthLimit, StatementOverTheLimitIsNotPrepared) {
  const std::string quoted = "'" + over_ + "'";
  std::vector<int64_t> ids(kLimit, 1);
  std::vector<Session> list;
  std::vector<std::string> uids;
  std::string kinds = over_;
  limit(SQLITE_LIMIT_SQL_LENGTH, kLimit);
  int32_t rc = 0;
  EXPECT_EQ(store().prepare_sql("select " + quoted, rc), nullptr);
  EXPECT_EQ(rc, SQLITE_TOOBIG);
  EXPECT_EQ(store().execute_none_query("select " + quoted), SQLITE_TOOBIG);
  EXPECT_EQ(store().get_pragma("select " + quoted), -1);
  EXPECT_FALSE(store().is_table_exist(over_));
  EXPECT_FALSE(store().is_message_exist(quoted, uids));
  EXPECT_FALSE(store().common_message_int(1, 2, "delete from t_message--" + over_));
  EXPECT_FALSE(store().common_message_text(1, "x", "delete from t_message--" + over_));
  EXPECT_FALSE(store().common_session_operation("room", 2, "delete from t_session--" + over_));
  EXPECT_TRUE(history("room", over_).empty());
  EXPECT_FALSE(store().load_session(list, kinds, 0, 5, false));
  EXPECT_FALSE(store().load_message(list, over_));
  EXPECT_FALSE(store().load_distinct_session_with_unread(list, over_));
  EXPECT_FALSE(store().load_session_with_latestid(list, over_));
  const Rows failed = log.take();
  EXPECT_EQ(failed, Rows(failed.size(), prepare_failed("string or blob too big", SQLITE_TOOBIG)));
  EXPECT_EQ(failed.size(), 13U);

  store().delete_message("room", CV_GROUP, Uids{"uid1", over_});
  EXPECT_EQ(log.take().size(), 1U);
  EXPECT_FALSE(store().delete_message(ids));
  EXPECT_EQ(log.take().size(), 3U);
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"3"});
  EXPECT_EQ(rows("select count(*) from t_session"), Rows{"2"});
}

}  // namespace
}  // namespace corvan_test
