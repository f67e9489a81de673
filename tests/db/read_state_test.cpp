#include "tests/support/failures.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;

using ReadState = StoreTest;

constexpr const char* kReadStates = "select id,read_status,is_mention from t_message order by id";

// Gives the conversation of NewMessage a row with this read time.
std::string read_up_to(int64_t time) {
  return "insert into t_session(session_id,session_type,unread_count,mention_count,read_time) "
         "values('room',2,5,3," +
         std::to_string(time) + ")";
}

// ---- Send time ----------------------------------------------------------------------------------

TEST_F(ReadState, ReadsTheSendTimeOfAMessage) {
  const int64_t id = save(NewMessage().at(4000000000000));
  EXPECT_EQ(store().get_send_time(id), 4000000000000);
}

TEST_F(ReadState, SendTimeOfUnknownMessageIsZero) {
  save(NewMessage());
  EXPECT_EQ(store().get_send_time(2), 0);
}

TEST_F(ReadState, SendTimeOfIdZeroIsZeroWithoutAQuery) {
  plant("insert into t_message(id,sent_time) values(0,100)");
  EXPECT_EQ(store().get_send_time(0), 0);
  EXPECT_EQ(take_ledger(), Rows{});
}

TEST_F(ReadState, SendTimeOfNegativeIdIsZeroWithoutAQuery) {
  plant("insert into t_message(id,sent_time) values(-1,100)");
  EXPECT_EQ(store().get_send_time(-1), 0);
  EXPECT_EQ(take_ledger(), Rows{});
}

TEST_F(ReadState, SendTimeAccepts64BitIds) {
  plant("insert into t_message(id,sent_time) values(5,100),(4294967301,200)");
  EXPECT_EQ(store().get_send_time(4294967301), 200);
}

TEST_F(ReadState, SendTimeIsZeroWhenTheQueryCannotBePrepared) {
  const int64_t id = save(NewMessage());
  store().execute_none_query("drop table t_message");
  EXPECT_EQ(store().get_send_time(id), 0);
  EXPECT_EQ(log.take(), Rows{no_table("t_message")});
}

// ---- Marking a conversation read ----------------------------------------------------------------

TEST_F(ReadState, MarksReceivedMessagesReadAndNoLongerMentions) {
  save(NewMessage().mention());
  save(NewMessage());
  EXPECT_TRUE(store().update_message_status("room", CV_GROUP));
  EXPECT_EQ(rows(kReadStates), (Rows{"1|1|0", "2|1|0"}));
}

TEST_F(ReadState, KeepsReadStatesOtherThanUnread) {
  save(NewMessage().mention());
  save(NewMessage());
  plant("update t_message set read_status=case id when 1 then 2 else -1 end");
  store().update_message_status("room", CV_GROUP);
  EXPECT_EQ(rows(kReadStates), (Rows{"1|2|0", "2|-1|0"}));
}

TEST_F(ReadState, SkipsMessagesAtOrBeforeTheReadTime) {
  save(NewMessage().at(199).mention());
  save(NewMessage().at(200).mention());
  save(NewMessage().at(201).mention());
  plant("delete from t_session;" + read_up_to(200));
  store().update_message_status("room", CV_GROUP);
  EXPECT_EQ(rows(kReadStates), (Rows{"1|0|1", "2|0|1", "3|1|0"}));
}

TEST_F(ReadState, ComparesTimesIn64Bits) {
  save(NewMessage().at(4000000000000));
  save(NewMessage().at(4000000000001));
  plant("update t_session set read_time=4000000000000");
  store().update_message_status("room", CV_GROUP);
  EXPECT_EQ(rows(kReadStates), (Rows{"1|0|0", "2|1|0"}));
}

TEST_F(ReadState, MarkingStartsAtTimeZeroIfTheConversationHasNoRow) {
  save(NewMessage().at(1));
  save(NewMessage().at(300));
  plant("delete from t_session");
  EXPECT_TRUE(store().update_message_status("room", CV_GROUP));
  EXPECT_EQ(rows(kReadStates), (Rows{"1|1|0", "2|1|0"}));
}

TEST_F(ReadState, MarkingExcludesTimeZero) {
  plant("insert into t_message(session_id,session_type,direction,sent_time) values('room',2,1,0)");
  store().update_message_status("room", CV_GROUP);
  EXPECT_EQ(rows(kReadStates), Rows{"1|0|0"});
}

TEST_F(ReadState, SkipsMessagesThatWereNotReceived) {
  plant(
      "insert into t_message(session_id,session_type,direction,is_mention,sent_time) "
      "values('room',2,0,1,100),('room',2,2,1,100)");
  EXPECT_TRUE(store().update_message_status("room", CV_GROUP));
  EXPECT_EQ(rows(kReadStates), (Rows{"1|0|1", "2|0|1"}));
}

TEST_F(ReadState, SkipsOtherConversations) {
  save(NewMessage().in("other", CV_GROUP));
  save(NewMessage().in("room", CV_PRIVATE));
  EXPECT_TRUE(store().update_message_status("room", CV_GROUP));
  EXPECT_EQ(rows(kReadStates), (Rows{"1|0|0", "2|0|0"}));
}

TEST_F(ReadState, MarkingKeepsCountersAndReadTime) {
  plant(read_up_to(200));
  save(NewMessage().at(300).uncounted());
  store().update_message_status("room", CV_GROUP);
  EXPECT_EQ(rows("select unread_count,mention_count,read_time from t_session"), Rows{"5|3|200"});
}

TEST_F(ReadState, MarkingFailsWhenItCannotBePrepared) {
  store().execute_none_query("drop table t_message");
  EXPECT_FALSE(store().update_message_status("room", CV_GROUP));
  EXPECT_EQ(log.take(), Rows{no_table("t_message")});
}

TEST_F(ReadState, MarkingFailsWhenItsStepFails) {
  save(NewMessage());
  plant(refuse("update on t_message"));
  EXPECT_FALSE(store().update_message_status("room", CV_GROUP));
  EXPECT_EQ(rows(kReadStates), Rows{"1|0|0"});
  EXPECT_EQ(log.take(), run_refused());
}

TEST_F(ReadState, MarkingStartsAtTimeZeroIfTheReadTimeCannotBeRead) {
  save(NewMessage());
  store().execute_none_query("drop table t_session");
  EXPECT_TRUE(store().update_message_status("room", CV_GROUP));
  EXPECT_EQ(rows(kReadStates), Rows{"1|1|0"});
  EXPECT_EQ(log.take(), Rows{no_table("t_session")});
}

// ---- Read time ----------------------------------------------------------------------------------

TEST_F(ReadState, ReadsTheReadTimeOfAConversation) {
  plant(read_up_to(4000000000000));
  int64_t time = 77;
  store().get_readtime("room", CV_GROUP, time);
  EXPECT_EQ(time, 4000000000000);
}

TEST_F(ReadState, ReadTimeKeepsTheCallersValueWithoutARow) {
  plant(read_up_to(200));
  int64_t time = 77;
  store().get_readtime("other", CV_GROUP, time);
  EXPECT_EQ(time, 77);
  store().get_readtime("room", CV_PRIVATE, time);
  EXPECT_EQ(time, 77);
}

TEST_F(ReadState, ReadTimeKeepsTheCallersValueWhenTheQueryCannotBePrepared) {
  store().execute_none_query("drop table t_session");
  int64_t time = 77;
  store().get_readtime("room", CV_GROUP, time);
  EXPECT_EQ(time, 77);
  EXPECT_EQ(log.take(), Rows{no_table("t_session")});
}

}  // namespace
}  // namespace corvan_test
