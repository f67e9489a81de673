#include <limits>
#include <sstream>
#include <utility>

#include "tests/support/failures.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;
using Corvan::CV_SYSTEM;
using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::SessionType;

using MessageQuery = StoreTest;
using Messages = std::vector<MessageResponse>;
using Ids = std::vector<int64_t>;
using Names = std::vector<std::string>;

constexpr int64_t kMaxTime = std::numeric_limits<int64_t>::max();

// Adds messages 1, 2, ... of one conversation, sent at these times.
std::string history(const std::vector<int64_t>& times, const std::string& id = "room",
                    SessionType type = CV_GROUP) {
  std::string values;
  for (const int64_t time : times) {
    values += values.empty() ? "" : ",";
    values += "('" + id + "'," + std::to_string(type) + ",1," + std::to_string(time) + ")";
  }
  return "insert into t_message(session_id,session_type,direction,sent_time) values" + values;
}

// Turns every message into a mention with direction 2, as copied from an older store.
constexpr const char* kMakeMentions = ";update t_message set direction=2,is_mention=1";

// Replaces the table by a view of it whose content fails for message 2.
constexpr const char* kMessage2Fails =
    "alter table t_message rename to t_rows;"
    "create view t_message as select id,session_id,session_type,object_name,sender,direction,"
    "sent_status,read_status,is_mention,sent_time,server_uid,"
    "case id when 2 then abs(-9223372036854775807-1+0*id) else content end as content from t_rows";
Rows step_failed_lines() {
  return run_failed(1, "integer overflow");
}

// A row with a different value in every column.
constexpr const char* kWholeRow =
    "insert into t_message(id,session_id,session_type,object_name,content,sender,direction,"
    "sent_status,read_status,is_mention,sent_time,client_uid,server_uid) "
    "values(41,'s',5,'kind','body','author',2,8,9,1,4000000000000,7,'uid')";

// Every field; the fields that queries fill come first.
std::string text(const MessageResponse& m) {
  std::ostringstream out;
  out << m.session_id_ << "|" << m.session_type_ << "|" << m.content_ << "|" << m.is_receive_ << "|"
      << m.read_status_ << "|" << m.sent_time_ << "|" << m.object_name_ << "|" << m.sent_status_
      << "|" << m.sender_ << "|" << m.msg_id_ << "|" << m.server_uid_ << "|" << m.unread_count_
      << "|" << m.mention_count_ << "|" << m.is_store_ << m.is_offline_ << m.is_command_
      << m.sync_time_ << "|" << m.client_uid_;
  return out.str();
}

Ids ids(const Messages& messages) {
  Ids result;
  for (const MessageResponse& message : messages) result.push_back(message.msg_id_);
  return result;
}

MessageResponse with_id(int64_t id) {
  MessageResponse message;
  message.msg_id_ = id;
  return message;
}

MessageResponse with_uid(const std::string& uid) {
  MessageResponse message;
  message.server_uid_ = uid;
  return message;
}

// A record in which the fields that no query fills are also set.
MessageResponse marked() {
  MessageResponse message;
  message.session_id_ = "old";
  message.unread_count_ = 11;
  message.mention_count_ = 12;
  message.is_store_ = true;
  message.sync_time_ = true;
  message.client_uid_ = 13;
  return message;
}

constexpr bool kAscending = false;
constexpr bool kDescending = true;

// The ids of one page of the conversation "room".
Ids page(CvDbSingleton& store, bool desc, int64_t anchor, int32_t count = 10,
         const Names& kinds = {}) {
  Messages messages;
  store.get_history_message_by_object_name("room", CV_GROUP, kinds, anchor, count, messages, desc);
  return ids(messages);
}

// The ids of a span of the conversation "room".
Ids span(CvDbSingleton& store, int64_t sent_time, int32_t left_count, int32_t right_count) {
  Messages messages;
  store.get_matched_message("room", CV_GROUP, sent_time, left_count, right_count, messages);
  return ids(messages);
}

// ---- One message --------------------------------------------------------------------------------

TEST_F(MessageQuery, LookupByIdFillsTheRowsFieldsAndKeepsTheOthers) {
  plant(kWholeRow);
  MessageResponse message = marked();
  message.msg_id_ = 41;
  EXPECT_TRUE(store().get_message_by_id(message));
  EXPECT_EQ(text(message), "s|5|body|1|9|4000000000000|kind|8|author|41|uid|11|12|1001|13");
}

TEST_F(MessageQuery, LookupByUidFillsTheRowsFieldsAndKeepsTheOthers) {
  plant(kWholeRow);
  MessageResponse message = marked();
  message.server_uid_ = "uid";
  EXPECT_TRUE(store().get_message_by_uid(message));
  EXPECT_EQ(text(message), "s|5|body|1|9|4000000000000|kind|8|author|41|uid|11|12|1001|13");
}

TEST_F(MessageQuery, LookupByIdComparesOnlyTheId) {
  save(NewMessage().named("u1"));
  save(NewMessage().named("u2"));
  MessageResponse message = with_id(1);
  message.server_uid_ = "u2";
  EXPECT_TRUE(store().query_message(message, false));
  EXPECT_EQ(message.server_uid_, "u1");
}

TEST_F(MessageQuery, LookupByUidComparesOnlyTheUid) {
  save(NewMessage().named("u1"));
  save(NewMessage().named("u2"));
  MessageResponse message = with_id(1);
  message.server_uid_ = "u2";
  EXPECT_TRUE(store().query_message(message, true));
  EXPECT_EQ(message.msg_id_, 2);
}

TEST_F(MessageQuery, MessageIsReceivedUnlessItsDirectionIsZero) {
  plant("insert into t_message(id,direction) values(1,0),(2,1),(3,2)");
  for (const int64_t id : {1, 2, 3}) {
    MessageResponse message = with_id(id);
    message.is_receive_ = id == 1;
    EXPECT_TRUE(store().get_message_by_id(message));
    EXPECT_EQ(message.is_receive_, id != 1);
  }
}

TEST_F(MessageQuery, MissingMessageKeepsTheRecord) {
  plant(kWholeRow);
  MessageResponse message = marked();
  message.msg_id_ = 9;
  message.server_uid_ = "none";
  const std::string before = text(message);
  EXPECT_FALSE(store().get_message_by_id(message));
  EXPECT_FALSE(store().get_message_by_uid(message));
  EXPECT_EQ(text(message), before);
}

TEST_F(MessageQuery, EmptyUidFindsAMessageWithoutAUid) {
  save(NewMessage());
  MessageResponse message;
  EXPECT_TRUE(store().get_message_by_uid(message));
  EXPECT_EQ(message.msg_id_, 1);
}

TEST_F(MessageQuery, UidIsBoundNotPasted) {
  save(NewMessage().named("it's"));
  MessageResponse message = with_uid("it's");
  EXPECT_TRUE(store().get_message_by_uid(message));
  EXPECT_EQ(message.msg_id_, 1);
}

TEST_F(MessageQuery, LookupByIdKeepsAll64BitsOfTheId) {
  plant("insert into t_message(id,content) values(5,'a'),(4294967301,'b')");
  MessageResponse message = with_id(4294967301);
  EXPECT_TRUE(store().get_message_by_id(message));
  EXPECT_EQ(message.content_, "b");
  EXPECT_EQ(message.msg_id_, 4294967301);
}

TEST_F(MessageQuery, LookupByUidTruncatesTheIdTo32Bits) {
  plant(
      "insert into t_message(id,server_uid) values(2147483647,'u0'),(2147483648,'u1'),"
      "(4294967301,'u2')");
  const std::vector<std::pair<std::string, int64_t>> expected = {
      {"u0", 2147483647}, {"u1", -2147483648}, {"u2", 5}};
  for (const auto& [uid, id] : expected) {
    MessageResponse message = with_uid(uid);
    EXPECT_TRUE(store().get_message_by_uid(message));
    EXPECT_EQ(message.msg_id_, id);
  }
}

TEST_F(MessageQuery, TextsAreReadUpToTheirFirstZeroByte) {
  plant("insert into t_message(id,content) values(1,cast(x'61620063' as text))");
  MessageResponse message = with_id(1);
  store().get_message_by_id(message);
  EXPECT_EQ(message.content_, "ab");
}

TEST_F(MessageQuery, NullColumnsReadAsEmptyAndZero) {
  plant(
      "insert into t_message(id,session_id,session_type,object_name,content,sender,direction,"
      "sent_status,read_status,sent_time,server_uid) "
      "values(1,null,null,null,null,null,null,null,null,null,null)");
  MessageResponse message = with_id(1);
  EXPECT_TRUE(store().get_message_by_id(message));
  EXPECT_EQ(text(message), "|0||0|0|0||0||1||0|0|0000|0");
}

TEST_F(MessageQuery, LookupThatCannotBePreparedKeepsTheRecord) {
  store().execute_none_query("drop table t_message");
  MessageResponse message = marked();
  const std::string before = text(message);
  EXPECT_FALSE(store().get_message_by_id(message));
  EXPECT_FALSE(store().get_message_by_uid(message));
  EXPECT_EQ(text(message), before);
  EXPECT_EQ(log.take(), Rows(2, no_table("t_message")));
}

// ---- The history pager --------------------------------------------------------------------------

TEST_F(MessageQuery, PageFillsTheRowsFields) {
  plant(kWholeRow);
  Messages messages;
  EXPECT_TRUE(
      store().get_history_message_by_object_name("s", CV_SYSTEM, {}, 0, 10, messages, kDescending));
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_EQ(text(messages[0]), "s|5|body|1|9|4000000000000|kind|8|author|41|uid|0|0|0000|0");
}

TEST_F(MessageQuery, PageMessagesAreReceivedUnlessTheirDirectionIsZero) {
  plant(history({100, 200, 300}) + ";update t_message set direction=id-1");
  Messages messages;
  store().get_history_message_by_object_name("room", CV_GROUP, {}, -1, 10, messages, kAscending);
  ASSERT_EQ(messages.size(), 3U);
  EXPECT_FALSE(messages[0].is_receive_);
  EXPECT_TRUE(messages[1].is_receive_);
  EXPECT_TRUE(messages[2].is_receive_);
}

TEST_F(MessageQuery, PageCopiesTheConversationFromTheArguments) {
  plant(history({100}));
  const std::string id("room\0x", 6);
  Messages messages;
  store().get_history_message_by_object_name(id, CV_GROUP, {}, 0, 10, messages, kDescending);
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_EQ(messages[0].session_id_, id);
}

TEST_F(MessageQuery, FirstDescendingPageStartsWithTheNewestMessage) {
  plant(history({200, 300, 100}));
  EXPECT_EQ(page(store(), kDescending, 0, 2), (Ids{2, 1}));
}

TEST_F(MessageQuery, FirstAscendingPageIsEmpty) {
  plant(history({100, 200}));
  EXPECT_EQ(page(store(), kAscending, 0), Ids{});
}

TEST_F(MessageQuery, FirstPageIsAnchoredOneAfterTheNewestMessageOfAnyState) {
  plant(history({100, 200, 300}) + ";update t_message set direction=0,sent_status=id");
  EXPECT_EQ(page(store(), kDescending, 0), (Ids{3, 2, 1}));
}

TEST_F(MessageQuery, FirstPageOfEmptyConversationIsAnchoredAtOne) {
  LogCapture info(cvrtc::LS_INFO);
  EXPECT_EQ(page(store(), kDescending, 0), Ids{});
  const Rows lines = info.take();
  EXPECT_NE(lines.back().find("search_time: 1sqlStr: "), std::string::npos);
}

TEST_F(MessageQuery, PageBeforeAMessageIsNewestFirst) {
  plant(history({100, 400, 200, 300}));
  EXPECT_EQ(page(store(), kDescending, 2, 2), (Ids{4, 3}));
}

TEST_F(MessageQuery, PageAfterAMessageIsOldestFirst) {
  plant(history({100, 400, 200, 300}));
  EXPECT_EQ(page(store(), kAscending, 1, 2), (Ids{3, 4}));
}

TEST_F(MessageQuery, PagesExcludeAllMessagesOfTheAnchorsTime) {
  plant(history({100, 200, 200, 200, 300}));
  EXPECT_EQ(page(store(), kDescending, 3), Ids{1});
  EXPECT_EQ(page(store(), kAscending, 3), Ids{5});
}

TEST_F(MessageQuery, DescendingPageSortsEqualTimesByDescendingId) {
  plant(history({100, 100, 100, 200}));
  EXPECT_EQ(page(store(), kDescending, 4, 2), (Ids{3, 2}));
}

TEST_F(MessageQuery, AscendingPageSortsEqualTimesByAscendingId) {
  plant(history({50, 100, 100, 100}));
  EXPECT_EQ(page(store(), kAscending, 1, 2), (Ids{2, 3}));
}

TEST_F(MessageQuery, UnknownAnchorCountsAsTimeZero) {
  plant(history({100, 200}));
  EXPECT_EQ(page(store(), kDescending, 9), Ids{});
  EXPECT_EQ(page(store(), kAscending, 9), (Ids{1, 2}));
}

TEST_F(MessageQuery, NegativeAnchorCountsAsTimeZero) {
  plant(history({100, 200}) + ";insert into t_message(id,sent_time) values(-1,150)");
  EXPECT_EQ(page(store(), kDescending, -1), Ids{});
  EXPECT_EQ(page(store(), kAscending, -1), (Ids{1, 2}));
}

TEST_F(MessageQuery, TimeZeroIsComparedStrictly) {
  plant(history({-5, 0, 5}));
  EXPECT_EQ(page(store(), kDescending, 9), Ids{1});
  EXPECT_EQ(page(store(), kAscending, 9), Ids{3});
}

TEST_F(MessageQuery, AnchorMayBeInAnotherConversation) {
  plant(history({100, 200, 300}));
  plant(history({250}, "other"));
  EXPECT_EQ(page(store(), kDescending, 4), (Ids{2, 1}));
}

TEST_F(MessageQuery, PageContainsOnlyItsConversation) {
  plant(history({100}));
  plant(history({110}, "other"));
  plant(history({120}, "room", CV_PRIVATE));
  EXPECT_EQ(page(store(), kAscending, -1), Ids{1});
  EXPECT_EQ(page(store(), kDescending, 0), Ids{1});
}

TEST_F(MessageQuery, PageWithCountZeroIsEmpty) {
  plant(history({100}));
  EXPECT_EQ(page(store(), kDescending, 0, 0), Ids{});
}

TEST_F(MessageQuery, PageWithTheLargestCountContainsEverything) {
  plant(history({100, 200}));
  EXPECT_EQ(page(store(), kDescending, 0, std::numeric_limits<int32_t>::max()), (Ids{2, 1}));
}

TEST_F(MessageQuery, PageWithANegativeCountContainsEverything) {
  plant(history({100, 200}));
  EXPECT_EQ(page(store(), kDescending, 0, -1), (Ids{2, 1}));
}

TEST_F(MessageQuery, PageAcceptsAnIdInsideTheVector) {
  plant(history({100, 200, 300}));
  Messages messages(1);
  messages[0].session_id_ = "room";
  store().get_history_message_by_object_name(messages[0].session_id_, CV_GROUP, {}, 0, 10, messages,
                                             kDescending);
  EXPECT_EQ(ids(messages), (Ids{0, 3, 2, 1}));
  EXPECT_EQ(messages[3].session_id_, "room");
}

TEST_F(MessageQuery, PageIsAppendedToTheVector) {
  plant(history({100, 200}));
  Messages messages = {with_id(77)};
  EXPECT_TRUE(store().get_history_message_by_object_name("room", CV_GROUP, {}, 0, 10, messages,
                                                         kDescending));
  EXPECT_EQ(ids(messages), (Ids{77, 2, 1}));
}

TEST_F(MessageQuery, EmptyPageReturnsFalse) {
  Messages messages;
  EXPECT_FALSE(store().get_history_message_by_object_name("room", CV_GROUP, {}, 0, 10, messages,
                                                          kDescending));
}

TEST_F(MessageQuery, EmptyPageReturnsTrueForANonEmptyVector) {
  Messages messages = {with_id(77)};
  EXPECT_TRUE(store().get_history_message_by_object_name("room", CV_GROUP, {}, 0, 10, messages,
                                                         kDescending));
  EXPECT_EQ(ids(messages), Ids{77});
}

TEST_F(MessageQuery, PageTruncatesIdsTo32Bits) {
  plant(
      "insert into t_message(id,session_id,session_type,sent_time) "
      "values(2147483647,'room',2,1),(2147483648,'room',2,2),(4294967301,'room',2,3)");
  EXPECT_EQ(page(store(), kAscending, -1), (Ids{2147483647, -2147483648, 5}));
}

TEST_F(MessageQuery, PageAccepts64BitAnchors) {
  plant(history({100, 200, 300}) + ";update t_message set id=4294967298 where id=2");
  EXPECT_EQ(page(store(), kDescending, 4294967298), Ids{1});
}

TEST_F(MessageQuery, PageComparesTimesIn64Bits) {
  plant(history({3999999999999, 4000000000000, 4000000000001}));
  EXPECT_EQ(page(store(), kDescending, 2), Ids{1});
  EXPECT_EQ(page(store(), kAscending, 2), Ids{3});
}

TEST_F(MessageQuery, AnchorAfterTheLargestPossibleTimeWraps) {
  plant(history({100, kMaxTime}));
  EXPECT_EQ(page(store(), kDescending, 0), Ids{});
  EXPECT_EQ(page(store(), kAscending, 0), (Ids{1, 2}));
}

TEST_F(MessageQuery, KindsRestrictThePage) {
  plant(history({100, 200, 300}) +
        ";update t_message set object_name=case id when 1 then 'A' when 2 then 'B' else 'C' end");
  EXPECT_EQ(page(store(), kDescending, 0, 10, {"A", "C"}), (Ids{3, 1}));
  EXPECT_EQ(page(store(), kAscending, 1, 10, {"A", "C"}), Ids{3});
}

TEST_F(MessageQuery, KindsFilterBeforeTheLimit) {
  plant(history({100, 200, 300}) +
        ";update t_message set object_name=case id when 3 then 'B' else 'A' end");
  EXPECT_EQ(page(store(), kDescending, 0, 2, {"A"}), (Ids{2, 1}));
}

TEST_F(MessageQuery, EmptyKindsAmongOthersAreIgnored) {
  plant(history({100, 200}) +
        ";update t_message set object_name=case id when 1 then 'A' else '' end");
  EXPECT_EQ(page(store(), kDescending, 0, 10, {"", "A"}), Ids{1});
  EXPECT_EQ(page(store(), kDescending, 0, 10, {"A", ""}), Ids{1});
}

TEST_F(MessageQuery, EmptyKindsAloneRestrictNothing) {
  plant(history({100, 200}) +
        ";update t_message set object_name=case id when 1 then 'A' else '' end");
  EXPECT_EQ(page(store(), kDescending, 0, 10, {"", ""}), (Ids{2, 1}));
}

TEST_F(MessageQuery, KindWithAQuoteFails) {
  plant(history({100}));
  Messages messages = {with_id(77)};
  EXPECT_FALSE(store().get_history_message_by_object_name("room", CV_GROUP, {"it's"}, 0, 10,
                                                          messages, kDescending));
  EXPECT_EQ(ids(messages), Ids{77});
  EXPECT_EQ(log.take(), Rows{prepare_failed("near \"s\": syntax error")});
}

TEST_F(MessageQuery, KindEscapedByTheCallerIsFound) {
  plant(history({100}) + ";update t_message set object_name='it''s'");
  EXPECT_EQ(page(store(), kDescending, 0, 10, {"it''s"}), Ids{1});
}

TEST_F(MessageQuery, PageThatCannotBePreparedKeepsTheVectorAndFails) {
  store().execute_none_query("drop table t_message");
  Messages messages = {with_id(77)};
  EXPECT_FALSE(store().get_history_message_by_object_name("room", CV_GROUP, {}, 5, 10, messages,
                                                          kDescending));
  EXPECT_EQ(ids(messages), Ids{77});
  EXPECT_EQ(log.take(), Rows(2, no_table("t_message")));  // the anchor and the page
}

TEST_F(MessageQuery, PageEndsAtAFailedStepAndKeepsItsMessages) {
  plant(history({100, 200, 300}));
  plant(kMessage2Fails);
  Messages messages;
  EXPECT_TRUE(store().get_history_message_by_object_name("room", CV_GROUP, {}, -1, 10, messages,
                                                         kAscending));
  EXPECT_EQ(ids(messages), Ids{1});
  EXPECT_EQ(log.take(), step_failed_lines());
}

TEST_F(MessageQuery, PageWhoseFirstStepFailsReturnsFalse) {
  plant(history({100, 200, 300}));
  plant(kMessage2Fails);
  Messages messages;
  EXPECT_FALSE(store().get_history_message_by_object_name("room", CV_GROUP, {}, 1, 10, messages,
                                                          kAscending));
  EXPECT_EQ(log.take(), step_failed_lines());
}

// ---- The pager for one kind ---------------------------------------------------------------------

TEST_F(MessageQuery, PageByTimeTreatsAMessageIdAsItsAnchor) {
  plant(history({2, 3, 4, 5}));
  Messages messages;
  EXPECT_TRUE(
      store().get_history_message_by_time("room", CV_GROUP, "", 3, 10, messages, kDescending));
  EXPECT_EQ(ids(messages), (Ids{2, 1}));
}

TEST_F(MessageQuery, PageByTimeZeroStartsAfterTheNewestMessage) {
  plant(history({100, 200, 300}));
  Messages messages;
  EXPECT_TRUE(
      store().get_history_message_by_time("room", CV_GROUP, "", 0, 2, messages, kDescending));
  EXPECT_EQ(ids(messages), (Ids{3, 2}));
}

TEST_F(MessageQuery, PageByTimeRestrictsToItsKind) {
  plant(history({100, 200}) + ";update t_message set object_name='A' where id=1");
  Messages messages;
  EXPECT_TRUE(
      store().get_history_message_by_time("room", CV_GROUP, "A", 0, 10, messages, kDescending));
  EXPECT_EQ(ids(messages), Ids{1});
}

TEST_F(MessageQuery, PageByTimeCanAscend) {
  plant(history({100, 200, 300}));
  Messages messages;
  EXPECT_TRUE(
      store().get_history_message_by_time("room", CV_GROUP, "", 1, 10, messages, kAscending));
  EXPECT_EQ(ids(messages), (Ids{2, 3}));
}

TEST_F(MessageQuery, PageByTimeIsAppendedToTheVector) {
  Messages messages = {with_id(77)};
  EXPECT_TRUE(
      store().get_history_message_by_time("room", CV_GROUP, "", 0, 10, messages, kDescending));
  EXPECT_EQ(ids(messages), Ids{77});
}

TEST_F(MessageQuery, EmptyPageByTimeReturnsTrueForANonEmptyVector) {
  Messages page(1);
  EXPECT_TRUE(store().get_history_message_by_time("room", CV_GROUP, "", 0, 5, page, true));
  EXPECT_EQ(page.size(), 1U);
}

// ---- Mentions -----------------------------------------------------------------------------------

TEST_F(MessageQuery, MentionsAreTheTenNewestOldestFirst) {
  plant(history({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15}) + kMakeMentions);
  Messages messages;
  EXPECT_TRUE(store().get_mention_message("room", CV_GROUP, messages));
  EXPECT_EQ(ids(messages), (Ids{6, 7, 8, 9, 10, 11, 12, 13, 14, 15}));
}

TEST_F(MessageQuery, MentionFillsTheRowsFields) {
  plant(kWholeRow);
  Messages messages;
  EXPECT_TRUE(store().get_mention_message("s", CV_SYSTEM, messages));
  ASSERT_EQ(messages.size(), 1U);
  // The sent status is 0, whatever is stored.
  EXPECT_EQ(text(messages[0]), "s|5|body|1|9|4000000000000|kind|0|author|41|uid|0|0|0000|0");
}

TEST_F(MessageQuery, MentionCopiesTheConversationFromTheArguments) {
  plant(history({100}) + kMakeMentions);
  const std::string id("room\0x", 6);
  Messages messages;
  store().get_mention_message(id, CV_GROUP, messages);
  ASSERT_EQ(messages.size(), 1U);
  EXPECT_EQ(messages[0].session_id_, id);
}

TEST_F(MessageQuery, MentionsWrittenByTheStoreAreNotListed) {
  save(NewMessage().mention());
  save(NewMessage().own().mention());
  Messages messages;
  EXPECT_FALSE(store().get_mention_message("room", CV_GROUP, messages));
}

TEST_F(MessageQuery, OnlyMessagesFlaggedOneAreMentions) {
  plant(history({100, 200, 300}) + kMakeMentions + ";update t_message set is_mention=id-1");
  Messages messages;
  EXPECT_TRUE(store().get_mention_message("room", CV_GROUP, messages));
  EXPECT_EQ(ids(messages), Ids{2});
}

TEST_F(MessageQuery, MentionsBelongToTheConversation) {
  plant(history({100}, "other"));
  plant(history({100}, "room", CV_PRIVATE) + kMakeMentions);
  Messages messages;
  EXPECT_FALSE(store().get_mention_message("room", CV_GROUP, messages));
}

TEST_F(MessageQuery, MentionsOfEqualTimesEndWithTheLargestId) {
  plant(history({100, 100}) + kMakeMentions);
  Messages messages;
  store().get_mention_message("room", CV_GROUP, messages);
  EXPECT_EQ(ids(messages), (Ids{1, 2}));
}

TEST_F(MessageQuery, MentionsAreInsertedAtTheFront) {
  plant(history({100, 200}) + kMakeMentions);
  Messages messages = {with_id(77)};
  EXPECT_TRUE(store().get_mention_message("room", CV_GROUP, messages));
  EXPECT_EQ(ids(messages), (Ids{1, 2, 77}));
}

TEST_F(MessageQuery, MentionsAcceptAnIdInsideTheVector) {
  plant(history({100, 200, 300}) + kMakeMentions);
  Messages messages(2);
  messages.reserve(10);  // so that the first insertion moves another id to where this one was
  messages[0].session_id_ = "zone";
  messages[1].session_id_ = "room";
  store().get_mention_message(messages[1].session_id_, CV_GROUP, messages);
  EXPECT_EQ(ids(messages), (Ids{1, 2, 3, 0, 0}));
  EXPECT_EQ(messages[0].session_id_, "room");
}

TEST_F(MessageQuery, NoMentionsReturnTrueForANonEmptyVector) {
  Messages messages = {with_id(77)};
  EXPECT_TRUE(store().get_mention_message("room", CV_GROUP, messages));
  EXPECT_EQ(ids(messages), Ids{77});
}

TEST_F(MessageQuery, MentionsTruncateIdsTo32Bits) {
  plant(
      "insert into t_message(id,session_id,session_type,sent_time) "
      "values(2147483648,'room',2,1),(4294967301,'room',2,2)" +
      std::string(kMakeMentions));
  Messages messages;
  store().get_mention_message("room", CV_GROUP, messages);
  EXPECT_EQ(ids(messages), (Ids{-2147483648, 5}));
}

TEST_F(MessageQuery, MentionsLogNothing) {
  plant(history({100}) + kMakeMentions);
  LogCapture all;
  Messages messages;
  store().get_mention_message("room", CV_GROUP, messages);
  EXPECT_EQ(all.take(), Rows{});
}

TEST_F(MessageQuery, MentionsThatCannotBePreparedKeepTheVectorAndFail) {
  store().execute_none_query("drop table t_message");
  Messages messages = {with_id(77)};
  EXPECT_FALSE(store().get_mention_message("room", CV_GROUP, messages));
  EXPECT_EQ(ids(messages), Ids{77});
  EXPECT_EQ(log.take(), Rows{no_table("t_message")});
}

TEST_F(MessageQuery, MentionsEndAtAFailedStepAndKeepThoseRead) {
  plant(history({100, 200, 300}) + kMakeMentions);
  plant(kMessage2Fails);
  Messages messages;
  EXPECT_TRUE(store().get_mention_message("room", CV_GROUP, messages));
  EXPECT_EQ(ids(messages), Ids{3});
  EXPECT_EQ(log.take(), step_failed_lines());
}

// ---- A span around a point ----------------------------------------------------------------------

// Small times are also valid message ids; large times cannot be mistaken for ids.

TEST_F(MessageQuery, SpanUsesTheNewestTimeOfItsOlderPageAsTheSecondAnchor) {
  plant(history({2, 3, 4, 5, 6, 7, 8}));
  // Before message 4 (time 5): 3 and 2. Message 3 was sent at 4: after message 4: 5 and 6.
  EXPECT_EQ(span(store(), 4, 2, 1), (Ids{6, 5, 3, 2}));
}

TEST_F(MessageQuery, SpanReadsNewestFirstWhenTimesEqualIds) {
  plant(history({1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(span(store(), 4, 2, 2), (Ids{6, 5, 4, 3, 2}));
}

TEST_F(MessageQuery, SpanWhoseSecondAnchorIsUnknownStartsAtTheOldestMessages) {
  plant(history({100, 200, 300, 400, 500}));
  EXPECT_EQ(span(store(), 4, 2, 1), (Ids{2, 1, 3, 2}));
}

TEST_F(MessageQuery, SpanWithoutOlderMessagesUsesThePointMinusOneAsTheSecondAnchor) {
  plant(history({500, 600, 200, 700}));
  // Nothing is before message 3. Message 4 is after message 2 (time 600).
  EXPECT_EQ(span(store(), 3, 5, 5), Ids{4});
}

TEST_F(MessageQuery, SpanAroundTheFirstMessageIsAnchoredAfterTheNewest) {
  plant(history({100, 200, 300}));
  // Nothing is before message 1, and 0 means the end of the conversation.
  Messages messages;
  EXPECT_FALSE(store().get_matched_message("room", CV_GROUP, 1, 5, 5, messages));
  EXPECT_EQ(ids(messages), Ids{});
}

TEST_F(MessageQuery, SpanAroundZeroStartsWithTheNewestMessages) {
  plant(history({100, 200, 3}));
  // Before the end: 2 and 1. Message 200 is unknown, so the newer page starts at the oldest.
  EXPECT_EQ(span(store(), 0, 2, 0), (Ids{3, 2, 1}));
}

TEST_F(MessageQuery, SpanAroundUnknownPointContainsTheOldestMessages) {
  plant(history({100, 200, 300}));
  EXPECT_EQ(span(store(), 77, 5, 1), (Ids{2, 1}));
}

TEST_F(MessageQuery, SpanAroundNegativePointContainsTheOldestMessages) {
  plant(history({100, 200, 300}));
  EXPECT_EQ(span(store(), -4, 5, 1), (Ids{2, 1}));
}

TEST_F(MessageQuery, SpanWithLeftCountZeroHasNoOlderPage) {
  plant(history({100, 200, 300, 400}));
  EXPECT_EQ(span(store(), 3, 0, 5), (Ids{4, 3}));
}

TEST_F(MessageQuery, SpanReadsOneMessageMoreThanTheRightCount) {
  plant(history({100, 200, 300}));
  EXPECT_EQ(span(store(), -4, 0, 0), Ids{1});
  EXPECT_EQ(span(store(), -4, 0, -1), Ids{});
}

TEST_F(MessageQuery, SpanAroundTheSmallestPossiblePointWraps) {
  plant(history({100, 200, 300}));
  EXPECT_EQ(span(store(), std::numeric_limits<int64_t>::min(), 5, 1), (Ids{2, 1}));
}

TEST_F(MessageQuery, SpanWithTheLargestRightCountContainsEverything) {
  plant(history({100, 200, 300}));
  EXPECT_EQ(span(store(), -4, 0, std::numeric_limits<int32_t>::max()), (Ids{3, 2, 1}));
}

TEST_F(MessageQuery, SpanIsAddedAroundTheVectorsElements) {
  plant(history({2, 3, 4, 5, 6, 7, 8}));
  Messages messages = {with_id(77), with_id(78)};
  EXPECT_TRUE(store().get_matched_message("room", CV_GROUP, 4, 2, 1, messages));
  EXPECT_EQ(ids(messages), (Ids{6, 5, 77, 78, 3, 2}));
}

TEST_F(MessageQuery, SpanAcceptsAnIdInsideTheVector) {
  plant(history({2, 3, 4, 5, 6, 7, 8}));
  Messages messages(1);
  messages[0].session_id_ = "room";
  store().get_matched_message(messages[0].session_id_, CV_GROUP, 4, 2, 1, messages);
  EXPECT_EQ(ids(messages), (Ids{6, 5, 0, 3, 2}));
}

TEST_F(MessageQuery, EmptySpanReturnsFalse) {
  Messages messages;
  EXPECT_FALSE(store().get_matched_message("room", CV_GROUP, 4, 2, 1, messages));
}

TEST_F(MessageQuery, EmptySpanReturnsTrueForANonEmptyVector) {
  Messages messages = {with_id(77)};
  EXPECT_TRUE(store().get_matched_message("room", CV_GROUP, 4, 2, 1, messages));
  EXPECT_EQ(ids(messages), Ids{77});
}

TEST_F(MessageQuery, SpanContainsOnlyItsConversation) {
  plant(history({100, 200}));
  plant(history({110}, "other"));
  plant(history({120}, "room", CV_PRIVATE));
  EXPECT_EQ(span(store(), 2, 5, 5), (Ids{2, 1, 1}));
}

TEST_F(MessageQuery, SpanTruncatesIdsTo32Bits) {
  plant(
      "insert into t_message(id,session_id,session_type,sent_time) "
      "values(2147483648,'room',2,100),(4294967301,'room',2,200)");
  EXPECT_EQ(span(store(), 4294967301, 5, 5), (Ids{5, -2147483648, -2147483648}));
}

TEST_F(MessageQuery, SpanIsOneTransaction) {
  plant(history({100, 200}));
  take_ledger();
  span(store(), 2, 1, 1);
  const Rows ledger = take_ledger();
  EXPECT_EQ(ledger.front(), "begin transaction");
  EXPECT_EQ(ledger.back(), "commit transaction");
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(MessageQuery, SpanThatCannotBePreparedFailsAndCommits) {
  store().execute_none_query("drop table t_message");
  take_ledger();
  Messages messages;
  EXPECT_FALSE(store().get_matched_message("room", CV_GROUP, 4, 2, 1, messages));
  EXPECT_EQ(log.take(), Rows(4, no_table("t_message")));  // both pages with their anchors
  EXPECT_EQ(take_ledger().back(), "commit transaction");
}

// ---- Latest time and id -------------------------------------------------------------------------

// Each `type` has a different newest message and a different largest id.
constexpr const char* kChoices =
    "insert into t_message(id,session_id,session_type,direction,sent_status,sent_time) values"
    "(4294967301,'room',2,0,1,4000000000003),"
    "(4294967302,'room',2,1,2,4000000000002),"
    "(4294967303,'room',2,0,0,4000000000001),"
    "(4294967304,'room',2,0,2,4000000000000),"
    "(4294967305,'other',2,1,0,5000000000000),"
    "(4294967306,'room',1,1,0,5000000000000)";

TEST_F(MessageQuery, MaxTimeOfReceivedMessages) {
  plant(kChoices);
  int64_t time = 77;
  store().get_max_time(time, CV_GROUP, "room", 1);
  EXPECT_EQ(time, 4000000000002);
}

TEST_F(MessageQuery, MaxTimeOfSentMessages) {
  plant(kChoices);
  int64_t time = 77;
  store().get_max_time(time, CV_GROUP, "room", 0);
  EXPECT_EQ(time, 4000000000001);
}

TEST_F(MessageQuery, MaxTimeForAnyOtherTypeCoversAllMessages) {
  plant(kChoices);
  for (const int32_t type : {2, 3, -1}) {
    int64_t time = 77;
    store().get_max_time(time, CV_GROUP, "room", type);
    EXPECT_EQ(time, 4000000000003);
  }
}

TEST_F(MessageQuery, MaxTimeOfSentMessagesIncludesReceivedOnes) {
  save(NewMessage().own().at(100));
  save(NewMessage().at(200).status(0));
  int64_t time = 77;
  store().get_max_time(time, CV_GROUP, "room", 0);
  EXPECT_EQ(time, 200);
}

TEST_F(MessageQuery, MaxTimeReplacesALargerValueOfTheCaller) {
  plant(history({-5}));
  int64_t time = 77;
  store().get_max_time(time, CV_GROUP, "room", 2);
  EXPECT_EQ(time, -5);
}

TEST_F(MessageQuery, MaxTimeKeepsTheCallersValueOnAMiss) {
  plant(history({100}, "other"));
  plant(history({100}, "room", CV_PRIVATE));
  int64_t time = 77;
  store().get_maxtime(time, CV_GROUP, "room", 2);
  EXPECT_EQ(time, 77);
}

TEST_F(MessageQuery, MaxTimeThatCannotBePreparedKeepsTheCallersValue) {
  store().execute_none_query("drop table t_message");
  int64_t time = 77;
  store().get_max_time(time, CV_GROUP, "room", 2);
  EXPECT_EQ(time, 77);
  EXPECT_EQ(log.take(), Rows{no_table("t_message")});
}

TEST_F(MessageQuery, MaxIdIsTheLargest64BitIdNotTheNewest) {
  plant(kChoices);
  EXPECT_EQ(store().get_max_message_id(CV_GROUP, "room", 2), 4294967304);
  EXPECT_EQ(store().get_max_message_id(CV_GROUP, "room", -1), 4294967304);
}

TEST_F(MessageQuery, MaxIdOfReceivedMessages) {
  plant(kChoices);
  EXPECT_EQ(store().get_max_message_id(CV_GROUP, "room", 1), 4294967302);
}

TEST_F(MessageQuery, MaxIdOfSentMessages) {
  plant(kChoices);
  EXPECT_EQ(store().get_max_message_id(CV_GROUP, "room", 0), 4294967303);
}

TEST_F(MessageQuery, MaxIdWithoutAMatchIsMinusOne) {
  plant(history({100}, "other"));
  plant(history({100}, "room", CV_PRIVATE));
  EXPECT_EQ(store().get_max_message_id(CV_GROUP, "room", 2), -1);
}

TEST_F(MessageQuery, MaxIdThatCannotBePreparedIsMinusOne) {
  store().execute_none_query("drop table t_message");
  EXPECT_EQ(store().get_max_message_id(CV_GROUP, "room", 2), -1);
  EXPECT_EQ(log.take(), Rows{no_table("t_message")});
}

// ---- A message's conversation and state ---------------------------------------------------------

TEST_F(MessageQuery, ReadsTheStateOfAMessage) {
  plant(
      "insert into t_message(id,session_id,session_type,read_status,is_mention,sent_time) "
      "values(4294967301,'s',5,0,1,4000000000000)");
  std::string session_id;
  int32_t session_type = 0;
  bool is_unread = false;
  bool is_mention = false;
  int64_t sent_time = 0;
  EXPECT_TRUE(store().get_message_by_id(4294967301, session_id, session_type, is_unread, is_mention,
                                        sent_time));
  EXPECT_EQ(session_id, "s");
  EXPECT_EQ(session_type, 5);
  EXPECT_TRUE(is_unread);
  EXPECT_TRUE(is_mention);
  EXPECT_EQ(sent_time, 4000000000000);
}

TEST_F(MessageQuery, OnlyZeroIsUnreadAndOnlyOneIsAMention) {
  plant("insert into t_message(id,read_status,is_mention) values(1,1,0),(2,2,2),(3,-1,-1)");
  for (const int64_t id : {1, 2, 3}) {
    std::string session_id;
    int32_t session_type = 0;
    bool is_unread = true;
    bool is_mention = true;
    int64_t sent_time = 0;
    EXPECT_TRUE(
        store().get_message_by_id(id, session_id, session_type, is_unread, is_mention, sent_time));
    EXPECT_FALSE(is_unread);
    EXPECT_FALSE(is_mention);
  }
}

TEST_F(MessageQuery, StateOfAMissingMessageKeepsTheCallersValues) {
  std::string session_id = "kept";
  int32_t session_type = 77;
  bool is_unread = true;
  bool is_mention = true;
  int64_t sent_time = 78;
  EXPECT_FALSE(
      store().get_message_by_id(9, session_id, session_type, is_unread, is_mention, sent_time));
  store().execute_none_query("drop table t_message");
  EXPECT_FALSE(
      store().get_message_by_id(9, session_id, session_type, is_unread, is_mention, sent_time));
  EXPECT_EQ(session_id, "kept");
  EXPECT_EQ(session_type, 77);
  EXPECT_TRUE(is_unread);
  EXPECT_TRUE(is_mention);
  EXPECT_EQ(sent_time, 78);
  EXPECT_EQ(log.take(), Rows{no_table("t_message")});
}

}  // namespace
}  // namespace corvan_test
