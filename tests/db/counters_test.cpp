#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tests/support/failures.h"
#include "tests/support/numbers.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CV_CHATROOM;
using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;
using Corvan::SessionType;

constexpr const char* kCounters =
    "select unread_count,mention_count,read_time from t_session order by rowid";
constexpr const char* kReceipts = "select receipt_time from t_session order by rowid";

class Counters : public StoreTest {
 protected:
  // Conversation ("room", group), and one of another kind with the same id, which must not change.
  void plant_room(int32_t unread, int32_t mention) const {
    plant_session("room", CV_GROUP, 100, -1, unread, mention);
    plant_session("room", CV_PRIVATE, 100, -1, 9, 9);
  }
  static Rows with_namesake(const std::string& row) { return {row, "9|9|0"}; }

  // An unread message with direction 2 in the room; only older stores have such rows.
  void plant_copied(int64_t time, int32_t is_mention = 0, int32_t read_status = 0) const {
    plant(
        "insert into t_message(session_id,session_type,direction,sent_time,is_mention,read_status) "
        "values('room',2,2," +
        std::to_string(time) + "," + std::to_string(is_mention) + "," +
        std::to_string(read_status) + ")");
  }

  // Conversations of three kinds; two kinds have a muted one.
  void plant_kinds() const {
    plant(
        "insert into t_session(session_id,session_type,unread_count,mention_count,silence) values"
        "('a',1,1,100,0),('b',1,2,200,1),('c',2,4,400,0),('d',2,8,800,2),('e',3,16,1600,0)");
  }
  int32_t unread_of(const std::vector<SessionType>& kinds, bool with_dnd) {
    int32_t count = -7;
    EXPECT_TRUE(store().get_cate_unread_count(kinds, count, with_dnd));
    return count;
  }

  // Removes a table, so that later statements cannot be prepared.
  void drop(const std::string& table) {
    ASSERT_EQ(store().execute_none_query("drop table " + table), kDone);
  }

  // Makes every update of a table fail when it is stepped.
  void refuse_updates(const std::string& table) const { plant(refuse("update on " + table)); }

  // Replaces t_session and t_message by views that can be prepared but not stepped.
  void make_rows_unreadable() const {
    plant(
        "drop table t_session; drop table t_message;"
        "create view t_session as select 'room' as session_id,2 as session_type,"
        "abs(-9223372036854775808) as unread_count,0 as mention_count,0 as silence,"
        "abs(-9223372036854775808) as receipt_time;"
        "create view t_message as select abs(-9223372036854775808) as id,'room' as session_id,"
        "2 as session_type,0 as read_status,1 as sent_time,2 as direction,"
        "abs(-9223372036854775808) as is_mention");
  }
};

// ---- Recount ------------------------------------------------------------------------------------

TEST_F(Counters, RecountIncludesUnreadOfDirectionTwoAfterTheTime) {
  plant_copied(kWide);
  plant_copied(kWide + 1, 1);
  plant_copied(kWide + 2, 1);
  plant_copied(kWide + 3, 0);
  plant_copied(kWide + 4, 1, 1);
  plant(
      "insert into t_message(session_id,session_type,direction,sent_time) values"
      "('room',1,2,9999999999),('other',2,2,9999999999),('room',2,1,9999999999),"
      "('room',2,0,9999999999)");
  int32_t unread = 0;
  int32_t mention = 0;
  EXPECT_TRUE(store().get_unred_mention("room", CV_GROUP, kWide, unread, mention));
  EXPECT_EQ(unread, 3);
  EXPECT_EQ(mention, 2);
}

TEST_F(Counters, RecountSumsMentionFlagsAsStored) {
  plant_copied(1, 5);
  plant_copied(1, -2);
  int32_t unread = 0;
  int32_t mention = 0;
  EXPECT_TRUE(store().get_unred_mention("room", CV_GROUP, 0, unread, mention));
  EXPECT_EQ(unread, 2);
  EXPECT_EQ(mention, 3);
}

TEST_F(Counters, EmptyRecountReadsAsZero) {
  int32_t unread = 7;
  int32_t mention = 7;
  EXPECT_TRUE(store().get_unred_mention("room", CV_GROUP, 0, unread, mention));
  EXPECT_EQ(unread, 0);
  EXPECT_EQ(mention, 0);
}

TEST_F(Counters, RecountThatCannotBeSteppedKeepsTheCallersValues) {
  make_rows_unreadable();
  int32_t unread = 7;
  int32_t mention = 8;
  EXPECT_FALSE(store().get_unred_mention("room", CV_GROUP, 0, unread, mention));
  EXPECT_EQ(unread, 7);
  EXPECT_EQ(mention, 8);
}

TEST_F(Counters, RecountThatCannotBePreparedKeepsTheCallersValues) {
  drop("t_message");
  int32_t unread = 7;
  int32_t mention = 8;
  EXPECT_FALSE(store().get_unred_mention("room", CV_GROUP, 0, unread, mention));
  EXPECT_EQ(unread, 7);
  EXPECT_EQ(mention, 8);
}

TEST_F(Counters, SynchronisedCountersIgnoreMessagesWrittenByTheStore) {
  save(NewMessage().at(500).mention());
  EXPECT_TRUE(store().sync_unread("room", CV_GROUP, 400));
  EXPECT_EQ(rows(kCounters), Rows{"0|0|400"});
}

TEST_F(Counters, SynchronisedCountersAreTheRecountAfterTheReadTime) {
  plant_room(9, 9);
  plant_copied(100, 1);
  plant_copied(101, 1);
  plant_copied(102);
  EXPECT_TRUE(store().sync_unread("room", CV_GROUP, 100));
  EXPECT_EQ(rows(kCounters), with_namesake("2|1|100"));
}

TEST_F(Counters, SynchronisingMayMoveTheReadTimeBack) {
  plant_room(9, 9);
  plant("update t_session set read_time=700 where session_type=2");
  EXPECT_TRUE(store().sync_unread("room", CV_GROUP, -5));
  EXPECT_EQ(rows(kCounters), with_namesake("0|0|-5"));
}

TEST_F(Counters, SynchronisingAMissingConversationSucceeds) {
  EXPECT_TRUE(store().sync_unread("room", CV_GROUP, 100));
  EXPECT_EQ(rows(kCounters), Rows{});
}

TEST_F(Counters, SynchronisingWithoutARecountLeavesTheCounters) {
  plant_room(3, 7);
  drop("t_message");
  EXPECT_FALSE(store().sync_unread("room", CV_GROUP, 100));
  EXPECT_EQ(rows(kCounters), with_namesake("3|7|0"));
}

TEST_F(Counters, FailedSynchronisingIsReported) {
  plant_room(3, 7);
  refuse_updates("t_session");
  EXPECT_FALSE(store().sync_unread("room", CV_GROUP, 100));
  EXPECT_EQ(rows(kCounters), with_namesake("3|7|0"));
  drop("t_session");
  EXPECT_FALSE(store().sync_unread("room", CV_GROUP, 100));
}

// ---- The user has read --------------------------------------------------------------------------

TEST_F(Counters, ClearingMarksMessagesAndMovesTheReadTimeToTheNewestReceived) {
  save(NewMessage().at(500).mention().client(1));
  save(NewMessage().at(700).client(2));
  save(NewMessage().at(900).own(3));
  EXPECT_TRUE(store().clear_unread("room", CV_GROUP));
  EXPECT_EQ(rows(kCounters), Rows{"0|0|700"});
  EXPECT_EQ(rows("select distinct read_status,is_mention from t_message"), Rows{"1|0"});
}

TEST_F(Counters, ClearingAffectsOneConversation) {
  plant_room(3, 7);
  save(NewMessage().in("other", CV_GROUP));
  EXPECT_TRUE(store().clear_unread("room", CV_GROUP));
  EXPECT_EQ(rows(kCounters), (Rows{"0|0|0", "9|9|0", "1|0|0"}));
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"0"});
}

TEST_F(Counters, ClearingWithoutReceivedMessagesSetsTheReadTimeToZero) {
  plant_room(3, 7);
  plant("update t_session set read_time=700 where session_type=2");
  save(NewMessage().at(900).own(1));
  EXPECT_TRUE(store().clear_unread("room", CV_GROUP));
  EXPECT_EQ(rows(kCounters), with_namesake("0|0|0"));
}

TEST_F(Counters, ClearingAMissingConversationSucceeds) {
  EXPECT_TRUE(store().clear_unread("room", CV_GROUP));
  EXPECT_EQ(rows(kCounters), Rows{});
}

TEST_F(Counters, ClearingIsOneTransaction) {
  EXPECT_TRUE(store().clear_unread("room", CV_GROUP));
  const Rows statements = take_ledger();
  ASSERT_FALSE(statements.empty());
  EXPECT_EQ(statements.front(), "begin transaction");
  EXPECT_EQ(statements.back(), "commit transaction");
}

TEST_F(Counters, ClearingKeepsTheCountersWhenTheMessagesCannotBeMarked) {
  save(NewMessage().mention());
  refuse_updates("t_message");
  EXPECT_FALSE(store().clear_unread("room", CV_GROUP));
  EXPECT_EQ(rows(kCounters), Rows{"1|1|0"});
  EXPECT_FALSE(in_transaction());
}

TEST_F(Counters, ClearingSucceedsWhenTheCountersCannotBeReset) {
  save(NewMessage());
  refuse_updates("t_session");
  EXPECT_TRUE(store().clear_unread("room", CV_GROUP));
  EXPECT_EQ(rows(kCounters), Rows{"1|0|0"});
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"1"});
}

TEST_F(Counters, ResettingSetsTheReadTimeAsGiven) {
  plant_room(3, 7);
  store().set_unread_readtime("room", CV_GROUP, kWide);
  EXPECT_EQ(rows(kCounters), with_namesake("0|0|4294967296"));
  store().set_unread_readtime("room", CV_GROUP, 5);
  EXPECT_EQ(rows(kCounters), with_namesake("0|0|5"));
}

TEST_F(Counters, FailedResettingIsOnlyLogged) {
  plant_room(3, 7);
  refuse_updates("t_session");
  store().set_unread_readtime("room", CV_GROUP, 5);
  EXPECT_EQ(log.take().size(), 2U);
  EXPECT_EQ(rows(kCounters), with_namesake("3|7|0"));
  drop("t_session");
  store().set_unread_readtime("room", CV_GROUP, 5);
  EXPECT_EQ(log.take().size(), 1U);
}

// ---- Receipt times ------------------------------------------------------------------------------

TEST_F(Counters, ReceiptTimeIsWrittenAsGiven) {
  plant_room(3, 7);
  store().set_receipttime("room", CV_GROUP, kWide);
  EXPECT_EQ(rows(kReceipts), (Rows{"4294967296", "0"}));
  store().set_receipttime("room", CV_GROUP, 5);
  EXPECT_EQ(rows(kReceipts), (Rows{"5", "0"}));
  EXPECT_EQ(rows(kCounters), with_namesake("3|7|0"));
}

TEST_F(Counters, FailedReceiptTimeIsOnlyLogged) {
  plant_room(3, 7);
  refuse_updates("t_session");
  store().set_receipttime("room", CV_GROUP, 5);
  EXPECT_EQ(log.take().size(), 2U);
  EXPECT_EQ(rows(kReceipts), (Rows{"0", "0"}));
}

TEST_F(Counters, BothGettersReadTheReceiptTime) {
  plant_room(3, 7);
  plant("update t_session set receipt_time=4294967296 where session_type=2");
  int64_t time = 0;
  store().get_receipt_time("room", CV_GROUP, time);
  EXPECT_EQ(time, kWide);
  time = 0;
  store().get_receipttime("room", CV_GROUP, time);
  EXPECT_EQ(time, kWide);
}

TEST_F(Counters, ReceiptTimeThatIsNotFoundKeepsTheCallersValue) {
  plant_room(3, 7);
  int64_t time = 7;
  store().get_receipt_time("other", CV_GROUP, time);
  store().get_receipttime("room", CV_CHATROOM, time);
  EXPECT_EQ(time, 7);
}

TEST_F(Counters, ReceiptTimeThatCannotBeReadKeepsTheCallersValue) {
  make_rows_unreadable();
  int64_t time = 7;
  store().get_receipt_time("room", CV_GROUP, time);
  store().get_receipttime("room", CV_GROUP, time);
  ASSERT_EQ(store().execute_none_query("drop view t_session"), kDone);
  store().get_receipt_time("room", CV_GROUP, time);
  store().get_receipttime("room", CV_GROUP, time);
  EXPECT_EQ(time, 7);
}

// ---- Sums and counts ----------------------------------------------------------------------------

TEST_F(Counters, TotalWithoutConversationsIsZero) {
  int32_t unread = 7;
  EXPECT_TRUE(store().get_total_unread_count(unread));
  EXPECT_EQ(unread, 0);
}

TEST_F(Counters, TotalSumsEveryConversation) {
  plant_session("a", CV_PRIVATE, 1, -1, 3);
  plant_session("b", CV_GROUP, 1, -1, -1);
  plant_session("c", 9, 1, -1, 5);
  plant("update t_session set silence=1 where session_id='c'");
  int32_t unread = 0;
  EXPECT_TRUE(store().get_total_unread_count(unread));
  EXPECT_EQ(unread, 7);
}

TEST_F(Counters, TotalIsTruncatedTo32Bits) {
  plant_session("a", CV_PRIVATE, 1, -1, kMaxInt);
  plant_session("b", CV_GROUP, 1, -1, 1);
  int32_t unread = 0;
  EXPECT_TRUE(store().get_total_unread_count(unread));
  EXPECT_EQ(unread, kMinInt);
}

TEST_F(Counters, UnreadOfOneConversation) {
  plant_room(3, 7);
  int32_t unread = 0;
  EXPECT_TRUE(store().get_unread_count("room", CV_GROUP, unread));
  EXPECT_EQ(unread, 3);
}

TEST_F(Counters, NegativeUnreadIsReadAsStored) {
  plant_room(-3, -7);
  int32_t unread = 0;
  int32_t mention = 0;
  EXPECT_TRUE(store().get_unread_count("room", CV_GROUP, unread));
  EXPECT_EQ(unread, -3);
  EXPECT_TRUE(store().get_unread_mention_count({CV_GROUP}, unread, mention));
  EXPECT_EQ(unread, -3);
  EXPECT_EQ(mention, -7);
}

TEST_F(Counters, UnreadOfAMissingConversationSucceedsAndKeepsTheCallersValue) {
  plant_room(3, 7);
  int32_t unread = 11;
  EXPECT_TRUE(store().get_unread_count("room", CV_CHATROOM, unread));
  EXPECT_EQ(unread, 11);
}

TEST_F(Counters, MessageCountIncludesAllMessagesOfTheConversation) {
  save(NewMessage().client(1));
  save(NewMessage().own(2));
  save(NewMessage().in("other", CV_GROUP));
  save(NewMessage().in("room", CV_PRIVATE));
  int32_t count = 0;
  EXPECT_TRUE(store().get_message_count("room", CV_GROUP, count));
  EXPECT_EQ(count, 2);
}

TEST_F(Counters, MessageCountOfAnEmptyConversationIsZero) {
  int32_t count = 7;
  EXPECT_TRUE(store().get_message_count("room", CV_GROUP, count));
  EXPECT_EQ(count, 0);
}

TEST_F(Counters, EmptyKindsWithMutedSumEveryConversation) {
  plant_kinds();
  EXPECT_EQ(unread_of({}, true), 31);
  EXPECT_EQ(take_ledger(), Rows{"select sum(unread_count) from t_session"});
}

TEST_F(Counters, EmptyKindsWithoutMutedSumConversationsOfSilenceZero) {
  plant_kinds();
  EXPECT_EQ(unread_of({}, false), 21);
  EXPECT_EQ(take_ledger(), Rows{"select sum(unread_count) from t_session where silence=0"});
}

TEST_F(Counters, KindsWithMutedSumAllTheirConversations) {
  plant_kinds();
  EXPECT_EQ(unread_of({CV_PRIVATE, CV_GROUP}, true), 15);
  EXPECT_EQ(take_ledger(),
            Rows{"select sum(unread_count) from t_session where session_type in(1,2)"});
}

TEST_F(Counters, KindsWithoutMutedSumTheirConversationsOfSilenceZero) {
  plant_kinds();
  EXPECT_EQ(unread_of({CV_PRIVATE, CV_GROUP}, false), 5);
  EXPECT_EQ(
      take_ledger(),
      Rows{"select sum(unread_count) from t_session where silence=0 and session_type in(1,2)"});
}

TEST_F(Counters, InvalidKindsAreIgnored) {
  plant_kinds();
  EXPECT_EQ(unread_of({static_cast<SessionType>(0), static_cast<SessionType>(6)}, true), 31);
  EXPECT_EQ(unread_of({static_cast<SessionType>(0), CV_CHATROOM}, true), 16);
}

TEST_F(Counters, KindWithoutConversationsSumsToZero) {
  plant_kinds();
  EXPECT_EQ(unread_of({Corvan::CV_SYSTEM}, true), 0);
}

TEST_F(Counters, UnreadAndMentionsOfKindsIncludeMuted) {
  plant_kinds();
  int32_t count = 0;
  int32_t mention = 0;
  EXPECT_TRUE(store().get_unread_mention_count({CV_GROUP, CV_CHATROOM}, count, mention));
  EXPECT_EQ(count, 28);
  EXPECT_EQ(mention, 2800);
}

TEST_F(Counters, UnreadAndMentionsOfEmptyKindsSumEveryConversation) {
  plant_kinds();
  int32_t count = 0;
  int32_t mention = 0;
  EXPECT_TRUE(store().get_unread_mention_count({}, count, mention));
  EXPECT_EQ(count, 31);
  EXPECT_EQ(mention, 3100);
}

TEST_F(Counters, UnreadAndMentionsOfAKindWithoutConversationsAreZero) {
  plant_kinds();
  int32_t count = 7;
  int32_t mention = 7;
  EXPECT_TRUE(store().get_unread_mention_count({Corvan::CV_SYSTEM}, count, mention));
  EXPECT_EQ(count, 0);
  EXPECT_EQ(mention, 0);
}

TEST_F(Counters, CountsThatCannotBePreparedFailAndKeepTheCallersValues) {
  drop("t_session");
  drop("t_message");
  int32_t unread = 7;
  int32_t mention = 8;
  EXPECT_FALSE(store().get_total_unread_count(unread));
  EXPECT_FALSE(store().get_unread_count("room", CV_GROUP, unread));
  EXPECT_FALSE(store().get_message_count("room", CV_GROUP, unread));
  EXPECT_FALSE(store().get_cate_unread_count({}, unread, true));
  EXPECT_FALSE(store().get_unread_mention_count({}, unread, mention));
  EXPECT_EQ(unread, 7);
  EXPECT_EQ(mention, 8);
  EXPECT_EQ(log.take().size(), 5U);
}

TEST_F(Counters, CountsThatCannotBeSteppedSucceedAndKeepTheCallersValues) {
  make_rows_unreadable();
  int32_t unread = 7;
  int32_t mention = 8;
  EXPECT_TRUE(store().get_total_unread_count(unread));
  EXPECT_TRUE(store().get_unread_count("room", CV_GROUP, unread));
  EXPECT_TRUE(store().get_message_count("room", CV_GROUP, unread));
  EXPECT_TRUE(store().get_cate_unread_count({}, unread, true));
  EXPECT_TRUE(store().get_unread_mention_count({}, unread, mention));
  EXPECT_EQ(unread, 7);
  EXPECT_EQ(mention, 8);
  EXPECT_EQ(log.take().size(), 10U);
}

// ---- Lowering by a delta ------------------------------------------------------------------------

TEST_F(Counters, UnreadDeltaOfZeroKeepsTheMentions) {
  plant_room(3, 7);
  EXPECT_TRUE(store().set_unread_by_value("room", CV_GROUP, 0, 5));
  EXPECT_EQ(rows(kCounters), with_namesake("3|7|0"));
  EXPECT_EQ(take_ledger(), Rows{});
}

TEST_F(Counters, BothCountersAreLoweredInOneStatement) {
  plant_room(3, 7);
  EXPECT_TRUE(store().set_unread_by_value("room", CV_GROUP, 2, 1));
  EXPECT_EQ(rows(kCounters), with_namesake("1|6|0"));
  EXPECT_EQ(take_ledger(), Rows{"update t_session set unread_count=unread_count-2,"
                                "mention_count=mention_count-1 "
                                "where session_id=? and session_type=?"});
}

TEST_F(Counters, AnyNegativeUnreadDeltaRaisesByOne) {
  for (const int32_t delta : {-1, -3, kMinInt}) {
    plant("delete from t_session");
    plant_room(3, 7);
    EXPECT_TRUE(store().set_unread_by_value("room", CV_GROUP, delta, 0));
    EXPECT_EQ(rows(kCounters), with_namesake("4|7|0")) << delta;
  }
}

TEST_F(Counters, MentionDeltaBelowOneKeepsTheMentions) {
  plant_room(3, 7);
  EXPECT_TRUE(store().set_unread_by_value("room", CV_GROUP, 1, 0));
  EXPECT_TRUE(store().set_unread_by_value("room", CV_GROUP, 1, -4));
  EXPECT_EQ(rows(kCounters), with_namesake("1|7|0"));
  EXPECT_EQ(take_ledger().back(),
            "update t_session set unread_count=unread_count-1 "
            "where session_id=? and session_type=?");
}

TEST_F(Counters, MentionsAreLoweredWhileUnreadIsRaised) {
  plant_room(3, 7);
  EXPECT_TRUE(store().set_unread_by_value("room", CV_GROUP, -1, 2));
  EXPECT_EQ(rows(kCounters), with_namesake("4|5|0"));
}

TEST_F(Counters, LoweringDoesNotStopAtZero) {
  plant_room(1, 0);
  EXPECT_TRUE(store().set_unread_by_value("room", CV_GROUP, 2, 3));
  EXPECT_EQ(rows(kCounters), with_namesake("-1|-3|0"));
}

TEST_F(Counters, LargestDeltasAreWrittenInFull) {
  plant_room(0, 0);
  EXPECT_TRUE(store().set_unread_by_value("room", CV_GROUP, kMaxInt, kMaxInt));
  EXPECT_EQ(rows(kCounters), with_namesake("-2147483647|-2147483647|0"));
}

TEST_F(Counters, LoweringAMissingConversationSucceeds) {
  EXPECT_TRUE(store().set_unread_by_value("room", CV_GROUP, 1, 1));
  EXPECT_EQ(rows(kCounters), Rows{});
}

TEST_F(Counters, FailedLoweringIsReported) {
  plant_room(3, 7);
  refuse_updates("t_session");
  EXPECT_FALSE(store().set_unread_by_value("room", CV_GROUP, 1, 1));
  EXPECT_EQ(rows(kCounters), with_namesake("3|7|0"));
  EXPECT_EQ(log.take().size(), 2U);
  drop("t_session");
  EXPECT_FALSE(store().set_unread_by_value("room", CV_GROUP, 1, 1));
  EXPECT_EQ(log.take().size(), 1U);
}

}  // namespace
}  // namespace corvan_test
