#include <limits>

#include "tests/support/failures.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;

using MessageState = StoreTest;

constexpr const char* kDelivery =
    "select id,sent_status,server_uid,sent_time from t_message order by id";
constexpr const char* kSentStates = "select id,sent_status from t_message order by id";
constexpr const char* kReadState = "select read_status,is_mention from t_message";
constexpr const char* kCounters = "select unread_count,mention_count from t_session";
constexpr const char* kTimeAndLatest = "select session_time,latest_id from t_session";
constexpr const char* kReceiptTime = "select receipt_time from t_session";

constexpr const char* kSetReadStatus = "update t_message set read_status=?,is_mention=0 where id=?";

// Adds message 1 with this read state, in a conversation with 5 unread messages and 3 mentions.
std::string message_with(int32_t read_status, int32_t is_mention) {
  return "insert into t_session(session_id,session_type,unread_count,mention_count) "
         "values('room',2,5,3);"
         "insert into t_message(id,session_id,session_type,read_status,is_mention) "
         "values(1,'room',2," +
         std::to_string(read_status) + "," + std::to_string(is_mention) + ")";
}

// Adds the conversation of NewMessage with this receipt time.
std::string receipt_at(int64_t time) {
  return "insert into t_session(session_id,session_type,receipt_time) values('room',2," +
         std::to_string(time) + ")";
}

// Adds messages 1, 2, ... of that conversation, own and accepted, sent at these times.
std::string accepted_at(const std::vector<int64_t>& times) {
  std::string values;
  for (const int64_t time : times) {
    values += values.empty() ? "" : ",";
    values += "('room',2,0,0," + std::to_string(time) + ")";
  }
  return "insert into t_message(session_id,session_type,direction,sent_status,sent_time) values" +
         values;
}

// ---- The server's answer: the conversation ------------------------------------------------------

TEST_F(MessageState, AnswerMovesMessageAndConversation) {
  save(NewMessage().own(5).status(1).at(100));
  save(NewMessage().at(150));
  store().set_send_time(1, 200, "u1", "room", CV_GROUP, 0);
  EXPECT_EQ(rows(kDelivery), (Rows{"1|0|u1|200", "2|0||150"}));
  EXPECT_EQ(rows(kTimeAndLatest), Rows{"200|1"});
}

TEST_F(MessageState, FailureReportWithTimeAlsoMovesTheConversation) {
  save(NewMessage().own(5).status(1).at(100));
  save(NewMessage().at(150));
  store().set_send_time(1, 200, "", "room", CV_GROUP, 7);
  EXPECT_EQ(rows(kDelivery), (Rows{"1|2||200", "2|0||150"}));
  EXPECT_EQ(rows(kTimeAndLatest), Rows{"200|1"});
}

TEST_F(MessageState, AnswerWithoutTimeDoesNotMoveTheConversation) {
  save(NewMessage().own(5).status(1).at(100));
  plant("update t_session set session_time=50,latest_id=-1");
  store().set_send_time(1, 0, "u1", "room", CV_GROUP, 0);
  EXPECT_EQ(rows(kDelivery), Rows{"1|0|u1|100"});
  EXPECT_EQ(rows(kTimeAndLatest), Rows{"50|-1"});
}

TEST_F(MessageState, AnswerNotLaterThanTheConversationDoesNotMoveIt) {
  save(NewMessage().own(5).at(100));
  plant("update t_session set session_time=200,latest_id=9");
  store().set_send_time(1, 200, "u1", "room", CV_GROUP, 0);
  EXPECT_EQ(rows("select sent_time from t_message"), Rows{"200"});
  EXPECT_EQ(rows(kTimeAndLatest), Rows{"200|9"});
}

TEST_F(MessageState, EarlierAnswerMovesAConversationWithoutNewestMessage) {
  save(NewMessage().own(5).at(100));
  plant("update t_session set session_time=200,latest_id=-1");
  store().set_send_time(1, 150, "u1", "room", CV_GROUP, 0);
  EXPECT_EQ(rows(kTimeAndLatest), Rows{"150|1"});
}

TEST_F(MessageState, EarlierAnswerDoesNotMoveAConversationWhoseNewestMessageIsZero) {
  save(NewMessage().own(5).at(100));
  plant("update t_session set session_time=200,latest_id=0");
  store().set_send_time(1, 150, "u1", "room", CV_GROUP, 0);
  EXPECT_EQ(rows(kTimeAndLatest), Rows{"200|0"});
}

TEST_F(MessageState, AnswerMovesTheGivenConversationNotThatOfTheMessage) {
  save(NewMessage().own(5).at(100));
  plant_session("other", CV_GROUP, 50, 9);
  store().set_send_time(1, 200, "u1", "other", CV_GROUP, 0);
  EXPECT_EQ(rows("select session_id,session_time,latest_id from t_session order by session_id"),
            (Rows{"other|200|1", "room|100|1"}));
}

TEST_F(MessageState, AnswerForUnknownMessageAlsoMovesTheConversation) {
  plant_session("room", CV_GROUP, 100, 9);
  store().set_send_time(4294967301, 200, "u1", "room", CV_GROUP, 0);
  EXPECT_EQ(rows(kTimeAndLatest), Rows{"200|4294967301"});
}

TEST_F(MessageState, AnswerKeepsTheCounters) {
  plant_session("room", CV_GROUP, 100, 9, 5, 3);
  store().set_send_time(1, 200, "u1", "room", CV_GROUP, 0);
  EXPECT_EQ(rows(kCounters), Rows{"5|3"});
}

TEST_F(MessageState, AnswerCreatesNoConversation) {
  store().set_send_time(1, 200, "u1", "room", CV_GROUP, 0);
  EXPECT_EQ(rows("select session_id from t_session"), Rows{});
}

TEST_F(MessageState, AnswerIsOneTransaction) {
  save(NewMessage().own(5));
  take_ledger();
  store().set_send_time(1, 200, "u1", "room", CV_GROUP, 0);
  const Rows ledger = take_ledger();
  EXPECT_EQ(ledger.front(), "begin transaction");
  EXPECT_EQ(ledger.back(), "commit transaction");
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(MessageState, AnswerWhoseMessageUpdateFailsKeepsTheConversationAndCommits) {
  save(NewMessage().own(5).status(1).at(100));
  plant(refuse("update on t_message"));
  take_ledger();
  store().set_send_time(1, 200, "u1", "room", CV_GROUP, 0);
  EXPECT_EQ(rows(kDelivery), Rows{"1|1||100"});
  EXPECT_EQ(rows(kTimeAndLatest), Rows{"100|1"});
  EXPECT_EQ(log.take(), run_refused());
  EXPECT_EQ(take_ledger().back(), "commit transaction");
}

TEST_F(MessageState, AnswerThatCannotBePreparedKeepsTheConversationAndCommits) {
  plant_session("room", CV_GROUP, 100, 9);
  store().execute_none_query("drop table t_message");
  take_ledger();
  store().set_send_time(1, 200, "u1", "room", CV_GROUP, 0);
  EXPECT_EQ(rows(kTimeAndLatest), Rows{"100|9"});
  EXPECT_EQ(log.take(), Rows{no_table("t_message")});
  EXPECT_EQ(take_ledger().back(), "commit transaction");
}

TEST_F(MessageState, AnswerKeepsTheMessageWhenTheConversationUpdateFails) {
  save(NewMessage().own(5).status(1).at(100));
  plant(refuse("update on t_session"));
  store().set_send_time(1, 200, "u1", "room", CV_GROUP, 0);
  EXPECT_EQ(rows(kDelivery), Rows{"1|0|u1|200"});
  EXPECT_EQ(rows(kTimeAndLatest), Rows{"100|1"});
  EXPECT_EQ(log.take(), run_refused());
}

// ---- Sent status --------------------------------------------------------------------------------

TEST_F(MessageState, SentStatusIsWrittenAsGivenToOneMessage) {
  save(NewMessage().own(5).status(1));
  save(NewMessage().own(6).status(1));
  EXPECT_TRUE(store().update_sent_status(1, std::numeric_limits<int32_t>::min()));
  EXPECT_EQ(rows(kSentStates), (Rows{"1|-2147483648", "2|1"}));
}

TEST_F(MessageState, SentStatusOfReceivedMessageCanBeWritten) {
  save(NewMessage().status(0));
  EXPECT_TRUE(store().update_sent_status(1, 3));
  EXPECT_EQ(rows(kSentStates), Rows{"1|3"});
}

TEST_F(MessageState, SentStatusOfUnknownMessageSucceeds) {
  EXPECT_TRUE(store().update_sent_status(9, 1));
}

TEST_F(MessageState, SentStatusAccepts64BitIds) {
  plant("insert into t_message(id) values(5),(4294967301)");
  store().update_sent_status(4294967301, 2);
  EXPECT_EQ(rows(kSentStates), (Rows{"5|0", "4294967301|2"}));
}

TEST_F(MessageState, SentStatusThatCannotBePreparedFails) {
  store().execute_none_query("drop table t_message");
  EXPECT_FALSE(store().update_sent_status(1, 2));
  EXPECT_EQ(log.take(), Rows{no_table("t_message")});
}

TEST_F(MessageState, SentStatusWhoseStepFailsReturnsFalse) {
  save(NewMessage().own(5).status(1));
  plant(refuse("update on t_message"));
  EXPECT_FALSE(store().update_sent_status(1, 2));
  EXPECT_EQ(rows(kSentStates), Rows{"1|1"});
  EXPECT_EQ(log.take(), run_refused());
}

// ---- Read status --------------------------------------------------------------------------------

TEST_F(MessageState, ReadingAnUnreadMentionLowersBothCounters) {
  plant(message_with(0, 1));
  EXPECT_TRUE(store().set_read_status(1, 1));
  EXPECT_EQ(rows(kReadState), Rows{"1|0"});
  EXPECT_EQ(rows(kCounters), Rows{"4|2"});
}

TEST_F(MessageState, ReadingAMentionAgainChangesNoCounter) {
  plant(message_with(0, 1));
  store().set_read_status(1, 1);
  EXPECT_TRUE(store().set_read_status(1, 1));
  EXPECT_EQ(rows(kCounters), Rows{"4|2"});
}

TEST_F(MessageState, ReadingAnUnreadMessageLowersOnlyTheUnreadCounter) {
  plant(message_with(0, 0));
  EXPECT_TRUE(store().set_read_status(1, 1));
  EXPECT_EQ(rows(kCounters), Rows{"4|3"});
}

TEST_F(MessageState, AnyStatusAboveZeroMarksAnUnreadMessageRead) {
  plant(message_with(0, 1));
  EXPECT_TRUE(store().set_read_status(1, 2));
  EXPECT_EQ(rows(kReadState), Rows{"2|0"});
  EXPECT_EQ(rows(kCounters), Rows{"4|2"});
}

TEST_F(MessageState, MentionFlagOtherThanOneIsNotAMention) {
  plant(message_with(0, 2));
  EXPECT_TRUE(store().set_read_status(1, 1));
  EXPECT_EQ(rows(kReadState), Rows{"1|0"});
  EXPECT_EQ(rows(kCounters), Rows{"4|3"});
}

TEST_F(MessageState, MarkingAReadMessageUnreadAddsOne) {
  plant(message_with(1, 0));
  EXPECT_TRUE(store().set_read_status(1, 0));
  EXPECT_EQ(rows(kReadState), Rows{"0|0"});
  EXPECT_EQ(rows(kCounters), Rows{"6|3"});
}

TEST_F(MessageState, MarkingAReadMentionUnreadAddsOneAndLowersTheMentions) {
  plant(message_with(1, 1));
  EXPECT_TRUE(store().set_read_status(1, 0));
  EXPECT_EQ(rows(kReadState), Rows{"0|0"});
  EXPECT_EQ(rows(kCounters), Rows{"6|2"});
}

TEST_F(MessageState, MarkingAMessageOfAnotherReadStateUnreadAddsOne) {
  plant(message_with(-1, 0));
  EXPECT_TRUE(store().set_read_status(1, 0));
  EXPECT_EQ(rows(kCounters), Rows{"6|3"});
}

TEST_F(MessageState, MarkingAnUnreadMentionUnreadClearsItsFlagAndKeepsTheCounters) {
  plant(message_with(0, 1));
  EXPECT_TRUE(store().set_read_status(1, 0));
  EXPECT_EQ(rows(kReadState), Rows{"0|0"});
  EXPECT_EQ(rows(kCounters), Rows{"5|3"});
}

TEST_F(MessageState, ReadingAReadMentionClearsItsFlagAndKeepsTheCounters) {
  plant(message_with(1, 1));
  EXPECT_TRUE(store().set_read_status(1, 2));
  EXPECT_EQ(rows(kReadState), Rows{"2|0"});
  EXPECT_EQ(rows(kCounters), Rows{"5|3"});
}

TEST_F(MessageState, NegativeReadStatusIsStoredAndKeepsTheCounters) {
  plant(message_with(0, 1));
  EXPECT_TRUE(store().set_read_status(1, -1));
  EXPECT_EQ(rows(kReadState), Rows{"-1|0"});
  EXPECT_EQ(rows(kCounters), Rows{"5|3"});
}

TEST_F(MessageState, NegativeReadStatusOfReadMessageKeepsTheCounters) {
  plant(message_with(1, 1));
  EXPECT_TRUE(store().set_read_status(1, -1));
  EXPECT_EQ(rows(kCounters), Rows{"5|3"});
}

TEST_F(MessageState, CountersMayFallBelowZero) {
  plant(message_with(0, 1));
  plant("update t_session set unread_count=0,mention_count=0");
  store().set_read_status(1, 1);
  EXPECT_EQ(rows(kCounters), Rows{"-1|-1"});
}

TEST_F(MessageState, ReadStatusUpdatesTheConversationOfTheMessage) {
  plant(message_with(0, 1));
  plant_session("room", CV_PRIVATE, 0, 0, 5, 3);
  plant_session("other", CV_GROUP, 0, 0, 5, 3);
  store().set_read_status(1, 1);
  EXPECT_EQ(rows("select session_id,session_type,unread_count,mention_count from t_session "
                 "order by session_id,session_type"),
            (Rows{"other|2|5|3", "room|1|5|3", "room|2|4|2"}));
}

TEST_F(MessageState, ReadStatusOfMessageWithoutConversationSucceeds) {
  plant(message_with(0, 1));
  plant("delete from t_session");
  EXPECT_TRUE(store().set_read_status(1, 1));
  EXPECT_EQ(rows(kReadState), Rows{"1|0"});
}

TEST_F(MessageState, ReadStatusAccepts64BitIds) {
  plant(message_with(0, 1));
  plant("update t_message set id=4294967301");
  EXPECT_FALSE(store().set_read_status(5, 1));
  EXPECT_TRUE(store().set_read_status(4294967301, 1));
  EXPECT_EQ(rows(kReadState), Rows{"1|0"});
}

TEST_F(MessageState, ReadStatusOfUnknownMessageRunsAnEmptyTransactionAndFails) {
  take_ledger();
  EXPECT_FALSE(store().set_read_status(9, 1));
  EXPECT_EQ(take_ledger(),
            (Rows{"begin transaction",
                  "select session_id,session_type,read_status,is_mention,sent_time from t_message "
                  "where id=?",
                  "commit transaction"}));
}

TEST_F(MessageState, ReadStatusIsOneTransaction) {
  plant(message_with(0, 1));
  take_ledger();
  store().set_read_status(1, 1);
  const Rows ledger = take_ledger();
  EXPECT_EQ(ledger.front(), "begin transaction");
  EXPECT_EQ(ledger.back(), "commit transaction");
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(MessageState, ReadStatusWhoseUpdateFailsKeepsTheCountersAndCommits) {
  plant(message_with(0, 1));
  plant(refuse("update on t_message"));
  take_ledger();
  EXPECT_FALSE(store().set_read_status(1, 1));
  EXPECT_EQ(rows(kReadState), Rows{"0|1"});
  EXPECT_EQ(rows(kCounters), Rows{"5|3"});
  EXPECT_EQ(log.take(), run_refused());
  EXPECT_EQ(take_ledger().back(), "commit transaction");
}

TEST_F(MessageState, ReadStatusIsKeptWhenTheCountersCannotBeUpdated) {
  plant(message_with(0, 1));
  plant(refuse("update on t_session"));
  EXPECT_TRUE(store().set_read_status(1, 1));
  EXPECT_EQ(rows(kReadState), Rows{"1|0"});
  EXPECT_EQ(rows(kCounters), Rows{"5|3"});
  EXPECT_EQ(log.take(), run_refused());
}

TEST_F(MessageState, ReadStatusThatCannotBePreparedFailsAndCommits) {
  store().execute_none_query("drop table t_message");
  take_ledger();
  EXPECT_FALSE(store().set_read_status(1, 1));
  EXPECT_EQ(log.take(), Rows{no_table("t_message")});
  EXPECT_EQ(take_ledger().back(), "commit transaction");
}

// ---- The peer's receipt -------------------------------------------------------------------------

TEST_F(MessageState, ReceiptCoversAcceptedOwnMessagesUpToItsTimeInclusive) {
  plant(receipt_at(100) + ";" + accepted_at({100, 101, 200, 201}));
  EXPECT_TRUE(store().update_message_receipt_status("room", CV_GROUP, 200));
  EXPECT_EQ(rows(kSentStates), (Rows{"1|0", "2|3", "3|3", "4|0"}));
}

TEST_F(MessageState, ReceiptMovesTheReceiptTimeForward) {
  plant(receipt_at(100));
  store().update_message_receipt_status("room", CV_GROUP, 4000000000000);
  EXPECT_EQ(rows(kReceiptTime), Rows{"4000000000000"});
}

TEST_F(MessageState, ReceiptLaterThanTheStoredOneHasALowerBound) {
  plant(receipt_at(100));
  take_ledger();
  store().update_message_receipt_status("room", CV_GROUP, 101);
  EXPECT_EQ(take_ledger(),
            (Rows{"select receipt_time from t_session where session_id=? and session_type=?",
                  "update t_message set sent_status=3 where session_id=? and session_type=? "
                  "and sent_time>? and sent_time<=? and direction=0 and sent_status=0",
                  "update t_session set receipt_time=? where session_id=? and session_type=?"}));
}

TEST_F(MessageState, EarlierReceiptCoversEveryMessageUpToItAndKeepsTheReceiptTime) {
  plant(receipt_at(500) + ";" + accepted_at({-7, 100, 200, 201}));
  EXPECT_TRUE(store().update_message_receipt_status("room", CV_GROUP, 200));
  EXPECT_EQ(rows(kSentStates), (Rows{"1|3", "2|3", "3|3", "4|0"}));
  EXPECT_EQ(rows(kReceiptTime), Rows{"500"});
}

TEST_F(MessageState, EqualReceiptCoversEveryMessageUpToItAndKeepsTheReceiptTime) {
  plant(receipt_at(200) + ";" + accepted_at({100, 200, 201}));
  take_ledger();
  EXPECT_TRUE(store().update_message_receipt_status("room", CV_GROUP, 200));
  EXPECT_EQ(take_ledger(),
            (Rows{"select receipt_time from t_session where session_id=? and session_type=?",
                  "update t_message set sent_status=3 where session_id=? and session_type=? "
                  "and sent_time<=? and direction=0 and sent_status=0"}));
  EXPECT_EQ(rows(kSentStates), (Rows{"1|3", "2|3", "3|0"}));
  EXPECT_EQ(rows(kReceiptTime), Rows{"200"});
}

TEST_F(MessageState, ReceiptSkipsMessagesThatTheUserDidNotSend) {
  plant(
      "insert into t_message(session_id,session_type,direction,sent_time) "
      "values('room',2,1,100),('room',2,2,100)");
  EXPECT_TRUE(store().update_message_receipt_status("room", CV_GROUP, 200));
  EXPECT_EQ(rows(kSentStates), (Rows{"1|0", "2|0"}));
}

TEST_F(MessageState, ReceiptSkipsMessagesThatTheServerDidNotAccept) {
  plant(accepted_at({100, 100}) + ";update t_message set sent_status=id");
  EXPECT_TRUE(store().update_message_receipt_status("room", CV_GROUP, 200));
  EXPECT_EQ(rows(kSentStates), (Rows{"1|1", "2|2"}));
}

TEST_F(MessageState, ReceiptSkipsOtherConversations) {
  save(NewMessage().own().in("other", CV_GROUP));
  save(NewMessage().own().in("room", CV_PRIVATE));
  EXPECT_TRUE(store().update_message_receipt_status("room", CV_GROUP, 200));
  EXPECT_EQ(rows(kSentStates), (Rows{"1|0", "2|0"}));
  EXPECT_EQ(rows(kReceiptTime), (Rows{"0", "0"}));
}

TEST_F(MessageState, ReceiptForMissingConversationStartsAtTimeZeroAndCreatesNone) {
  plant(accepted_at({0, 1, 200}));
  EXPECT_TRUE(store().update_message_receipt_status("room", CV_GROUP, 200));
  EXPECT_EQ(rows(kSentStates), (Rows{"1|0", "2|3", "3|3"}));
  EXPECT_EQ(rows(kReceiptTime), Rows{});
}

TEST_F(MessageState, ReceiptThatCannotBePreparedKeepsTheReceiptTime) {
  plant(receipt_at(100));
  store().execute_none_query("drop table t_message");
  EXPECT_FALSE(store().update_message_receipt_status("room", CV_GROUP, 200));
  EXPECT_EQ(rows(kReceiptTime), Rows{"100"});
  EXPECT_EQ(log.take(), Rows{no_table("t_message")});
}

TEST_F(MessageState, ReceiptWhoseStepFailsKeepsTheReceiptTime) {
  plant(receipt_at(100) + ";" + accepted_at({150}));
  plant(refuse("update on t_message"));
  EXPECT_FALSE(store().update_message_receipt_status("room", CV_GROUP, 200));
  EXPECT_EQ(rows(kSentStates), Rows{"1|0"});
  EXPECT_EQ(rows(kReceiptTime), Rows{"100"});
  EXPECT_EQ(log.take(), run_refused());
}

TEST_F(MessageState, ReceiptSucceedsWhenItsTimeCannotBeStored) {
  plant(receipt_at(100) + ";" + accepted_at({150}));
  plant(refuse("update on t_session"));
  EXPECT_TRUE(store().update_message_receipt_status("room", CV_GROUP, 200));
  EXPECT_EQ(rows(kSentStates), Rows{"1|3"});
  EXPECT_EQ(rows(kReceiptTime), Rows{"100"});
}

// ---- Content ------------------------------------------------------------------------------------

TEST_F(MessageState, ContentWithObjectNameReplacesBothAndClearsTheMention) {
  save(NewMessage().mention());
  save(NewMessage().mention());
  EXPECT_TRUE(store().set_message_content(1, "it's new", "CV:Other"));
  EXPECT_EQ(rows("select content,object_name,is_mention from t_message order by id"),
            (Rows{"it's new|CV:Other|0", "hello|CV:TxtMsg|1"}));
}

TEST_F(MessageState, ContentWithoutObjectNameKeepsItAndTheMention) {
  save(NewMessage().mention());
  EXPECT_TRUE(store().set_message_content(1, "new", ""));
  EXPECT_EQ(rows("select content,object_name,is_mention from t_message"), Rows{"new|CV:TxtMsg|1"});
}

TEST_F(MessageState, ContentMayBecomeEmpty) {
  save(NewMessage());
  EXPECT_TRUE(store().set_message_content(1, "", ""));
  EXPECT_EQ(rows("select content from t_message"), Rows{""});
}

TEST_F(MessageState, ContentEndsAtItsFirstZeroByte) {
  save(NewMessage());
  store().set_message_content(1, std::string("ab\0cd", 5), std::string("K\0x", 3));
  EXPECT_EQ(rows("select content,object_name from t_message"), Rows{"ab|K"});
}

TEST_F(MessageState, ContentKeepsReadStateAndCounters) {
  save(NewMessage().mention());
  store().set_message_content(1, "new", "CV:Other");
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"0"});
  EXPECT_EQ(rows(kCounters), Rows{"1|1"});
}

TEST_F(MessageState, ContentOfUnknownMessageSucceeds) {
  EXPECT_TRUE(store().set_message_content(9, "new", "CV:Other"));
}

TEST_F(MessageState, ContentAccepts64BitIds) {
  plant("insert into t_message(id) values(5),(4294967301)");
  store().set_message_content(4294967301, "new", "");
  EXPECT_EQ(rows("select id,content from t_message order by id"), (Rows{"5|", "4294967301|new"}));
}

TEST_F(MessageState, ContentThatCannotBePreparedFails) {
  store().execute_none_query("drop table t_message");
  EXPECT_FALSE(store().set_message_content(1, "new", ""));
  EXPECT_EQ(log.take(), Rows{no_table("t_message")});
}

TEST_F(MessageState, ContentWhoseStepFailsReturnsFalse) {
  save(NewMessage());
  plant(refuse("update on t_message"));
  EXPECT_FALSE(store().set_message_content(1, "new", "CV:Other"));
  EXPECT_EQ(rows("select content from t_message"), Rows{"hello"});
  EXPECT_EQ(log.take(), run_refused());
}

// ---- Client uid ---------------------------------------------------------------------------------

TEST_F(MessageState, ClientUidOfConversationIsThatOfItsNewestSentMessage) {
  save(NewMessage().own(5000000000000).at(200));
  save(NewMessage().own(6).at(100));
  save(NewMessage().own(7).status(1).at(300));
  int64_t uid = 77;
  store().get_client_uid("room", CV_GROUP, uid);
  EXPECT_EQ(uid, 5000000000000);
}

TEST_F(MessageState, ClientUidOfConversationMayBeThatOfAReceivedMessage) {
  save(NewMessage().own(5).at(100));
  save(NewMessage().client(6).at(200));
  int64_t uid = 77;
  store().get_client_uid("room", CV_GROUP, uid);
  EXPECT_EQ(uid, 6);
}

TEST_F(MessageState, ClientUidOfConversationAmongEqualTimesIsThatOfTheLargestId) {
  save(NewMessage().own(5).at(100));
  save(NewMessage().own(6).at(100));
  int64_t uid = 77;
  store().get_client_uid("room", CV_GROUP, uid);
  EXPECT_EQ(uid, 6);
}

TEST_F(MessageState, ClientUidOfConversationKeepsTheCallersValueOnAMiss) {
  save(NewMessage().own(5).in("other", CV_GROUP));
  save(NewMessage().own(6).in("room", CV_PRIVATE));
  save(NewMessage().own(7).status(3));
  int64_t uid = 77;
  store().get_client_uid("room", CV_GROUP, uid);
  EXPECT_EQ(uid, 77);
}

TEST_F(MessageState, ClientUidOfMessage) {
  plant("insert into t_message(id,client_uid) values(5,6),(4294967301,5000000000000)");
  int64_t uid = 77;
  store().get_client_uid(4294967301, uid);
  EXPECT_EQ(uid, 5000000000000);
}

TEST_F(MessageState, ClientUidOfUnknownMessageKeepsTheCallersValueAndLogsIt) {
  LogCapture info(cvrtc::LS_INFO);
  int64_t uid = 77;
  store().get_client_uid(9, uid);
  EXPECT_EQ(uid, 77);
  EXPECT_EQ(info.take().back(),
            "2 void Corvan::CvDbSingleton::get_client_uid(int64_t, int64_t &): "
            "get_client_uid: end,client_uid: 77");
}

TEST_F(MessageState, ClientUidsThatCannotBePreparedKeepTheCallersValue) {
  store().execute_none_query("drop table t_message");
  int64_t uid = 77;
  store().get_client_uid("room", CV_GROUP, uid);
  store().get_client_uid(1, uid);
  EXPECT_EQ(uid, 77);
  EXPECT_EQ(log.take(), (Rows{no_table("t_message"), no_table("t_message")}));
}

// ---- The server's answer: the message -----------------------------------------------------------

TEST_F(MessageState, AnswerWithUidAndTimeMakesTheMessageSent) {
  save(NewMessage().own(5).status(1).at(100));
  save(NewMessage().own(6).status(1).at(100));
  EXPECT_EQ(store().set_sendtime(1, 4000000000000, "u1", 0), 101);
  EXPECT_EQ(rows(kDelivery), (Rows{"1|0|u1|4000000000000", "2|1||100"}));
}

TEST_F(MessageState, FailureReportWithUidAndTimeMakesTheMessageFailed) {
  save(NewMessage().own(5).status(1).at(100));
  EXPECT_EQ(store().set_sendtime(1, 200, "u1", 7), 101);
  EXPECT_EQ(rows(kDelivery), Rows{"1|2|u1|200"});
}

TEST_F(MessageState, NegativeFailureReasonIsAFailure) {
  save(NewMessage().own(5).status(1).at(100));
  store().set_sendtime(1, 0, "", -1);
  EXPECT_EQ(rows(kDelivery), Rows{"1|2||100"});
}

TEST_F(MessageState, FailureReportWithoutUidAndTimeChangesOnlyTheStatus) {
  save(NewMessage().own(5).status(1).named("u1").at(100));
  take_ledger();
  EXPECT_EQ(store().set_sendtime(1, 0, "", 7), 101);
  EXPECT_EQ(take_ledger(), Rows{"update t_message set sent_status=2 where id=?"});
  EXPECT_EQ(rows(kDelivery), Rows{"1|2|u1|100"});
}

TEST_F(MessageState, SuccessWithoutUidAndTimeChangesOnlyTheStatus) {
  save(NewMessage().own(5).status(1).named("u1").at(100));
  take_ledger();
  EXPECT_EQ(store().set_sendtime(1, 0, "", 0), 101);
  EXPECT_EQ(take_ledger(), Rows{"update t_message set sent_status=0 where id=?"});
  EXPECT_EQ(rows(kDelivery), Rows{"1|0|u1|100"});
}

TEST_F(MessageState, AnswerWithoutTimeKeepsTheStoredTime) {
  save(NewMessage().own(5).status(1).at(100));
  take_ledger();
  EXPECT_EQ(store().set_sendtime(1, 0, "u1", 0), 101);
  EXPECT_EQ(take_ledger(), Rows{"update t_message set sent_status=0,server_uid=? where id=?"});
  EXPECT_EQ(rows(kDelivery), Rows{"1|0|u1|100"});
}

TEST_F(MessageState, AnswerWithoutUidKeepsTheStoredUid) {
  save(NewMessage().own(5).status(1).named("u1").at(100));
  take_ledger();
  EXPECT_EQ(store().set_sendtime(1, 200, "", 0), 101);
  EXPECT_EQ(take_ledger(), Rows{"update t_message set sent_status=0,sent_time=? where id=?"});
  EXPECT_EQ(rows(kDelivery), Rows{"1|0|u1|200"});
}

TEST_F(MessageState, AnswerWithNegativeTimeKeepsTheStoredTime) {
  save(NewMessage().own(5).status(1).at(100));
  store().set_sendtime(1, -5, "", 0);
  EXPECT_EQ(rows(kDelivery), Rows{"1|0||100"});
}

TEST_F(MessageState, AnswerStoresTheSmallestPositiveTime) {
  save(NewMessage().own(5).at(100));
  store().set_sendtime(1, 1, "", 0);
  EXPECT_EQ(rows(kDelivery), Rows{"1|0||1"});
}

TEST_F(MessageState, AnswerForUnknownMessageReturnsDone) {
  EXPECT_EQ(store().set_sendtime(9, 200, "u1", 0), 101);
}

TEST_F(MessageState, AnswerAccepts64BitIds) {
  plant("insert into t_message(id) values(5),(4294967301)");
  store().set_sendtime(4294967301, 200, "u1", 0);
  EXPECT_EQ(rows(kDelivery), (Rows{"5|0||0", "4294967301|0|u1|200"}));
}

TEST_F(MessageState, AnswerThatCannotBePreparedReturnsTheCode) {
  store().execute_none_query("drop table t_message");
  EXPECT_EQ(store().set_sendtime(1, 200, "u1", 0), 1);
  EXPECT_EQ(log.take(), Rows{no_table("t_message")});
}

TEST_F(MessageState, AnswerWhoseStepFailsReturnsTheCode) {
  save(NewMessage().own(5).status(1).at(100));
  plant(refuse("update on t_message"));
  EXPECT_EQ(store().set_sendtime(1, 200, "u1", 0), 19);
  EXPECT_EQ(rows(kDelivery), Rows{"1|1||100"});
  EXPECT_EQ(log.take(), run_refused());
}

// ---- One-column updates -------------------------------------------------------------------------

TEST_F(MessageState, IntUpdateBindsTheValueFirstAndTheIdSecond) {
  plant(message_with(0, 1));
  EXPECT_TRUE(store().common_message_int(1, -2147483647, kSetReadStatus));
  EXPECT_EQ(rows(kReadState), Rows{"-2147483647|0"});
  EXPECT_EQ(rows(kCounters), Rows{"5|3"});
}

TEST_F(MessageState, TextUpdateBindsTheValueFirstAndTheIdSecond) {
  save(NewMessage());
  save(NewMessage());
  EXPECT_TRUE(store().common_message_text(2, "o'x", "update t_message set sender=? where id=?"));
  EXPECT_EQ(rows("select sender from t_message order by id"), (Rows{"u01", "o'x"}));
}

TEST_F(MessageState, OneColumnUpdatesAccept64BitIds) {
  plant("insert into t_message(id) values(5),(4294967301)");
  store().common_message_int(4294967301, 7, "update t_message set direction=? where id=?");
  store().common_message_text(4294967301, "x", "update t_message set sender=? where id=?");
  EXPECT_EQ(rows("select id,direction,sender from t_message order by id"),
            (Rows{"5|0|", "4294967301|7|x"}));
}

TEST_F(MessageState, OneColumnUpdatesOfUnknownMessagesSucceed) {
  EXPECT_TRUE(store().common_message_int(9, 1, kSetReadStatus));
  EXPECT_TRUE(store().common_message_text(9, "x", "update t_message set sender=? where id=?"));
}

TEST_F(MessageState, OneColumnUpdatesThatReturnARowFail) {
  save(NewMessage());
  EXPECT_FALSE(store().common_message_int(1, 1, "select ? from t_message where id=?"));
  EXPECT_FALSE(store().common_message_text(1, "x", "select ? from t_message where id=?"));
}

TEST_F(MessageState, OneColumnUpdatesThatCannotBePreparedFail) {
  EXPECT_FALSE(store().common_message_int(1, 1, "update t_none set a=? where id=?"));
  EXPECT_FALSE(store().common_message_text(1, "x", "update t_none set a=? where id=?"));
  EXPECT_EQ(log.take(), (Rows{no_table("t_none"), no_table("t_none")}));
}

TEST_F(MessageState, OneColumnUpdatesWhoseStepFailsReturnFalse) {
  save(NewMessage());
  plant(refuse("update on t_message"));
  EXPECT_FALSE(store().common_message_int(1, 1, kSetReadStatus));
  EXPECT_EQ(log.take(), run_refused());
  EXPECT_FALSE(store().common_message_text(1, "x", "update t_message set sender=? where id=?"));
  EXPECT_EQ(log.take(), run_refused());
}

}  // namespace
}  // namespace corvan_test
