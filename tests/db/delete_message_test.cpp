#include <algorithm>

#include "tests/support/failures.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;

using DeleteMessage = StoreTest;
using Ids = std::vector<int64_t>;
using Uids = std::vector<std::string>;

constexpr const char* kIds = "select id from t_message order by id";
constexpr const char* kSessions =
    "select session_id,session_time,latest_id,unread_count,mention_count from t_session "
    "order by session_id";

// The log line of a compaction inside a transaction.
Rows vacuum_lines() {
  return run_failed(1, "cannot VACUUM from within a transaction");
}

// Some hundred pages of messages, all in the conversation of NewMessage.
constexpr const char* kManyMessages =
    "with recursive n(i) as (select 1 union all select i+1 from n where i<200) "
    "insert into t_message(session_id,session_type,sent_time,content) "
    "select 'room',2,i,hex(zeroblob(1000)) from n";

// ---- By id --------------------------------------------------------------------------------------

TEST_F(DeleteMessage, DeletesOnlyTheGivenMessages) {
  for (const int64_t time : {100, 200, 300}) save(NewMessage().at(time));
  EXPECT_TRUE(store().delete_message(Ids{1, 3}));
  EXPECT_EQ(rows(kIds), Rows{"2"});
}

TEST_F(DeleteMessage, NoIdsDeleteNothingAndSucceed) {
  save(NewMessage());
  EXPECT_TRUE(store().delete_message(Ids{}));
  EXPECT_EQ(rows(kIds), Rows{"1"});
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(DeleteMessage, IdsBelowOneDeleteNothingAndSucceed) {
  plant("insert into t_message(id) values(0),(-1)");
  take_ledger();
  EXPECT_TRUE(store().delete_message(Ids{0, -1}));
  EXPECT_EQ(rows(kIds), (Rows{"-1", "0"}));
  const Rows ledger = take_ledger();
  EXPECT_EQ(std::count(ledger.begin(), ledger.end(), "delete from t_message where id in()"), 1);
}

TEST_F(DeleteMessage, SkipsIdsBelowOneButNotRepeatedIds) {
  save(NewMessage().at(100));
  take_ledger();
  EXPECT_TRUE(store().delete_message(Ids{0, 1, -4, 1, 4294967301}));
  const Rows ledger = take_ledger();
  EXPECT_EQ(
      std::count(ledger.begin(), ledger.end(), "delete from t_message where id in(1,1,4294967301)"),
      1);
}

TEST_F(DeleteMessage, RepeatedIdCountsOnce) {
  save(NewMessage().at(100));
  save(NewMessage().at(200));
  EXPECT_TRUE(store().delete_message(Ids{1, 1}));
  EXPECT_EQ(rows(kSessions), Rows{"room|200|2|1|0"});
}

TEST_F(DeleteMessage, UnknownIdsSucceed) {
  save(NewMessage());
  EXPECT_TRUE(store().delete_message(Ids{9}));
  EXPECT_EQ(rows(kSessions), Rows{"room|100|1|1|0"});
}

TEST_F(DeleteMessage, DeletesIdsAbove32Bits) {
  plant("insert into t_message(id) values(5),(4294967301)");
  EXPECT_TRUE(store().delete_message(Ids{4294967301}));
  EXPECT_EQ(rows(kIds), Rows{"5"});
}

TEST_F(DeleteMessage, LargestPossibleIdIsDeleted) {
  plant("insert into t_message(id) values(5),(9223372036854775807)");
  EXPECT_TRUE(store().delete_message(Ids{9223372036854775807}));
  EXPECT_EQ(rows(kIds), Rows{"5"});
}

TEST_F(DeleteMessage, TwoUnreadMessagesLowerTheCounterInOneStatement) {
  for (const int64_t time : {100, 200, 300}) save(NewMessage().at(time));
  take_ledger();
  EXPECT_TRUE(store().delete_message(Ids{1, 2}));
  EXPECT_EQ(rows(kSessions), Rows{"room|300|3|1|0"});
  const Rows ledger = take_ledger();
  EXPECT_EQ(std::count(ledger.begin(), ledger.end(),
                       "update t_session set unread_count=unread_count-2 where session_id=? "
                       "and session_type=?"),
            1);
}

TEST_F(DeleteMessage, UnreadMentionLowersBothCounters) {
  save(NewMessage().at(100).mention());
  save(NewMessage().at(200).mention());
  EXPECT_TRUE(store().delete_message(Ids{1}));
  EXPECT_EQ(rows(kSessions), Rows{"room|200|2|1|1"});
}

TEST_F(DeleteMessage, ReadMessagesKeepBothCounters) {
  save(NewMessage().at(100));
  save(NewMessage().at(200));
  plant("update t_message set read_status=1");
  EXPECT_TRUE(store().delete_message(Ids{1}));
  EXPECT_EQ(rows(kSessions), Rows{"room|200|2|2|0"});
}

TEST_F(DeleteMessage, ReadMentionsKeepBothCounters) {
  save(NewMessage().at(100).mention());
  save(NewMessage().at(200));
  plant("update t_message set read_status=2");
  EXPECT_TRUE(store().delete_message(Ids{1}));
  EXPECT_EQ(rows(kSessions), Rows{"room|200|2|2|1"});
}

TEST_F(DeleteMessage, ReadMentionLowersTheMentionsTogetherWithAnUnreadMessage) {
  save(NewMessage().at(100).mention());
  save(NewMessage().at(200));
  save(NewMessage().at(300));
  plant("update t_message set read_status=1 where id=1");
  EXPECT_TRUE(store().delete_message(Ids{1, 2}));
  EXPECT_EQ(rows(kSessions), Rows{"room|300|3|2|0"});
}

TEST_F(DeleteMessage, EachConversationIsLoweredByItsOwnUnreadMessages) {
  save(NewMessage().in("a", CV_GROUP).at(100));
  save(NewMessage().in("a", CV_GROUP).at(200));
  save(NewMessage().in("b", CV_PRIVATE).at(100));
  save(NewMessage().in("b", CV_PRIVATE).at(200).mention());
  save(NewMessage().in("c", CV_GROUP).at(100));
  EXPECT_TRUE(store().delete_message(Ids{1, 3, 4}));
  EXPECT_EQ(rows(kSessions), (Rows{"a|200|2|1|0", "b|200|-1|0|0", "c|100|5|1|0"}));
}

TEST_F(DeleteMessage, ReadMentionsDoNotHideUnreadMessagesOfTheNextConversation) {
  save(NewMessage().in("a", CV_GROUP).at(100).mention());
  plant("update t_message set read_status=1");
  save(NewMessage().in("b", CV_GROUP).at(100));
  EXPECT_TRUE(store().delete_message(Ids{1, 2}));
  EXPECT_EQ(rows(kSessions), (Rows{"a|100|-1|1|1", "b|100|-1|0|0"}));
}

TEST_F(DeleteMessage, ConversationWithTwoElementsIsLoweredByBoth) {
  save(NewMessage().in("a", CV_GROUP).at(100));
  save(NewMessage().in("b", CV_GROUP).at(100));
  save(NewMessage().in("a", CV_GROUP).at(200));
  save(NewMessage().in("a", CV_GROUP).at(300));
  save(NewMessage().in("b", CV_GROUP).at(300));
  EXPECT_TRUE(store().delete_message(Ids{1, 2, 3}));
  // Message 3 is counted in the first element of "a" and again in a new one after "b": 3 - 2 - 1.
  EXPECT_EQ(rows(kSessions), (Rows{"a|300|4|0|0", "b|300|5|1|0"}));
}

TEST_F(DeleteMessage, CountersMayFallBelowZero) {
  save(NewMessage().at(100));
  save(NewMessage().at(200).mention());
  plant("update t_session set unread_count=0,mention_count=0");
  store().delete_message(Ids{2});
  EXPECT_EQ(rows(kSessions), Rows{"room|100|1|-1|-1"});
}

TEST_F(DeleteMessage, NewestMessageIsReplacedByTheNewestRemaining) {
  save(NewMessage().at(300));
  save(NewMessage().at(100));
  save(NewMessage().at(400));
  EXPECT_TRUE(store().delete_message(Ids{3}));
  EXPECT_EQ(rows(kSessions), Rows{"room|300|1|2|0"});
}

TEST_F(DeleteMessage, NewestRemainingAmongEqualTimesHasTheLargestId) {
  save(NewMessage().at(300));
  save(NewMessage().at(300));
  save(NewMessage().at(400));
  EXPECT_TRUE(store().delete_message(Ids{3}));
  EXPECT_EQ(rows(kSessions), Rows{"room|300|2|2|0"});
}

TEST_F(DeleteMessage, ConversationWithoutMessagesKeepsItsTime) {
  save(NewMessage().at(100));
  save(NewMessage().at(200));
  EXPECT_TRUE(store().delete_message(Ids{1, 2}));
  EXPECT_EQ(rows(kSessions), Rows{"room|200|-1|0|0"});
}

TEST_F(DeleteMessage, ConversationKeepsItsTimeIfItsNewestMessageRemains) {
  save(NewMessage().at(100));
  save(NewMessage().at(200));
  plant("update t_session set session_time=900");
  EXPECT_TRUE(store().delete_message(Ids{1}));
  EXPECT_EQ(rows(kSessions), Rows{"room|900|2|1|0"});
}

TEST_F(DeleteMessage, NewestMessageOfAnotherKindWithTheSameIdIsIgnored) {
  save(NewMessage().at(100));
  save(NewMessage().in("room", CV_PRIVATE).at(900));
  EXPECT_TRUE(store().delete_message(Ids{1}));
  EXPECT_EQ(rows("select session_time,latest_id from t_session where session_type=2"),
            Rows{"100|-1"});
}

TEST_F(DeleteMessage, NewestRemainingIdIsTruncatedTo32Bits) {
  plant(
      "insert into t_message(id,session_id,session_type,read_status,sent_time) "
      "values(4294967301,'room',2,1,100),(4294967302,'room',2,1,200)");
  plant_session("room", CV_GROUP, 200, 4294967302);
  EXPECT_TRUE(store().delete_message(Ids{4294967302}));
  EXPECT_EQ(rows(kSessions), Rows{"room|100|5|0|0"});
}

TEST_F(DeleteMessage, NewestRemainingIdTruncatedBelowZeroKeepsTheTime) {
  plant(
      "insert into t_message(id,session_id,session_type,read_status,sent_time) "
      "values(2147483648,'room',2,1,100),(2147483649,'room',2,1,200)");
  plant_session("room", CV_GROUP, 200, 2147483649);
  EXPECT_TRUE(store().delete_message(Ids{2147483649}));
  EXPECT_EQ(rows(kSessions), Rows{"room|200|-2147483648|0|0"});
}

TEST_F(DeleteMessage, DeletingByIdIsOneTransaction) {
  save(NewMessage());
  take_ledger();
  store().delete_message(Ids{1});
  const Rows ledger = take_ledger();
  EXPECT_EQ(ledger.front(), "begin transaction");
  EXPECT_EQ(ledger.back(), "commit transaction");
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(DeleteMessage, RefusedDeletionKeepsTheConversationsAndCommits) {
  save(NewMessage().mention());
  plant(refuse("delete on t_message"));
  take_ledger();
  EXPECT_FALSE(store().delete_message(Ids{1}));
  EXPECT_EQ(rows(kIds), Rows{"1"});
  EXPECT_EQ(rows(kSessions), Rows{"room|100|1|1|1"});
  EXPECT_EQ(log.take(), run_refused());
  const std::string doomed =
      "select session_id,session_type,read_status,is_mention,sent_time from t_message "
      "where id in(1)";
  EXPECT_EQ(take_ledger(),
            (Rows{"begin transaction", doomed,
                  "select session_id,session_type from t_session where latest_id in(1)",
                  "delete from t_message where id in(1)", "commit transaction"}));
}

TEST_F(DeleteMessage, DeletionThatCannotBePreparedKeepsTheConversationsAndCommits) {
  save(NewMessage());
  store().execute_none_query("drop table t_message");
  take_ledger();
  EXPECT_FALSE(store().delete_message(Ids{1}));
  EXPECT_EQ(rows(kSessions), Rows{"room|100|1|1|0"});
  EXPECT_EQ(log.take(), (Rows{prepare_failed("no such table: t_message"),
                              prepare_failed("no such table: t_message")}));
  EXPECT_EQ(take_ledger().back(), "commit transaction");
}

TEST_F(DeleteMessage, DeletionIsKeptWhenTheConversationsCannotBeUpdated) {
  save(NewMessage());
  plant(refuse("update on t_session"));
  EXPECT_TRUE(store().delete_message(Ids{1}));
  EXPECT_EQ(rows(kIds), Rows{});
  EXPECT_EQ(rows(kSessions), Rows{"room|100|1|1|0"});
  EXPECT_EQ(log.take().size(), 4U);  // the counters and the newest message, two lines each
}

TEST_F(DeleteMessage, DeletionIsKeptWhenTheNewestRemainingCannotBeRead) {
  save(NewMessage().at(100));
  plant("update t_session set session_time=900");
  plant(
      "drop table t_message; create table t_message(id integer); insert into t_message values(1)");
  ASSERT_FALSE(store().is_table_exist("t_missing"));  // reads the schema again
  EXPECT_TRUE(store().delete_message(Ids{1}));
  EXPECT_EQ(rows(kIds), Rows{});
  EXPECT_EQ(rows(kSessions), Rows{"room|900|1|1|0"});
  EXPECT_EQ(log.take(), (Rows{prepare_failed("no such column: session_id"),
                              prepare_failed("no such column: sent_time")}));
}

TEST_F(DeleteMessage, DeletionIsKeptWhenTheConversationsAreMissing) {
  save(NewMessage());
  store().execute_none_query("drop table t_session");
  EXPECT_TRUE(store().delete_message(Ids{1}));
  EXPECT_EQ(rows(kIds), Rows{});
  EXPECT_EQ(log.take(), (Rows{prepare_failed("no such table: t_session"),
                              prepare_failed("no such table: t_session")}));
}

// ---- By server uid ------------------------------------------------------------------------------

TEST_F(DeleteMessage, DeletesByServerUid) {
  for (const std::string uid : {"u1", "u2", "u3"}) save(NewMessage().named(uid));
  store().delete_message("room", CV_GROUP, Uids{"u1", "u3"});
  EXPECT_EQ(rows(kIds), Rows{"2"});
}

TEST_F(DeleteMessage, ServerUidOfAnotherConversationIsDeletedAndTheGivenConversationRefreshed) {
  save(NewMessage().at(100));
  save(NewMessage().in("x", CV_PRIVATE).named("u2").at(200));
  plant("update t_session set session_time=900,latest_id=77");
  store().delete_message("room", CV_GROUP, Uids{"u2"});
  EXPECT_EQ(rows(kIds), Rows{"1"});
  EXPECT_EQ(rows(kSessions), (Rows{"room|100|1|1|0", "x|900|77|1|0"}));
}

TEST_F(DeleteMessage, DeletingByUidKeepsTheCounters) {
  save(NewMessage().named("u1").at(100).mention());
  save(NewMessage().named("u2").at(200).mention());
  store().delete_message("room", CV_GROUP, Uids{"u2"});
  EXPECT_EQ(rows(kSessions), Rows{"room|100|1|2|2"});
}

TEST_F(DeleteMessage, DeletingTheLastMessageByUidKeepsTheTime) {
  save(NewMessage().named("u1").at(100));
  store().delete_message("room", CV_GROUP, Uids{"u1"});
  EXPECT_EQ(rows(kSessions), Rows{"room|100|-1|1|0"});
}

TEST_F(DeleteMessage, EmptyUidListDeletesNothingButRefreshes) {
  save(NewMessage().at(100));
  plant("update t_session set session_time=900,latest_id=77");
  take_ledger();
  store().delete_message("room", CV_GROUP, Uids{});
  EXPECT_EQ(take_ledger().front(), "delete from t_message where server_uid in()");
  EXPECT_EQ(rows(kIds), Rows{"1"});
  EXPECT_EQ(rows(kSessions), Rows{"room|100|1|1|0"});
}

TEST_F(DeleteMessage, EmptyUidDeletesEveryMessageWithoutAUid) {
  save(NewMessage().named("u1"));
  save(NewMessage());
  save(NewMessage().in("x", CV_PRIVATE));
  take_ledger();
  store().delete_message("room", CV_GROUP, Uids{"", "u9"});
  EXPECT_EQ(take_ledger().front(), "delete from t_message where server_uid in('','u9')");
  EXPECT_EQ(rows(kIds), Rows{"1"});
}

TEST_F(DeleteMessage, DeletingByUidCreatesNoConversation) {
  store().delete_message("room", CV_GROUP, Uids{"u1"});
  EXPECT_EQ(rows(kSessions), Rows{});
}

TEST_F(DeleteMessage, DeletingByUidOpensNoTransaction) {
  save(NewMessage().named("u1"));
  take_ledger();
  store().delete_message("room", CV_GROUP, Uids{"u1"});
  EXPECT_EQ(take_ledger(),
            (Rows{"delete from t_message where server_uid in('u1')",
                  "select id,sent_time from t_message where session_id=? and session_type=? "
                  "order by sent_time desc limit 1",
                  "update t_session set latest_id=? where session_id=? and session_type=?"}));
}

TEST_F(DeleteMessage, UidWithAQuoteDeletesNothing) {
  save(NewMessage().named("u1"));
  save(NewMessage().named("it's"));
  plant("update t_session set session_time=900,latest_id=77");
  store().delete_message("room", CV_GROUP, Uids{"u1", "it's"});
  EXPECT_EQ(rows(kIds), (Rows{"1", "2"}));
  EXPECT_EQ(rows(kSessions), Rows{"room|900|77|2|0"});
  EXPECT_EQ(log.take(), Rows{prepare_failed("near \"s\": syntax error")});
}

TEST_F(DeleteMessage, UidEscapedByTheCallerIsDeleted) {
  save(NewMessage().named("it's"));
  store().delete_message("room", CV_GROUP, Uids{"it''s"});
  EXPECT_EQ(rows(kIds), Rows{});
}

TEST_F(DeleteMessage, RefusedDeletionByUidDoesNotRefresh) {
  save(NewMessage().named("u1").at(100));
  plant("update t_session set session_time=900,latest_id=77");
  plant(refuse("delete on t_message"));
  store().delete_message("room", CV_GROUP, Uids{"u1"});
  EXPECT_EQ(rows(kSessions), Rows{"room|900|77|1|0"});
  EXPECT_EQ(log.take(), run_refused());
}

TEST_F(DeleteMessage, DeletionByUidDoesNotRefreshWhenTheNewestRemainingCannotBeRead) {
  save(NewMessage().at(100));
  plant("update t_session set session_time=900,latest_id=77");
  plant(
      "drop table t_message; create table t_message(server_uid text);"
      "insert into t_message values('u1'),('u2')");
  store().delete_message("room", CV_GROUP, Uids{"u1"});
  EXPECT_EQ(rows("select server_uid from t_message"), Rows{"u2"});
  EXPECT_EQ(rows(kSessions), Rows{"room|900|77|1|0"});
  EXPECT_EQ(log.take(), Rows{prepare_failed("no such column: id")});
}

// ---- Clearing a conversation --------------------------------------------------------------------

TEST_F(DeleteMessage, ClearingKeepsTheRowItsTimeAndCounters) {
  save(NewMessage().at(100).mention());
  save(NewMessage().at(200));
  EXPECT_TRUE(store().clear_message("room", CV_GROUP, false));
  EXPECT_EQ(rows(kIds), Rows{});
  EXPECT_EQ(rows(kSessions), Rows{"room|200|-1|2|1"});
}

TEST_F(DeleteMessage, ClearingKeepsOtherConversations) {
  save(NewMessage().in("x", CV_GROUP));
  save(NewMessage().in("room", CV_PRIVATE));
  EXPECT_TRUE(store().clear_message("room", CV_GROUP, false));
  EXPECT_EQ(rows(kIds), (Rows{"1", "2"}));
  EXPECT_EQ(rows(kSessions), (Rows{"room|100|2|1|0", "x|100|1|1|0"}));
}

TEST_F(DeleteMessage, ClearingOpensNoTransaction) {
  take_ledger();
  store().clear_message("room", CV_GROUP, true);
  EXPECT_EQ(
      take_ledger(),
      (Rows{"delete from t_message where session_id=? and session_type=?",
            "update t_session set latest_id=? where session_id=? and session_type=?", "VACUUM"}));
}

TEST_F(DeleteMessage, ClearingWithoutCleanDoesNotCompactTheFile) {
  plant(kManyMessages);
  EXPECT_TRUE(store().clear_message("room", CV_GROUP, false));
  EXPECT_NE(rows("pragma freelist_count"), Rows{"0"});
}

TEST_F(DeleteMessage, ClearingWithCleanCompactsTheFile) {
  plant(kManyMessages);
  EXPECT_TRUE(store().clear_message("room", CV_GROUP, true));
  EXPECT_EQ(rows(kIds), Rows{});
  EXPECT_EQ(rows("pragma freelist_count"), Rows{"0"});
}

TEST_F(DeleteMessage, FailedDeletionStillClearsTheNewestMessage) {
  save(NewMessage().at(100));
  plant(refuse("delete on t_message"));
  EXPECT_FALSE(store().clear_message("room", CV_GROUP, false));
  EXPECT_EQ(rows(kIds), Rows{"1"});
  EXPECT_EQ(rows(kSessions), Rows{"room|100|-1|1|0"});
  EXPECT_EQ(log.take(), run_refused());
}

TEST_F(DeleteMessage, CompactionThatSucceedsHidesAFailedDeletion) {
  save(NewMessage());
  plant(refuse("delete on t_message"));
  EXPECT_TRUE(store().clear_message("room", CV_GROUP, true));
  EXPECT_EQ(rows(kIds), Rows{"1"});
}

TEST_F(DeleteMessage, CompactionThatSucceedsHidesADeletionThatCannotBePrepared) {
  store().execute_none_query("drop table t_message");
  EXPECT_TRUE(store().clear_message("room", CV_GROUP, true));
}

TEST_F(DeleteMessage, CompactionThatFailsHidesASuccessfulDeletion) {
  save(NewMessage());
  store().start_transaction();
  EXPECT_FALSE(store().clear_message("room", CV_GROUP, true));
  store().commit_transaction();
  EXPECT_EQ(rows(kIds), Rows{});
  EXPECT_EQ(log.take(), vacuum_lines());
}

TEST_F(DeleteMessage, ClearingSucceedsWhenTheNewestMessageCannotBeCleared) {
  save(NewMessage());
  plant(refuse("update on t_session"));
  EXPECT_TRUE(store().clear_message("room", CV_GROUP, false));
  EXPECT_EQ(rows(kIds), Rows{});
  EXPECT_EQ(rows(kSessions), Rows{"room|100|1|1|0"});
}

// ---- Clearing by time ---------------------------------------------------------------------------

TEST_F(DeleteMessage, ClearingByTimeKeepsMessagesOfThatTime) {
  for (const int64_t time : {99, 100, 101}) save(NewMessage().at(time));
  EXPECT_TRUE(store().clear_message_by_timestamp(100, false));
  EXPECT_EQ(rows(kIds), (Rows{"2", "3"}));
}

TEST_F(DeleteMessage, ClearingByTimeComparesIn64Bits) {
  save(NewMessage().at(3999999999999));
  save(NewMessage().at(4000000000000));
  EXPECT_TRUE(store().clear_message_by_timestamp(4000000000000, false));
  EXPECT_EQ(rows(kIds), Rows{"2"});
}

TEST_F(DeleteMessage, ClearingByTimeSpansAllConversationsAndKeepsTheirRows) {
  save(NewMessage().at(100).mention());
  save(NewMessage().in("x", CV_PRIVATE).at(200));
  const Rows before = rows(kSessions);
  EXPECT_TRUE(store().clear_message_by_timestamp(300, false));
  EXPECT_EQ(rows(kIds), Rows{});
  EXPECT_EQ(rows(kSessions), before);
}

TEST_F(DeleteMessage, ClearingByTimeWithCleanCompactsTheFile) {
  plant(kManyMessages);
  EXPECT_TRUE(store().clear_message_by_timestamp(200, true));
  EXPECT_EQ(rows(kIds), Rows{"200"});
  EXPECT_EQ(rows("pragma freelist_count"), Rows{"0"});
}

TEST_F(DeleteMessage, ClearingByTimeWithoutCleanDoesNotCompactTheFile) {
  plant(kManyMessages);
  EXPECT_TRUE(store().clear_message_by_timestamp(200, false));
  EXPECT_NE(rows("pragma freelist_count"), Rows{"0"});
}

TEST_F(DeleteMessage, ClearingByTimeIgnoresAFailedCompaction) {
  save(NewMessage().at(100));
  store().start_transaction();
  EXPECT_TRUE(store().clear_message_by_timestamp(200, true));
  store().commit_transaction();
  EXPECT_EQ(rows(kIds), Rows{});
  EXPECT_EQ(log.take(), vacuum_lines());
}

TEST_F(DeleteMessage, ClearingByTimeReportsAFailedDeletionAndStillCompacts) {
  save(NewMessage().at(100));
  plant(refuse("delete on t_message"));
  take_ledger();
  EXPECT_FALSE(store().clear_message_by_timestamp(200, true));
  EXPECT_EQ(rows(kIds), Rows{"1"});
  EXPECT_EQ(take_ledger(), (Rows{"delete from t_message where sent_time<?", "VACUUM"}));
  EXPECT_EQ(log.take(), run_refused());
}

TEST_F(DeleteMessage, ClearingByTimeThatCannotBePreparedDoesNotCompact) {
  store().execute_none_query("drop table t_message");
  take_ledger();
  EXPECT_FALSE(store().clear_message_by_timestamp(200, true));
  EXPECT_EQ(take_ledger(), Rows{"delete from t_message where sent_time<?"});
  EXPECT_EQ(log.take(), Rows{prepare_failed("no such table: t_message")});
}

// ---- One conversation ---------------------------------------------------------------------------

TEST_F(DeleteMessage, DeletesOnlyTheMessagesOfOneConversation) {
  save(NewMessage());
  save(NewMessage());
  save(NewMessage().in("x", CV_GROUP));
  save(NewMessage().in("room", CV_PRIVATE));
  const Rows before = rows(kSessions);
  EXPECT_TRUE(store().delete_message("room", CV_GROUP));
  EXPECT_EQ(rows(kIds), (Rows{"3", "4"}));
  EXPECT_EQ(rows(kSessions), before);
}

TEST_F(DeleteMessage, DeletingAnEmptyConversationSucceeds) {
  EXPECT_TRUE(store().delete_message("room", CV_GROUP));
}

TEST_F(DeleteMessage, DeletingAConversationThatCannotBePreparedFails) {
  store().execute_none_query("drop table t_message");
  EXPECT_FALSE(store().delete_message("room", CV_GROUP));
  EXPECT_EQ(log.take(), Rows{prepare_failed("no such table: t_message")});
}

TEST_F(DeleteMessage, RefusedDeletionOfAConversationFails) {
  save(NewMessage());
  plant(refuse("delete on t_message"));
  EXPECT_FALSE(store().delete_message("room", CV_GROUP));
  EXPECT_EQ(log.take(), run_refused());
}

}  // namespace
}  // namespace corvan_test
