#include <algorithm>
#include <limits>
#include <memory>

#include "tests/support/failures.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CV_CHATROOM;
using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;
using Corvan::CV_SYSTEM;
using Corvan::MessageResponse;
using Corvan::UpdateValue;

using SaveMessage = StoreTest;
using Batch = std::vector<std::unique_ptr<MessageResponse>>;

constexpr const char* kMessages =
    "select id,session_id,session_type,object_name,content,sender,direction,sent_status,"
    "read_status,is_mention,sent_time,client_uid,server_uid from t_message order by id";
constexpr const char* kConfirmed =
    "select id,sent_status,server_uid,sent_time from t_message order by id";
constexpr const char* kSession =
    "select session_id,session_type,title,draft,is_top,session_time,unread_count,mention_count,"
    "silence,latest_id,read_time,receipt_time from t_session";
constexpr const char* kProgress =
    "select session_time,latest_id,unread_count,mention_count from t_session";
constexpr const char* kMessageCount = "select count(*) from t_message";

const std::string kStepRefused = step_failed(kRefusedCode, kRefusedText);
const std::string kResetRefused = reset_failed(kRefusedCode, kRefusedText);
const std::string kFinalizeRefused = finalize_failed(kRefusedCode, kRefusedText);
const std::string kNoTable = no_table("t_message");

// Records for the batch save to store.
Batch batch_of(const std::vector<std::string>& contents) {
  Batch batch;
  for (const std::string& content : contents) {
    batch.push_back(std::make_unique<MessageResponse>());
    batch.back()->session_id_ = "room";
    batch.back()->session_type_ = CV_GROUP;
    batch.back()->content_ = content;
    batch.back()->is_store_ = true;
    batch.back()->msg_id_ = -1;
  }
  return batch;
}

// The key of an own message in the conversation of NewMessage.
UpdateValue key_of(int64_t client_uid) {
  UpdateValue value;
  value.session_id_ = "room";
  value.session_type_ = CV_GROUP;
  value.client_uid_ = client_uid;
  value.sender_ = "me";
  return value;
}

// ---- The stored row -----------------------------------------------------------------------------

TEST_F(SaveMessage, StoresEachColumnOfReceivedMessage) {
  plant("insert into t_message(id) values(40)");
  EXPECT_EQ(save(NewMessage()
                     .in("s", CV_SYSTEM)
                     .kind("kind")
                     .text("body")
                     .from("author")
                     .status(3)
                     .at(4000000000000)
                     .client(5000000000000)
                     .named("uid")),
            41);
  EXPECT_EQ(rows(kMessages).back(),
            "41|s|5|kind|body|author|1|3|0|0|4000000000000|5000000000000|uid");
}

TEST_F(SaveMessage, StoresEachColumnOfOwnMessage) {
  save(NewMessage().own(7).status(2).mention());
  save(NewMessage().own(8).status(2));
  EXPECT_EQ(rows(kMessages), (Rows{"1|room|2|CV:TxtMsg|hello|me|0|2|1|1|100|7|",
                                   "2|room|2|CV:TxtMsg|hello|me|0|2|1|0|100|8|"}));
}

TEST_F(SaveMessage, OwnMessageIsStoredReadWhateverTheArgument) {
  NewMessage message = NewMessage().own();
  message.read_status = 0;
  save(message);
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"1"});
}

TEST_F(SaveMessage, ReceivedMessageIsStoredUnreadWhateverTheArgument) {
  NewMessage message;
  message.read_status = 1;
  save(message);
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"0"});
}

TEST_F(SaveMessage, ReceivedChatRoomMessageIsStoredRead) {
  save(NewMessage().in("hall", CV_CHATROOM));
  EXPECT_EQ(rows("select direction,read_status from t_message"), Rows{"1|1"});
}

TEST_F(SaveMessage, OwnChatRoomMessageIsStoredRead) {
  save(NewMessage().in("hall", CV_CHATROOM).own());
  EXPECT_EQ(rows("select direction,read_status from t_message"), Rows{"0|1"});
}

TEST_F(SaveMessage, SentStatusIsStoredAsGiven) {
  save(NewMessage().status(std::numeric_limits<int32_t>::min()));
  EXPECT_EQ(rows("select sent_status from t_message"), Rows{"-2147483648"});
}

TEST_F(SaveMessage, UnknownKindIsStoredAsGiven) {
  save(NewMessage().in("room", Corvan::SessionType(9)));
  EXPECT_EQ(rows("select session_type from t_message"), Rows{"9"});
  EXPECT_EQ(rows("select session_type from t_session"), Rows{"9"});
}

TEST_F(SaveMessage, TextsAreBoundNotPasted) {
  save(NewMessage().in("o'room", CV_GROUP).kind("k'").text("it's ? \"x\"; --").named("u'1"));
  EXPECT_EQ(rows("select session_id,object_name,content,server_uid from t_message"),
            Rows{"o'room|k'|it's ? \"x\"; --|u'1"});
}

TEST_F(SaveMessage, TextsEndAtTheirFirstZeroByte) {
  const std::string zero(1, '\0');
  save(NewMessage()
           .in("room" + zero + "x", CV_GROUP)
           .kind("kind" + zero + "x")
           .text("body" + zero + "x")
           .from("u01" + zero + "x")
           .named("uid" + zero + "x"));
  EXPECT_EQ(rows("select session_id,object_name,content,sender,server_uid from t_message"),
            Rows{"room|kind|body|u01|uid"});
  EXPECT_EQ(rows("select session_id from t_session"), Rows{"room"});
}

TEST_F(SaveMessage, IdAbove32BitsIsNotTruncated) {
  plant("insert into t_message(id) values(5000000000)");
  EXPECT_EQ(save(NewMessage()), 5000000001);
  EXPECT_EQ(rows("select latest_id from t_session"), Rows{"5000000001"});
}

// ---- The time -----------------------------------------------------------------------------------

TEST_F(SaveMessage, MessageWithoutTimeAndItsConversationGetTheClocksTime) {
  set_clock(777);
  save(NewMessage().at(0));
  EXPECT_EQ(rows("select sent_time from t_message"), Rows{"777"});
  EXPECT_EQ(rows("select session_time from t_session"), Rows{"777"});
}

TEST_F(SaveMessage, NegativeTimeCountsAsMissing) {
  save(NewMessage().at(-5));
  EXPECT_EQ(rows("select sent_time from t_message"), Rows{"1000000"});
}

TEST_F(SaveMessage, SmallestPositiveTimeIsKept) {
  save(NewMessage().at(1));
  EXPECT_EQ(rows("select sent_time from t_message"), Rows{"1"});
}

TEST_F(SaveMessage, ClocksTimeMovesAnExistingConversation) {
  plant_session("room", CV_GROUP, 500, 9);
  const int64_t id = save(NewMessage().at(0));
  EXPECT_EQ(rows("select session_time,latest_id from t_session"),
            Rows{"1000000|" + std::to_string(id)});
}

// ---- Duplicates by server uid -------------------------------------------------------------------

TEST_F(SaveMessage, KnownServerUidIsRefused) {
  save(NewMessage().named("u1").at(100));
  EXPECT_EQ(save(NewMessage().named("u1").at(200)), -1);
  EXPECT_EQ(rows(kConfirmed), Rows{"1|0|u1|100"});
  EXPECT_EQ(rows(kProgress), Rows{"100|1|1|0"});
}

TEST_F(SaveMessage, KnownServerUidIsRefusedInHistory) {
  save(NewMessage().named("u1"));
  EXPECT_EQ(save(NewMessage().named("u1").fetched()), -1);
  EXPECT_EQ(rows(kMessageCount), Rows{"1"});
}

TEST_F(SaveMessage, KnownServerUidIsRefusedWithInsertOnly) {
  save(NewMessage().named("u1"));
  EXPECT_EQ(save(NewMessage().named("u1").inserted_only()), -1);
  EXPECT_EQ(rows(kMessageCount), Rows{"1"});
}

TEST_F(SaveMessage, KnownServerUidIsRefusedInAnotherConversation) {
  save(NewMessage().named("u1"));
  EXPECT_EQ(save(NewMessage().named("u1").in("user2", CV_PRIVATE)), -1);
  EXPECT_EQ(rows("select session_id from t_session"), Rows{"room"});
}

TEST_F(SaveMessage, EmptyServerUidIsNeverRefused) {
  EXPECT_EQ(save(NewMessage()), 1);
  EXPECT_EQ(save(NewMessage()), 2);
}

TEST_F(SaveMessage, EmptyServerUidIsNotLookedUp) {
  save(NewMessage());
  take_ledger();
  EXPECT_FALSE(store().is_message_exist(""));
  EXPECT_EQ(take_ledger(), Rows{});
}

TEST_F(SaveMessage, ServerUidIsComparedInFull) {
  save(NewMessage().named("u1"));
  EXPECT_TRUE(store().is_message_exist("u1"));
  EXPECT_FALSE(store().is_message_exist("U1"));
  EXPECT_FALSE(store().is_message_exist("u"));
}

TEST_F(SaveMessage, ServerUidIsTestedBeforeTheClientKey) {
  save(NewMessage().named("u1"));
  save(NewMessage().own(5));
  EXPECT_EQ(save(NewMessage().own(5).named("u1")), -1);
  EXPECT_EQ(rows("select server_uid from t_message where client_uid=5"), Rows{""});
}

// ---- Duplicates by client key -------------------------------------------------------------------

TEST_F(SaveMessage, EchoOfOwnMessageCompletesTheFirstRow) {
  const int64_t id = save(NewMessage().own(5).status(1).at(100));
  EXPECT_EQ(save(NewMessage().own(5).status(1).at(200).named("u1")), id);
  EXPECT_EQ(rows(kConfirmed), Rows{"1|0|u1|200"});
}

TEST_F(SaveMessage, EchoKeepsTheOtherColumnsOfTheFirstRow) {
  save(NewMessage().own(5).text("first").kind("A"));
  save(NewMessage().own(5).text("second").kind("B").named("u1").mention());
  EXPECT_EQ(rows("select content,object_name,is_mention from t_message"), Rows{"first|A|0"});
}

TEST_F(SaveMessage, EchoDoesNotTouchTheConversation) {
  save(NewMessage().own(5).at(100));
  NewMessage echo = NewMessage().own(5).at(200).named("u1").mention();
  echo.is_count = true;
  save(echo);
  EXPECT_EQ(rows(kProgress), Rows{"100|1|0|0"});
}

TEST_F(SaveMessage, EchoWithoutTimeCompletesWithTheClocksTime) {
  save(NewMessage().own(5).at(100));
  save(NewMessage().own(5).at(0).named("u1"));
  EXPECT_EQ(rows(kConfirmed), Rows{"1|0|u1|1000000"});
}

TEST_F(SaveMessage, SecondSaveWithoutAServerUidCompletesTheFirst) {
  save(NewMessage().own(5).status(2).at(100));
  EXPECT_EQ(save(NewMessage().own(5).status(1).at(200)), 1);
  EXPECT_EQ(rows(kConfirmed), Rows{"1|0||200"});
}

TEST_F(SaveMessage, SameClientKeyIsRefusedIfTheFirstHasAServerUid) {
  save(NewMessage().own(5).named("u1").at(100));
  EXPECT_EQ(save(NewMessage().own(5).named("u2").at(200)), -1);
  EXPECT_EQ(rows(kConfirmed), Rows{"1|0|u1|100"});
}

TEST_F(SaveMessage, EchoFromHistoryIsInsertedAsSecondRow) {
  save(NewMessage().own(5).at(100));
  EXPECT_EQ(save(NewMessage().own(5).at(200).named("u1").fetched()), 2);
  EXPECT_EQ(rows(kConfirmed), (Rows{"1|0||100", "2|0|u1|200"}));
}

TEST_F(SaveMessage, EchoWithInsertOnlyIsInsertedAsSecondRow) {
  save(NewMessage().own(5).at(100));
  EXPECT_EQ(save(NewMessage().own(5).at(200).named("u1").inserted_only()), 2);
  EXPECT_EQ(rows(kConfirmed), (Rows{"1|0||100", "2|0|u1|200"}));
}

TEST_F(SaveMessage, ClientUidZeroIsNeverRefused) {
  save(NewMessage().own(0).named("u1"));
  EXPECT_EQ(save(NewMessage().own(0).named("u2")), 2);
}

TEST_F(SaveMessage, NegativeClientUidIsNeverRefused) {
  save(NewMessage().own(-3).named("u1"));
  EXPECT_EQ(save(NewMessage().own(-3).named("u2")), 2);
}

TEST_F(SaveMessage, ReceivedMessageIsLookedUpByItsSender) {
  save(NewMessage().from("u01").client(5));
  EXPECT_EQ(save(NewMessage().from("user3").client(5)), 2);
  EXPECT_EQ(save(NewMessage().from("u01").client(5).named("u1")), 1);
}

TEST_F(SaveMessage, OwnMessageIsLookedUpByTheSignedInUser) {
  save(NewMessage().own(5));
  EXPECT_EQ(save(NewMessage().own(5).from("alias").named("u1")), 1);
}

TEST_F(SaveMessage, OwnMessageStoredWithAnotherSenderIsNotFoundAgain) {
  save(NewMessage().own(5).from("alias"));
  EXPECT_EQ(save(NewMessage().own(5).from("alias").named("u1")), 2);
  EXPECT_EQ(rows("select sender from t_message"), (Rows{"alias", "alias"}));
}

TEST_F(SaveMessage, ClientKeyIncludesTheConversation) {
  save(NewMessage().own(5));
  EXPECT_EQ(save(NewMessage().own(5).in("other", CV_GROUP)), 2);
  EXPECT_EQ(save(NewMessage().own(5).in("room", CV_PRIVATE)), 3);
}

TEST_F(SaveMessage, EchoTruncatesTheIdOfTheFirstRowTo32Bits) {
  plant(
      "insert into t_message(id,session_id,session_type,client_uid,sender) "
      "values(4294967301,'room',2,5,'me')");
  EXPECT_EQ(save(NewMessage().own(5).named("u1")), 5);
  EXPECT_EQ(rows("select id,server_uid from t_message"), Rows{"4294967301|"});
}

TEST_F(SaveMessage, FailedCompletionStillReturnsTheFirstId) {
  save(NewMessage().own(5));
  plant(refuse("update on t_message"));
  EXPECT_EQ(save(NewMessage().own(5).named("u1")), 1);
  EXPECT_EQ(rows("select server_uid from t_message"), Rows{""});
  EXPECT_EQ(log.take(), (Rows{kStepRefused, kFinalizeRefused}));
}

TEST_F(SaveMessage, ClientKeyTestReturnsIdAndServerUid) {
  save(NewMessage().own(5).named("u1"));
  int64_t id = 0;
  std::string uid;
  EXPECT_TRUE(store().is_message_exist(5, "me", "room", CV_GROUP, id, uid));
  EXPECT_EQ(id, 1);
  EXPECT_EQ(uid, "u1");
}

TEST_F(SaveMessage, ClientKeyTestFindsTheSmallestIdWithEitherIndex) {
  plant(
      "insert into t_message(id,session_id,session_type,client_uid,sender,server_uid) "
      "values(9,'room',2,5,'me','a'),(4,'room',2,5,'me','z'),(2,'room',2,5,'you',''),"
      "(3,'other',2,5,'me',''),(1,'room',1,5,'me','')");
  for (const char* older : {"",
                            "drop index t_message_client_uid;create index "
                            "t_message_client_uid on t_message(session_id,session_type,"
                            "client_uid,sender)"}) {
    plant(older);
    int64_t id = 0;
    std::string uid;
    EXPECT_TRUE(store().is_message_exist(5, "me", "room", CV_GROUP, id, uid));
    EXPECT_EQ(id, 4);
    EXPECT_EQ(uid, "z");
  }
}

TEST_F(SaveMessage, ClientKeyTestSignExtendsThe32BitId) {
  plant(
      "insert into t_message(id,session_id,session_type,client_uid,sender) "
      "values(2147483648,'room',2,5,'me')");
  int64_t id = 0;
  std::string uid;
  EXPECT_TRUE(store().is_message_exist(5, "me", "room", CV_GROUP, id, uid));
  EXPECT_EQ(id, -2147483648);
}

TEST_F(SaveMessage, ClientKeyTestKeepsTheCallersValuesOnAMiss) {
  save(NewMessage().own(5).named("u1"));
  int64_t id = 77;
  std::string uid = "kept";
  EXPECT_FALSE(store().is_message_exist(6, "me", "room", CV_GROUP, id, uid));
  EXPECT_EQ(id, 77);
  EXPECT_EQ(uid, "kept");
}

TEST_F(SaveMessage, ClientKeyTestBelowOneRunsNoQuery) {
  save(NewMessage().own(0));
  save(NewMessage().own(-1));
  take_ledger();
  int64_t id = 77;
  std::string uid;
  EXPECT_FALSE(store().is_message_exist(0, "me", "room", CV_GROUP, id, uid));
  EXPECT_FALSE(store().is_message_exist(-1, "me", "room", CV_GROUP, id, uid));
  EXPECT_EQ(id, 77);
  EXPECT_EQ(take_ledger(), Rows{});
}

TEST_F(SaveMessage, ClientKeyTestComparesClientUidIn64Bits) {
  save(NewMessage().own(4294967301));
  int64_t id = 0;
  std::string uid;
  EXPECT_FALSE(store().is_message_exist(5, "me", "room", CV_GROUP, id, uid));
  EXPECT_TRUE(store().is_message_exist(4294967301, "me", "room", CV_GROUP, id, uid));
}

// ---- The conversation ---------------------------------------------------------------------------

TEST_F(SaveMessage, FirstMessageCreatesItsConversation) {
  plant("insert into t_message(id) values(40)");
  save(NewMessage().at(300).mention());
  EXPECT_EQ(rows(kSession), Rows{"room|2|||0|300|1|1|0|41|0|0"});
}

TEST_F(SaveMessage, UncountedFirstMessageStartsTheCountersAtZero) {
  save(NewMessage().at(300).uncounted());
  EXPECT_EQ(rows(kProgress), Rows{"300|1|0|0"});
}

TEST_F(SaveMessage, FirstMessageCountsUnreadAndMentionSeparately) {
  save(NewMessage().in("a", CV_GROUP));
  save(NewMessage().in("b", CV_GROUP).uncounted().mention());
  EXPECT_EQ(rows("select session_id,unread_count,mention_count from t_session order by session_id"),
            (Rows{"a|1|0", "b|0|1"}));
}

TEST_F(SaveMessage, FirstMessageOfHistoryCreatesTheConversation) {
  save(NewMessage().at(300).fetched());
  EXPECT_EQ(rows(kProgress), Rows{"300|1|1|0"});
}

TEST_F(SaveMessage, FirstMessageWithInsertOnlyCreatesTheConversation) {
  save(NewMessage().at(300).inserted_only());
  EXPECT_EQ(rows(kProgress), Rows{"300|1|1|0"});
}

TEST_F(SaveMessage, ConversationIsIdentifiedByIdAndKind) {
  save(NewMessage().in("x", CV_GROUP));
  save(NewMessage().in("x", CV_PRIVATE));
  EXPECT_EQ(rows("select session_type,latest_id from t_session order by session_type"),
            (Rows{"1|2", "2|1"}));
}

TEST_F(SaveMessage, NewerMessageMovesItsConversationAndAddsToTheCounters) {
  plant_session("room", CV_GROUP, 500, 9, 3, 2);
  save(NewMessage().at(501).mention());
  EXPECT_EQ(rows(kProgress), Rows{"501|1|4|3"});
}

TEST_F(SaveMessage, UncountedMessageKeepsTheCounters) {
  plant_session("room", CV_GROUP, 500, 9, 3, 2);
  save(NewMessage().at(501).uncounted());
  EXPECT_EQ(rows(kProgress), Rows{"501|1|3|2"});
}

TEST_F(SaveMessage, CountersAreAddedSeparately) {
  plant_session("room", CV_GROUP, 500, 9, 3, 2);
  save(NewMessage().at(501).uncounted().mention());
  EXPECT_EQ(rows(kProgress), Rows{"501|1|3|3"});
}

TEST_F(SaveMessage, SettingsOfTheConversationAreKept) {
  plant(
      "insert into t_session(session_id,session_type,title,draft,is_top,session_time,unread_count,"
      "mention_count,silence,latest_id,read_time,receipt_time) values('room',2,'title','draft',1,500,3,2,8,9,6,7)");
  save(NewMessage().at(501));
  EXPECT_EQ(rows(kSession), Rows{"room|2|title|draft|1|501|4|2|8|1|6|7"});
}

TEST_F(SaveMessage, OlderLiveMessageMovesTheConversationBack) {
  plant_session("room", CV_GROUP, 500, 9, 3, 2);
  save(NewMessage().at(400));
  EXPECT_EQ(rows(kProgress), Rows{"400|1|4|2"});
}

TEST_F(SaveMessage, OlderHistoryDoesNotChangeTheConversation) {
  plant_session("room", CV_GROUP, 500, 9, 3, 2);
  save(NewMessage().at(400).mention().fetched());
  EXPECT_EQ(rows(kProgress), Rows{"500|9|3|2"});
  EXPECT_EQ(rows(kMessageCount), Rows{"1"});
}

TEST_F(SaveMessage, HistoryOfEqualTimeCountsAsOlder) {
  plant_session("room", CV_GROUP, 500, 9, 3, 2);
  save(NewMessage().at(500).fetched());
  EXPECT_EQ(rows(kProgress), Rows{"500|9|3|2"});
}

TEST_F(SaveMessage, NewerHistoryMovesTheConversation) {
  plant_session("room", CV_GROUP, 500, 9, 3, 2);
  save(NewMessage().at(501).fetched());
  EXPECT_EQ(rows(kProgress), Rows{"501|1|4|2"});
}

TEST_F(SaveMessage, OlderHistoryMovesAConversationWithoutNewestMessage) {
  plant_session("room", CV_GROUP, 500, -1, 3, 2);
  save(NewMessage().at(400).fetched());
  EXPECT_EQ(rows(kProgress), Rows{"400|1|4|2"});
}

TEST_F(SaveMessage, InsertOnlyWithAnOlderGivenTimeOnlyAddsToTheCounters) {
  plant_session("room", CV_GROUP, 500, 9, 3, 2);
  save(NewMessage().at(400).mention().inserted_only());
  EXPECT_EQ(rows(kProgress), Rows{"500|9|4|3"});
  EXPECT_EQ(rows("select sent_time from t_message"), Rows{"400"});
}

TEST_F(SaveMessage, InsertOnlyWithoutTimeBecomesTheNewestMessageAndKeepsTheTime) {
  plant_session("room", CV_GROUP, 2000000, 9);
  save(NewMessage().at(0).inserted_only());
  EXPECT_EQ(rows(kProgress), Rows{"2000000|1|1|0"});
  EXPECT_EQ(rows("select sent_time from t_message"), Rows{"1000000"});
}

TEST_F(SaveMessage, InsertOnlyWithAGivenTimeBecomesTheNewestMessageIfThereIsNone) {
  plant_session("room", CV_GROUP, 500, -1);
  save(NewMessage().at(400).inserted_only());
  EXPECT_EQ(rows(kProgress), Rows{"500|1|1|0"});
}

TEST_F(SaveMessage, NewerInsertOnlyMovesTheConversation) {
  plant_session("room", CV_GROUP, 500, 9);
  save(NewMessage().at(501).inserted_only());
  EXPECT_EQ(rows(kProgress), Rows{"501|1|1|0"});
}

TEST_F(SaveMessage, OlderHistoryWithInsertOnlyIsTreatedAsHistory) {
  plant_session("room", CV_GROUP, 500, 9, 3, 2);
  save(NewMessage().at(400).fetched().inserted_only());
  EXPECT_EQ(rows(kProgress), Rows{"500|9|3|2"});
}

TEST_F(SaveMessage, OlderNotificationKeepsTheNewestMessage) {
  plant_session("room", CV_GROUP, 500, 9);
  save(NewMessage().at(400).kind("CV:QbNtf"));
  EXPECT_EQ(rows(kProgress), Rows{"400|9|1|0"});
}

TEST_F(SaveMessage, CountersWrapAtTheirLimit) {
  plant_session("room", CV_GROUP, 500, 9, std::numeric_limits<int32_t>::max(),
                std::numeric_limits<int32_t>::max());
  save(NewMessage().at(501).mention());
  EXPECT_EQ(rows(kProgress), Rows{"501|1|-2147483648|-2147483648"});
}

TEST_F(SaveMessage, LargestPossibleTimeIsStored) {
  save(NewMessage().at(std::numeric_limits<int64_t>::max()));
  EXPECT_EQ(rows("select sent_time from t_message"), Rows{"9223372036854775807"});
  EXPECT_EQ(rows("select session_time from t_session"), Rows{"9223372036854775807"});
}

TEST_F(SaveMessage, SingleSaveOpensNoTransaction) {
  save(NewMessage().own(5).named("u1"));
  const Rows ledger = take_ledger();
  EXPECT_FALSE(ledger.empty());
  EXPECT_EQ(std::count(ledger.begin(), ledger.end(), "begin transaction"), 0);
}

// ---- Failures of the single save ----------------------------------------------------------------

TEST_F(SaveMessage, RefusedInsertStoresNothingAndKeepsTheConversation) {
  plant_session("room", CV_GROUP, 500, 9, 3, 2);
  plant(refuse("insert on t_message"));
  EXPECT_EQ(save(NewMessage().at(501)), -1);
  EXPECT_EQ(rows(kMessageCount), Rows{"0"});
  EXPECT_EQ(rows(kProgress), Rows{"500|9|3|2"});
}

TEST_F(SaveMessage, RefusedInsertCreatesNoConversation) {
  plant(refuse("insert on t_message"));
  EXPECT_EQ(save(NewMessage()), -1);
  EXPECT_EQ(rows(kSession), Rows{});
}

TEST_F(SaveMessage, FailedPreparesAreLoggedOnlyByTheStatementLayer) {
  store().execute_none_query("drop table t_message");
  EXPECT_EQ(save(NewMessage().own(5).named("u1")), -1);
  // by server uid, by client key, the insert
  EXPECT_EQ(log.take(), (Rows{kNoTable, kNoTable, kNoTable}));
  EXPECT_EQ(rows(kSession), Rows{});
}

TEST_F(SaveMessage, FailedConversationUpdateIsOnlyLogged) {
  save(NewMessage().at(100));
  plant(refuse("update on t_session"));
  EXPECT_EQ(save(NewMessage().at(200)), 2);
  EXPECT_EQ(rows(kMessageCount), Rows{"2"});
  EXPECT_EQ(rows(kProgress), Rows{"100|1|1|0"});
  EXPECT_EQ(log.take(), (Rows{kStepRefused, kFinalizeRefused}));
}

TEST_F(SaveMessage, FailedConversationInsertIsOnlyLogged) {
  plant(refuse("insert on t_session"));
  EXPECT_EQ(save(NewMessage()), 1);
  EXPECT_EQ(rows(kMessageCount), Rows{"1"});
  EXPECT_EQ(rows(kSession), Rows{});
}

// ---- Batch save ---------------------------------------------------------------------------------

TEST_F(SaveMessage, BatchStoresEachColumnAsGiven) {
  plant("insert into t_message(id) values(40)");
  Batch batch = batch_of({"body"});
  MessageResponse& m = *batch[0];
  m.session_type_ = CV_SYSTEM;
  m.object_name_ = "kind";
  m.sender_ = "author";
  m.server_uid_ = "uid";
  m.is_receive_ = true;
  m.read_status_ = 7;
  m.sent_status_ = 8;
  m.sent_time_ = 4000000000000;
  m.client_uid_ = 5000000000000;
  EXPECT_TRUE(store().save_message(batch));
  EXPECT_EQ(m.msg_id_, 41);
  EXPECT_EQ(rows(kMessages).back(),
            "41|room|5|kind|body|author|1|8|7|0|4000000000000|5000000000000|uid");
}

TEST_F(SaveMessage, BatchStoresOwnMessagesWithTheGivenReadStatus) {
  store().save_message(batch_of({"body"}));
  EXPECT_EQ(rows("select direction,read_status from t_message"), Rows{"0|0"});
}

TEST_F(SaveMessage, BatchStoresChatRoomMessagesWithTheGivenReadStatus) {
  Batch batch = batch_of({"body"});
  batch[0]->session_type_ = CV_CHATROOM;
  batch[0]->is_receive_ = true;
  store().save_message(batch);
  EXPECT_EQ(rows("select direction,read_status from t_message"), Rows{"1|0"});
}

TEST_F(SaveMessage, BatchStoresTimesAsGiven) {
  Batch batch = batch_of({"a", "b"});
  batch[1]->sent_time_ = -5;
  store().save_message(batch);
  EXPECT_EQ(rows("select sent_time from t_message order by id"), (Rows{"0", "-5"}));
}

TEST_F(SaveMessage, BatchGivesEachRecordItsId) {
  Batch batch = batch_of({"a", "b", "c"});
  store().save_message(batch);
  EXPECT_EQ(batch[0]->msg_id_, 1);
  EXPECT_EQ(batch[1]->msg_id_, 2);
  EXPECT_EQ(batch[2]->msg_id_, 3);
  EXPECT_EQ(rows("select id,content from t_message order by id"), (Rows{"1|a", "2|b", "3|c"}));
}

TEST_F(SaveMessage, BatchIdAbove32BitsIsNotTruncated) {
  plant("insert into t_message(id) values(5000000000)");
  Batch batch = batch_of({"a"});
  store().save_message(batch);
  EXPECT_EQ(batch[0]->msg_id_, 5000000001);
}

TEST_F(SaveMessage, BatchSetsTheIdOfASkippedRecordToZero) {
  Batch batch = batch_of({"a"});
  batch[0]->is_store_ = false;
  EXPECT_TRUE(store().save_message(batch));
  EXPECT_EQ(batch[0]->msg_id_, 0);
  EXPECT_EQ(rows(kMessageCount), Rows{"0"});
}

TEST_F(SaveMessage, BatchStoresRecordsWithAnyNegativeId) {
  Batch batch = batch_of({"a"});
  batch[0]->msg_id_ = -9;
  store().save_message(batch);
  EXPECT_EQ(batch[0]->msg_id_, 1);
}

TEST_F(SaveMessage, BatchSkipsRecordsWithAnId) {
  Batch batch = batch_of({"a", "b", "c"});
  batch[0]->msg_id_ = 0;
  batch[1]->msg_id_ = 7;
  batch[2]->msg_id_ = 8;
  batch[2]->is_store_ = false;
  EXPECT_TRUE(store().save_message(batch));
  EXPECT_EQ(batch[0]->msg_id_, 0);
  EXPECT_EQ(batch[1]->msg_id_, 7);
  EXPECT_EQ(batch[2]->msg_id_, 8);
  EXPECT_EQ(rows(kMessageCount), Rows{"0"});
}

TEST_F(SaveMessage, BatchRunsNoDuplicateTest) {
  save(NewMessage().own(5).named("u1"));
  Batch batch = batch_of({"again"});
  batch[0]->sender_ = "me";
  batch[0]->client_uid_ = 5;
  batch[0]->server_uid_ = "u1";
  store().save_message(batch);
  EXPECT_EQ(rows("select server_uid from t_message"), (Rows{"u1", "u1"}));
}

TEST_F(SaveMessage, BatchDoesNotTouchTheConversations) {
  plant_session("room", CV_GROUP, 500, 9, 3, 2);
  Batch batch = batch_of({"a", "b"});
  batch[1]->session_id_ = "new";
  batch[1]->sent_time_ = 900;
  store().save_message(batch);
  EXPECT_EQ(rows(kProgress), Rows{"500|9|3|2"});
}

TEST_F(SaveMessage, BatchOpensNoTransaction) {
  Batch batch = batch_of({"a", "b"});
  take_ledger();
  store().save_message(batch);
  EXPECT_EQ(take_ledger(),
            Rows{"insert into t_message(session_id,session_type,object_name,sender,content,"
                 "direction,read_status,sent_status,sent_time,client_uid,server_uid) "
                 "values(?,?,?,?,?,?,?,?,?,?,?)"});
}

TEST_F(SaveMessage, BatchLogsNoLineOfItsOwn) {
  LogCapture all;
  Batch batch = batch_of({"a"});
  store().save_message(batch);
  EXPECT_EQ(all.take(), Rows{});
}

TEST_F(SaveMessage, EmptyBatchSucceeds) {
  EXPECT_TRUE(store().save_message(Batch()));
}

TEST_F(SaveMessage, BatchRecordWhoseInsertFailedGetsThePreviousId) {
  plant(refuse("insert on t_message when new.content='bad'"));
  Batch batch = batch_of({"a", "bad", "c"});
  EXPECT_TRUE(store().save_message(batch));
  EXPECT_EQ(batch[0]->msg_id_, 1);
  EXPECT_EQ(batch[1]->msg_id_, 1);
  EXPECT_EQ(rows("select id,content from t_message order by id"),
            (Rows{"1|a", std::to_string(batch[2]->msg_id_) + "|c"}));
  EXPECT_EQ(log.take(), (Rows{kStepRefused, kResetRefused}));
}

TEST_F(SaveMessage, BatchSucceedsWhenItsLastInsertFailed) {
  plant(refuse("insert on t_message when new.content='bad'"));
  EXPECT_TRUE(store().save_message(batch_of({"a", "bad"})));
  EXPECT_EQ(log.take(), (Rows{kStepRefused, kFinalizeRefused}));
}

TEST_F(SaveMessage, BatchThatCannotBePreparedFails) {
  store().execute_none_query("drop table t_message");
  Batch batch = batch_of({"a", "b"});
  batch[1]->is_store_ = false;
  EXPECT_FALSE(store().save_message(batch));
  EXPECT_EQ(batch[0]->msg_id_, -1);
  EXPECT_EQ(batch[1]->msg_id_, -1);
  EXPECT_EQ(log.take(), Rows{kNoTable});
}

TEST_F(SaveMessage, BatchTextsEndAtTheirFirstZeroByte) {
  store().save_message(batch_of({std::string("ab\0cd", 5)}));
  EXPECT_EQ(rows("select content from t_message"), Rows{"ab"});
}

// ---- Test by time -------------------------------------------------------------------------------

TEST_F(SaveMessage, TimeTestFindsReceivedMessageAfterTheTime) {
  save(NewMessage().at(200));
  EXPECT_TRUE(store().is_message_exist("room", CV_GROUP, 199));
}

TEST_F(SaveMessage, TimeTestExcludesTheTimeItself) {
  save(NewMessage().at(200));
  EXPECT_FALSE(store().is_message_exist("room", CV_GROUP, 200));
}

TEST_F(SaveMessage, TimeTestFindsOwnMessageThatTheReceiptCovers) {
  save(NewMessage().own().at(200).status(3));
  EXPECT_TRUE(store().is_message_exist("room", CV_GROUP, 100));
}

TEST_F(SaveMessage, TimeTestSkipsOtherOwnMessages) {
  for (const int32_t status : {0, 1, 2}) save(NewMessage().own().at(200).status(status));
  EXPECT_FALSE(store().is_message_exist("room", CV_GROUP, 100));
}

TEST_F(SaveMessage, TimeTestSkipsMessagesOfDirectionTwo) {
  plant(
      "insert into t_message(session_id,session_type,direction,sent_status,sent_time) "
      "values('room',2,2,3,200)");
  EXPECT_FALSE(store().is_message_exist("room", CV_GROUP, 100));
}

TEST_F(SaveMessage, TimeTestIgnoresOtherConversations) {
  save(NewMessage().at(200));
  EXPECT_FALSE(store().is_message_exist("other", CV_GROUP, 100));
  EXPECT_FALSE(store().is_message_exist("room", CV_PRIVATE, 100));
}

TEST_F(SaveMessage, TimeTestComparesIn64Bits) {
  save(NewMessage().at(4000000000000));
  EXPECT_TRUE(store().is_message_exist("room", CV_GROUP, 3999999999999));
  EXPECT_FALSE(store().is_message_exist("room", CV_GROUP, 4000000000000));
}

// ---- Test by a list of server uids --------------------------------------------------------------

TEST_F(SaveMessage, ListTestAppendsTheStoredServerUids) {
  save(NewMessage().named("u1"));
  save(NewMessage().named("u2").in("user2", CV_PRIVATE));
  save(NewMessage().named("u3"));
  std::vector<std::string> found = {"before"};
  EXPECT_TRUE(store().is_message_exist("'u1','u2','u9'", found));
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, (Rows{"before", "u1", "u2"}));
}

TEST_F(SaveMessage, ListTestWithoutAMatchSucceeds) {
  std::vector<std::string> found = {"before"};
  EXPECT_TRUE(store().is_message_exist("'u9'", found));
  EXPECT_EQ(found, Rows{"before"});
}

TEST_F(SaveMessage, ListTestOfEmptyListSucceeds) {
  save(NewMessage());
  std::vector<std::string> found;
  EXPECT_TRUE(store().is_message_exist("", found));
  EXPECT_EQ(found, Rows{});
}

TEST_F(SaveMessage, ListTestReturnsAServerUidOncePerRow) {
  plant("insert into t_message(server_uid) values('u1'),('u1')");
  std::vector<std::string> found;
  store().is_message_exist("'u1'", found);
  EXPECT_EQ(found, (Rows{"u1", "u1"}));
}

TEST_F(SaveMessage, ListTestPastesTheListUnchanged) {
  take_ledger();
  std::vector<std::string> found;
  EXPECT_FALSE(store().is_message_exist("'it's'", found));
  EXPECT_EQ(take_ledger(), Rows{"select server_uid from t_message where server_uid in('it's')"});
  EXPECT_EQ(found, Rows{});
}

TEST_F(SaveMessage, ListTestSucceedsWhenAStepFailed) {
  plant(
      "insert into t_message(server_uid) values('u1'),('u2'),('u3');"
      "alter table t_message rename to t_rows;"
      "create view t_message as select case id when 2 then abs(-9223372036854775807-1+0*id) "
      "else server_uid end as server_uid from t_rows");
  std::vector<std::string> found;
  EXPECT_TRUE(store().is_message_exist("'u1','u2','u3'", found));
  EXPECT_EQ(found, Rows{"u1"});
  EXPECT_EQ(log.take(), run_failed(1, "integer overflow"));
}

// ---- Batch test by client key -------------------------------------------------------------------

TEST_F(SaveMessage, BatchTestFillsTheMatchingElements) {
  save(NewMessage().own(5).named("u1"));
  save(NewMessage().own(6));
  std::vector<UpdateValue> values = {key_of(6), key_of(5)};
  EXPECT_TRUE(store().is_message_exist(values));
  EXPECT_EQ(values[0].msg_id_, 2);
  EXPECT_EQ(values[0].server_uid_old_, "");
  EXPECT_EQ(values[1].msg_id_, 1);
  EXPECT_EQ(values[1].server_uid_old_, "u1");
}

TEST_F(SaveMessage, BatchTestReplacesTheServerUidByAnEmptyOne) {
  save(NewMessage().own(5));
  std::vector<UpdateValue> values = {key_of(5)};
  values[0].server_uid_old_ = "stale";
  store().is_message_exist(values);
  EXPECT_EQ(values[0].server_uid_old_, "");
}

TEST_F(SaveMessage, BatchTestKeepsTheOtherFields) {
  save(NewMessage().own(5).named("u1"));
  std::vector<UpdateValue> values = {key_of(5)};
  values[0].server_uid_new_ = "new";
  values[0].sent_time_ = 900;
  store().is_message_exist(values);
  EXPECT_EQ(values[0].server_uid_new_, "new");
  EXPECT_EQ(values[0].sent_time_, 900);
  EXPECT_EQ(values[0].client_uid_, 5);
}

TEST_F(SaveMessage, BatchTestKeepsElementsWithoutAMatch) {
  save(NewMessage().own(5));
  std::vector<UpdateValue> values = {key_of(5), key_of(6)};
  values[1].msg_id_ = 77;
  values[1].server_uid_old_ = "kept";
  EXPECT_TRUE(store().is_message_exist(values));
  EXPECT_EQ(values[1].msg_id_, 77);
  EXPECT_EQ(values[1].server_uid_old_, "kept");
}

TEST_F(SaveMessage, BatchTestContinuesAfterAnElementWithoutAMatch) {
  save(NewMessage().own(5));
  std::vector<UpdateValue> values = {key_of(9), key_of(5)};
  EXPECT_TRUE(store().is_message_exist(values));
  EXPECT_EQ(values[0].msg_id_, -1);
  EXPECT_EQ(values[1].msg_id_, 1);
}

TEST_F(SaveMessage, BatchTestWithoutAnyMatchReturnsFalse) {
  save(NewMessage().own(5));
  std::vector<UpdateValue> values = {key_of(6)};
  EXPECT_FALSE(store().is_message_exist(values));
  values.clear();
  EXPECT_FALSE(store().is_message_exist(values));
}

TEST_F(SaveMessage, BatchTestDoesNotSkipClientUidsBelowOne) {
  save(NewMessage().own(0));
  save(NewMessage().own(-3));
  std::vector<UpdateValue> values = {key_of(0), key_of(-3)};
  EXPECT_TRUE(store().is_message_exist(values));
  EXPECT_EQ(values[0].msg_id_, 1);
  EXPECT_EQ(values[1].msg_id_, 2);
}

TEST_F(SaveMessage, BatchTestComparesConversationAndSender) {
  save(NewMessage().own(5));
  std::vector<UpdateValue> values = {key_of(5), key_of(5), key_of(5)};
  values[0].session_id_ = "other";
  values[1].session_type_ = CV_PRIVATE;
  values[2].sender_ = "you";
  EXPECT_FALSE(store().is_message_exist(values));
}

TEST_F(SaveMessage, BatchTestSignExtendsThe32BitId) {
  plant(
      "insert into t_message(id,session_id,session_type,client_uid,sender) "
      "values(2147483648,'room',2,5,'me'),(4294967301,'room',2,6,'me')");
  std::vector<UpdateValue> values = {key_of(5), key_of(6)};
  store().is_message_exist(values);
  EXPECT_EQ(values[0].msg_id_, -2147483648);
  EXPECT_EQ(values[1].msg_id_, 5);
}

TEST_F(SaveMessage, TestsThatCannotBePreparedReturnFalse) {
  store().execute_none_query("drop table t_message");
  int64_t id = 77;
  std::string uid = "kept";
  std::vector<std::string> found = {"before"};
  std::vector<UpdateValue> values = {key_of(5)};
  EXPECT_FALSE(store().is_message_exist("u1"));
  EXPECT_FALSE(store().is_message_exist(5, "me", "room", CV_GROUP, id, uid));
  EXPECT_FALSE(store().is_message_exist("room", CV_GROUP, 100));
  EXPECT_FALSE(store().is_message_exist("'u1'", found));
  EXPECT_FALSE(store().is_message_exist(values));
  EXPECT_EQ(id, 77);
  EXPECT_EQ(uid, "kept");
  EXPECT_EQ(found, Rows{"before"});
  EXPECT_EQ(values[0].msg_id_, -1);
  EXPECT_EQ(log.take(), Rows(5, kNoTable));
}

// ---- Completing duplicates ----------------------------------------------------------------------

TEST_F(SaveMessage, CompletionMarksAMessageAsSentWithUidAndTime) {
  save(NewMessage().own(5).status(2).named("old").at(100));
  save(NewMessage().own(6).status(1).at(100));
  store().set_send_time_for_dup_msg(1, 4000000000000, "new");
  EXPECT_EQ(rows(kConfirmed), (Rows{"1|0|new|4000000000000", "2|1||100"}));
}

TEST_F(SaveMessage, CompletionAlsoWritesEmptyUidsAndTimesBelowOne) {
  save(NewMessage().own(5).named("old").at(100));
  store().set_send_time_for_dup_msg(1, -4, "");
  EXPECT_EQ(rows(kConfirmed), Rows{"1|0||-4"});
}

TEST_F(SaveMessage, CompletionBindsTheIdIn64Bits) {
  plant("insert into t_message(id) values(5),(4294967301)");
  store().set_send_time_for_dup_msg(4294967301, 9, "new");
  EXPECT_EQ(rows("select id,server_uid from t_message order by id"),
            (Rows{"5|", "4294967301|new"}));
}

TEST_F(SaveMessage, BatchCompletionMarksMessagesWithoutAServerUidAsSent) {
  save(NewMessage().own(5).status(1));
  save(NewMessage().own(6).status(2));
  std::vector<UpdateValue> values = {key_of(5), key_of(6)};
  values[0].server_uid_new_ = "u1";
  values[0].sent_time_ = 4000000000000;
  values[1].server_uid_new_ = "u2";
  values[1].sent_time_ = 500;
  store().is_message_exist(values);
  store().set_send_time_for_dup_msg(values);
  EXPECT_EQ(rows(kConfirmed), (Rows{"1|0|u1|4000000000000", "2|0|u2|500"}));
}

TEST_F(SaveMessage, BatchCompletionSkipsMessagesWithAServerUid) {
  save(NewMessage().own(5).named("u1").at(100));
  std::vector<UpdateValue> values = {key_of(5)};
  values[0].server_uid_new_ = "u2";
  store().is_message_exist(values);
  store().set_send_time_for_dup_msg(values);
  EXPECT_EQ(rows(kConfirmed), Rows{"1|0|u1|100"});
}

TEST_F(SaveMessage, BatchCompletionSkipsIdsBelowOne) {
  plant("insert into t_message(id) values(0),(-1)");
  std::vector<UpdateValue> values = {key_of(5), key_of(6)};
  values[0].msg_id_ = 0;
  values[1].msg_id_ = -1;
  values[0].server_uid_new_ = values[1].server_uid_new_ = "u1";
  store().set_send_time_for_dup_msg(values);
  EXPECT_EQ(rows("select server_uid from t_message"), (Rows{"", ""}));
}

TEST_F(SaveMessage, BatchCompletionContinuesAfterAFailure) {
  save(NewMessage().own(5).at(100));
  save(NewMessage().own(6).at(100));
  plant(refuse("update on t_message when old.id=1"));
  std::vector<UpdateValue> values = {key_of(5), key_of(6)};
  values[0].server_uid_new_ = "u1";
  values[1].server_uid_new_ = "u2";
  store().is_message_exist(values);
  store().set_send_time_for_dup_msg(values);
  EXPECT_EQ(rows(kConfirmed), (Rows{"1|0||100", "2|0|u2|0"}));
  EXPECT_EQ(log.take(), (Rows{kStepRefused, kResetRefused}));
}

TEST_F(SaveMessage, CompletionsThatCannotBePreparedAreLogged) {
  store().execute_none_query("drop table t_message");
  store().set_send_time_for_dup_msg(1, 100, "u1");
  store().set_send_time_for_dup_msg({key_of(5)});
  EXPECT_EQ(log.take(), (Rows{kNoTable, kNoTable}));
}

}  // namespace
}  // namespace corvan_test
