// Every operation on a store that is not open: it fails in its own way, hands nothing to SQLite,
// logs no failure of SQLite and leaves the caller's values alone. The few lines that come before a
// statement are written all the same.

#include <memory>

#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::UpdateValue;

constexpr int64_t kTime = 77;   // what an out-parameter holds before
constexpr int32_t kCount = 78;  // and a counter
const char* const kKept = "kept";
constexpr Corvan::SessionType kGroup = Corvan::CV_GROUP;

class ClosedStore : public StoreTest {
 protected:
  ClosedStore() : everything_(cvrtc::LS_SENSITIVE) {}
  void SetUp() override {
    StoreTest::SetUp();
    save(NewMessage().named("s1"));
    store().close_db();
    before_ = rows("select * from t_message union all select *,0 from t_session");
    take_ledger();
    everything_.take();
  }
  void TearDown() override {
    EXPECT_EQ(take_ledger(), Rows{});
    EXPECT_EQ(everything_.take(), expected_log_);
    EXPECT_EQ(rows("select * from t_message union all select *,0 from t_session"), before_);
    StoreTest::TearDown();
  }

  LogCapture everything_;
  Rows expected_log_;
  Rows before_;
};

TEST_F(ClosedStore, Lifecycle) {
  EXPECT_EQ(store().get_database_version(), "");
  EXPECT_FALSE(store().is_table_exist("t_message"));
  std::string result = kKept;
  EXPECT_FALSE(store().check_integrity(result));
  EXPECT_EQ(result, "not a database file");
  store().createdb_copydata();
  store().clear_sendstatus(true);
  store().close_db();
}

TEST_F(ClosedStore, ReadabilityIsMisuse) {
  EXPECT_EQ(store().is_db_unlocked(""), 21);
  EXPECT_EQ(take_ledger(), Rows{"select type from sqlite_master;"});
}

TEST_F(ClosedStore, Transactions) {
  EXPECT_FALSE(store().start_transaction());
  EXPECT_FALSE(store().commit_transaction());
}

TEST_F(ClosedStore, SyncTimes) {
  int64_t received = kTime;
  int64_t sent = kTime;
  EXPECT_FALSE(store().get_sync_time(&received, &sent));
  EXPECT_EQ(received, kTime);
  EXPECT_EQ(sent, kTime);
}

TEST_F(ClosedStore, SettingASyncTimeWarnsOfTheFailedRead) {
  EXPECT_FALSE(store().set_sync_time(5, true));
  expected_log_ = {
      "3 bool Corvan::CvDbSingleton::set_sync_time(int64_t, bool): "
      "cv;;;get receive time;;;failed"};
}

TEST_F(ClosedStore, SavingMessages) {
  EXPECT_EQ(save(NewMessage().named("s2").client(5)), -1);
  std::vector<std::unique_ptr<MessageResponse>> batch;
  batch.push_back(std::make_unique<MessageResponse>());
  batch[0]->is_store_ = true;
  batch[0]->msg_id_ = -1;
  EXPECT_FALSE(store().save_message(batch));
  EXPECT_EQ(batch[0]->msg_id_, -1);
}

TEST_F(ClosedStore, DuplicateTests) {
  EXPECT_FALSE(store().is_message_exist("s1"));
  int64_t id = kTime;
  std::string uid = kKept;
  EXPECT_FALSE(store().is_message_exist(5, "u01", "room", 2, id, uid));
  EXPECT_EQ(id, kTime);
  EXPECT_EQ(uid, kKept);
  EXPECT_FALSE(store().is_message_exist("room", kGroup, int64_t{0}));
  std::vector<std::string> uids = {kKept};
  EXPECT_FALSE(store().is_message_exist("'s1'", uids));
  EXPECT_EQ(uids, Rows{kKept});
  std::vector<UpdateValue> values(1);
  EXPECT_FALSE(store().is_message_exist(values));
  EXPECT_EQ(values[0].msg_id_, -1);
  store().set_send_time_for_dup_msg(1, 5, "u");
  values[0].msg_id_ = 1;
  store().set_send_time_for_dup_msg(values);
}

TEST_F(ClosedStore, MessageState) {
  store().set_send_time(1, 5, "u", "room", kGroup, 0);
  EXPECT_EQ(store().set_sendtime(1, 5, "u", 0), -1);
  EXPECT_FALSE(store().update_sent_status(1, 2));
  EXPECT_FALSE(store().set_read_status(1, 1));
  EXPECT_FALSE(store().update_message_receipt_status("room", kGroup, 5));
  EXPECT_FALSE(store().set_message_content(1, "c", "k"));
  EXPECT_FALSE(store().common_message_int(1, 2, "update t_message set sent_status=? where id=?"));
  EXPECT_FALSE(store().common_message_text(1, "c", "update t_message set content=? where id=?"));
  int64_t uid = kTime;
  store().get_client_uid("room", kGroup, uid);
  EXPECT_EQ(uid, kTime);
}

TEST_F(ClosedStore, ClientUidOfMessageLogsItsBeginningOnly) {
  int64_t uid = kTime;
  store().get_client_uid(1, uid);
  EXPECT_EQ(uid, kTime);
  expected_log_ = {
      "2 void Corvan::CvDbSingleton::get_client_uid(int64_t, int64_t &): "
      "get_client_uid: begin,msg_id_: 1"};
}

TEST_F(ClosedStore, Deleting) {
  EXPECT_FALSE(store().delete_message(std::vector<int64_t>{1}));
  store().delete_message("room", kGroup, {"s1"});
  EXPECT_FALSE(store().delete_message("room", 2));
  EXPECT_FALSE(store().clear_message("room", kGroup, false));
  EXPECT_FALSE(store().clear_message("room", kGroup, true));
  EXPECT_FALSE(store().clear_message_by_timestamp(500, true));
}

TEST_F(ClosedStore, MessageQueries) {
  MessageResponse message;
  message.msg_id_ = 1;
  message.server_uid_ = "s1";
  EXPECT_FALSE(store().query_message(message, true));
  EXPECT_FALSE(store().get_message_by_id(message));
  EXPECT_FALSE(store().get_message_by_uid(message));
  EXPECT_EQ(message.content_, "");
  std::string id = kKept;
  int32_t type = kCount;
  bool unread = false;
  bool mention = true;
  int64_t time = kTime;
  EXPECT_FALSE(store().get_message_by_id(1, id, type, unread, mention, time));
  EXPECT_EQ(id, kKept);
  EXPECT_EQ(type, kCount);
  EXPECT_FALSE(unread);
  EXPECT_TRUE(mention);
  store().get_max_time(time, kGroup, "room", 2);
  store().get_maxtime(time, kGroup, "room", 2);
  EXPECT_EQ(time, kTime);
  EXPECT_EQ(store().get_max_message_id(kGroup, "room", 2), -1);
  std::vector<MessageResponse> messages;
  EXPECT_FALSE(store().get_mention_message("room", kGroup, messages));
  EXPECT_TRUE(messages.empty());
}

TEST_F(ClosedStore, HistoryLogsItsTextOnly) {
  std::vector<MessageResponse> messages(1);
  EXPECT_FALSE(
      store().get_history_message_by_object_name("room", kGroup, {}, 1, 5, messages, true));
  EXPECT_FALSE(store().get_history_message_by_time("room", kGroup, "", 1, 5, messages, true));
  EXPECT_EQ(messages.size(), 1U);
  const std::string line =
      "2 bool Corvan::CvDbSingleton::get_history_message_by_object_name(const std::string &, "
      "Corvan::SessionType, const std::vector<std::string> &, int64_t, int32_t, "
      "std::vector<Corvan::MessageResponse> &, bool): get_history_message_by_object_name: "
      "select id,content,direction,read_status,sent_time,object_name,sent_status,sender,server_uid "
      "from t_message where session_id=? and session_type=? and sent_time<? "
      "order by sent_time desc limit ?";
  expected_log_ = {line, line};
}

TEST_F(ClosedStore, MatchedMessages) {
  std::vector<MessageResponse> messages;
  EXPECT_FALSE(store().get_matched_message("room", kGroup, 1, 2, 2, messages));
  EXPECT_TRUE(messages.empty());
  EXPECT_EQ(everything_.take().size(), 2U);  // the two texts, as above
}

TEST_F(ClosedStore, ReadState) {
  EXPECT_EQ(store().get_send_time(1), 0);
  int64_t time = kTime;
  store().get_readtime("room", 2, time);
  EXPECT_EQ(time, kTime);
  EXPECT_FALSE(store().update_message_status("room", 2));
}

TEST_F(ClosedStore, ConversationRows) {
  EXPECT_FALSE(store().is_session_exist("room", 2));
  EXPECT_FALSE(store().add_session("new", kGroup, 1, 2, "", 3, 4));
  store().set_session_time("room", kGroup, 999, "", 1, 1, 1, 0);
  store().set_sessiontime(999, 1, "room", kGroup);
  int64_t time = kTime;
  int64_t id = kTime;
  int32_t unread = kCount;
  int32_t mention = kCount;
  store().get_sessiontime("room", 2, time, id, unread, mention);
  EXPECT_EQ(time, kTime);
  EXPECT_EQ(id, kTime);
  EXPECT_EQ(unread, kCount);
  EXPECT_EQ(mention, kCount);
  EXPECT_FALSE(store().set_silence("room", kGroup, 1));
  EXPECT_FALSE(store().get_silence("room", kGroup, unread));
  EXPECT_EQ(unread, kCount);
  std::string draft = kKept;
  EXPECT_FALSE(store().get_message_draft("room", kGroup, draft));
  EXPECT_EQ(draft, kKept);
  EXPECT_FALSE(store().delete_session("room", 2));
  EXPECT_FALSE(store().remove_session("room", kGroup));
  EXPECT_FALSE(store().clear_session({kGroup}));
  EXPECT_FALSE(store().common_session_operation(
      "room", 2, "update t_session set title='t' where session_id=? and session_type=?"));
}

TEST_F(ClosedStore, PinningAndDraftsTakeTheRowForMissing) {
  EXPECT_TRUE(store().set_is_top("room", kGroup, false, true));
  EXPECT_FALSE(store().set_is_top("room", kGroup, true, true));
  EXPECT_TRUE(store().set_message_draft("room", kGroup, ""));
  EXPECT_FALSE(store().set_message_draft("room", kGroup, "d"));
}

TEST_F(ClosedStore, ConversationList) {
  std::vector<SessionInfo> page;
  EXPECT_FALSE(store().get_session_list_by_page({kGroup}, 0, 5, page));
  EXPECT_TRUE(page.empty());
  SessionInfo info;
  info.session_id_ = "room";
  info.session_type_ = 2;
  info.title_ = kKept;
  EXPECT_FALSE(store().get_session(info));
  EXPECT_EQ(info.title_, kKept);
  std::vector<Session> list;
  std::string kinds = "2";
  EXPECT_FALSE(store().load_session(list, kinds, 0, 5, false));
  EXPECT_FALSE(store().load_message(list, "1"));
  EXPECT_FALSE(store().load_distinct_session_with_unread(list, "1"));
  EXPECT_FALSE(store().load_session_with_latestid(list, "1"));
  EXPECT_TRUE(list.empty());
  Session row;
  EXPECT_FALSE(store().load_session(row, "room", 2));
  EXPECT_FALSE(store().load_message(row));
  int64_t id = kTime;
  int64_t time = kTime;
  EXPECT_FALSE(store().get_message_latestid("room", 2, id, time));
  EXPECT_EQ(id, kTime);
  EXPECT_EQ(time, kTime);
  EXPECT_FALSE(store().set_message_latestid("room", 2, 1, 5));
}

TEST_F(ClosedStore, Counters) {
  EXPECT_FALSE(store().set_unread_by_value("room", 2, 1, 0));
  EXPECT_TRUE(store().set_unread_by_value("room", 2, 0, 1));  // nothing to do
  int32_t unread = kCount;
  int32_t mention = kCount;
  EXPECT_FALSE(store().get_unred_mention("room", 2, 0, unread, mention));
  EXPECT_FALSE(store().sync_unread("room", 2, 5));
  EXPECT_FALSE(store().clear_unread("room", kGroup));
  store().set_unread_readtime("room", 2, 5);
  store().set_receipttime("room", 2, 5);
  int64_t time = kTime;
  store().get_receipt_time("room", 2, time);
  store().get_receipttime("room", 2, time);
  EXPECT_EQ(time, kTime);
  EXPECT_FALSE(store().get_total_unread_count(unread));
  EXPECT_FALSE(store().get_unread_count("room", kGroup, unread));
  EXPECT_FALSE(store().get_message_count("room", kGroup, unread));
  EXPECT_FALSE(store().get_cate_unread_count({}, unread, true));
  EXPECT_FALSE(store().get_unread_mention_count({}, unread, mention));
  EXPECT_EQ(unread, kCount);
  EXPECT_EQ(mention, kCount);
}

TEST_F(ClosedStore, StatementLayer) {
  int32_t success = kCount;
  EXPECT_EQ(store().prepare_sql("select 1", success), nullptr);
  EXPECT_EQ(success, -1);
  EXPECT_EQ(store().execute_none_query("select 1"), -1);
  EXPECT_EQ(store().get_pragma("pragma user_version"), -1);
  store().finalize(nullptr);
}

}  // namespace
}  // namespace corvan_test
