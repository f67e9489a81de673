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

constexpr const char* kSessions = "select * from t_session order by rowid";
// The columns that set_session_time() writes.
constexpr const char* kState =
    "select session_time,latest_id,unread_count,mention_count from t_session order by rowid";

constexpr const char* kText = "CV:TxtMsg";
constexpr const char* kNotification = "CV:QbNtf";

// The bits of set_session_time().
constexpr uint32_t kHistory = 1;
constexpr uint32_t kInsertOnly = 2;
constexpr uint32_t kCustomizedTime = 4;

class SessionRows : public StoreTest {
 protected:
  // Conversation ("room", group) at time 100 with 3 unread messages and 1 mention.
  void plant_room(int64_t latest_id) const {
    plant_session("room", CV_GROUP, 100, latest_id, 3, 1);
  }

  void drop_sessions() { ASSERT_EQ(store().execute_none_query("drop table t_session"), kDone); }

  // Makes one kind of write to a table fail when it is stepped.
  void refuse_to(const std::string& action, const std::string& table = "t_session") const {
    plant(refuse(action + " on " + table));
  }

  // Replaces t_session by a view that can be prepared but not stepped.
  void make_sessions_unreadable() const {
    plant(
        "drop table t_session;"
        "create view t_session as select abs(-9223372036854775808) as session_id,"
        "2 as session_type,'' as title,'' as draft,0 as is_top,0 as session_time,"
        "0 as unread_count,0 as mention_count,0 as silence,0 as latest_id");
  }
};

// ---- Pinning ------------------------------------------------------------------------------------

TEST_F(SessionRows, PinningAMissingConversationCreatesItOnlyIfAsked) {
  EXPECT_TRUE(store().set_is_top("room", CV_GROUP, true, false));
  EXPECT_EQ(rows(kSessions), Rows{});
  EXPECT_TRUE(store().set_is_top("room", CV_GROUP, true, true));
  EXPECT_EQ(rows(kSessions), Rows{"room|2|||1|1000000|0|0|0|-1|0|0"});
}

TEST_F(SessionRows, UnpinningAMissingConversationCreatesNone) {
  EXPECT_TRUE(store().set_is_top("room", CV_GROUP, false, true));
  EXPECT_TRUE(store().set_is_top("room", CV_GROUP, false, false));
  EXPECT_EQ(rows(kSessions), Rows{});
}

TEST_F(SessionRows, PinningChangesOnlyTheSetting) {
  plant_room(7);
  for (const bool create : {false, true}) {
    EXPECT_TRUE(store().set_is_top("room", CV_GROUP, true, create));
    EXPECT_EQ(rows(kSessions), Rows{"room|2|||1|100|3|1|0|7|0|0"});
    EXPECT_TRUE(store().set_is_top("room", CV_GROUP, false, create));
    EXPECT_EQ(rows(kSessions), Rows{"room|2|||0|100|3|1|0|7|0|0"});
  }
}

TEST_F(SessionRows, PinningAffectsOneKind) {
  plant_room(7);
  EXPECT_TRUE(store().set_is_top("room", CV_PRIVATE, true, true));
  EXPECT_EQ(rows("select session_type,is_top from t_session order by rowid"), (Rows{"2|0", "1|1"}));
}

TEST_F(SessionRows, FailedPinningIsReported) {
  plant_room(7);
  refuse_to("update");
  EXPECT_FALSE(store().set_is_top("room", CV_GROUP, true, false));
  plant("drop trigger \"refuse update on t_session\"");
  refuse_to("insert");
  EXPECT_FALSE(store().set_is_top("room", CV_PRIVATE, true, true));
  EXPECT_EQ(rows("select session_type,is_top from t_session"), Rows{"2|0"});
}

TEST_F(SessionRows, PinningThatCannotBePreparedIsReported) {
  drop_sessions();
  EXPECT_FALSE(store().set_is_top("room", CV_GROUP, true, true));
  EXPECT_TRUE(store().set_is_top("room", CV_GROUP, true, false));
}

// ---- Drafts -------------------------------------------------------------------------------------

TEST_F(SessionRows, DraftMovesTheConversationToNow) {
  plant_room(7);
  EXPECT_TRUE(store().set_message_draft("room", CV_GROUP, "to do"));
  EXPECT_EQ(rows(kSessions), Rows{"room|2||to do|0|1000000|3|1|0|7|0|0"});
}

TEST_F(SessionRows, EmptyDraftClearsTheDraftAndKeepsTheTime) {
  plant_room(7);
  plant("update t_session set draft='to do'");
  EXPECT_TRUE(store().set_message_draft("room", CV_GROUP, ""));
  EXPECT_EQ(rows(kSessions), Rows{"room|2|||0|100|3|1|0|7|0|0"});
}

TEST_F(SessionRows, DraftThatStartsWithAZeroByteIsNotEmpty) {
  plant_room(7);
  EXPECT_TRUE(store().set_message_draft("room", CV_GROUP, std::string("\0x", 2)));
  EXPECT_EQ(rows("select draft,session_time from t_session"), Rows{"|1000000"});
}

TEST_F(SessionRows, EmptyDraftOfAMissingConversationSucceedsWithoutAWrite) {
  EXPECT_TRUE(store().set_message_draft("room", CV_GROUP, ""));
  EXPECT_EQ(rows(kSessions), Rows{});
  EXPECT_EQ(take_ledger().size(), 1U);
}

TEST_F(SessionRows, DraftOfAMissingConversationIsRefused) {
  plant_session("room", CV_PRIVATE, 100, 7);
  EXPECT_FALSE(store().set_message_draft("room", CV_GROUP, "to do"));
  EXPECT_EQ(rows(kState), Rows{"100|7|0|0"});
  EXPECT_EQ(take_ledger().back(),
            "insert into t_session(draft,session_id,session_type,session_time,silence,"
            "unread_count,mention_count,latest_id) values(?,?,?,?,?,?,?,?,?)");
  EXPECT_EQ(log.take(), Rows{prepare_failed("9 values for 8 columns")});
}

TEST_F(SessionRows, FailedDraftIsReported) {
  plant_room(7);
  refuse_to("update");
  EXPECT_FALSE(store().set_message_draft("room", CV_GROUP, "to do"));
  EXPECT_FALSE(store().set_message_draft("room", CV_GROUP, ""));
  EXPECT_EQ(rows(kState), Rows{"100|7|3|1"});
}

TEST_F(SessionRows, DraftThatCannotBePreparedFails) {
  plant(
      "drop table t_session; create table t_session(session_id text,session_type integer);"
      "insert into t_session values('room',2)");
  EXPECT_FALSE(store().set_message_draft("room", CV_GROUP, "to do"));
  EXPECT_FALSE(store().set_message_draft("room", CV_GROUP, ""));
  EXPECT_EQ(log.take(), Rows(2, prepare_failed("no such column: draft")));
}

TEST_F(SessionRows, DraftGetterFailsWithoutItsColumn) {
  plant_room(7);
  ASSERT_TRUE(store().set_message_draft("room", CV_GROUP, "to do"));
  std::string draft = "kept";
  EXPECT_FALSE(store().get_message_draft("room", CV_GROUP, draft));
  EXPECT_EQ(draft, "kept");
  EXPECT_EQ(log.take(), Rows{prepare_failed("no such column: draft_message")});
}

TEST_F(SessionRows, DraftGetterReadsItsColumnIfPresent) {
  plant_room(7);
  ASSERT_EQ(store().execute_none_query("alter table t_session add draft_message text"), kDone);
  plant("update t_session set draft_message='to do'");
  std::string draft = "kept";
  EXPECT_FALSE(store().get_message_draft("room", CV_PRIVATE, draft));
  EXPECT_EQ(draft, "kept");
  EXPECT_TRUE(store().get_message_draft("room", CV_GROUP, draft));
  EXPECT_EQ(draft, "to do");
}

// ---- Do not disturb -----------------------------------------------------------------------------

TEST_F(SessionRows, SilenceIsStoredAsGiven) {
  plant_room(7);
  plant_session("room", CV_PRIVATE, 100, 7);
  for (const int32_t status : {1, 2, -5, kMaxInt, 0}) {
    EXPECT_TRUE(store().set_silence("room", CV_GROUP, status));
    EXPECT_EQ(rows("select silence from t_session order by rowid"),
              (Rows{std::to_string(status), "0"}));
  }
}

TEST_F(SessionRows, SilenceOfAMissingConversationSucceedsAndCreatesNone) {
  EXPECT_TRUE(store().set_silence("room", CV_GROUP, 1));
  EXPECT_EQ(rows(kSessions), Rows{});
}

TEST_F(SessionRows, FailedSilenceIsReported) {
  plant_room(7);
  refuse_to("update");
  EXPECT_FALSE(store().set_silence("room", CV_GROUP, 2));
  drop_sessions();
  EXPECT_FALSE(store().set_silence("room", CV_GROUP, 2));
}

TEST_F(SessionRows, SilenceOfOneReadsAsZero) {
  plant_room(7);
  plant("update t_session set silence=1");
  int32_t status = 7;
  EXPECT_TRUE(store().get_silence("room", CV_GROUP, status));
  EXPECT_EQ(status, 0);
}

TEST_F(SessionRows, AnyOtherSilenceReadsAsStored) {
  plant_room(7);
  for (const int32_t stored : {0, 2, -1}) {
    plant("update t_session set silence=" + std::to_string(stored));
    int32_t status = 7;
    EXPECT_TRUE(store().get_silence("room", CV_GROUP, status));
    EXPECT_EQ(status, stored);
  }
}

TEST_F(SessionRows, SilenceThatIsNotFoundKeepsTheCallersValue) {
  plant_room(7);
  int32_t status = 1;
  EXPECT_FALSE(store().get_silence("room", CV_PRIVATE, status));
  EXPECT_EQ(status, 1);
  make_sessions_unreadable();
  EXPECT_FALSE(store().get_silence("room", CV_GROUP, status));
  EXPECT_EQ(status, 1);
}

// ---- Removal ------------------------------------------------------------------------------------

TEST_F(SessionRows, RemovingMarksTheMessagesRead) {
  save(NewMessage().mention());
  save(NewMessage().in("other", CV_GROUP));
  EXPECT_TRUE(store().remove_session("room", CV_GROUP));
  EXPECT_EQ(rows("select session_id from t_session"), Rows{"other"});
  EXPECT_EQ(rows("select session_id,read_status,is_mention from t_message order by id"),
            (Rows{"room|1|0", "other|0|0"}));
}

TEST_F(SessionRows, RemovingAlsoMarksMessagesBeforeTheReadTime) {
  plant(
      "insert into t_session(session_id,session_type,read_time) values('room',2,1000);"
      "insert into t_message(session_id,session_type,direction,sent_time) values('room',2,1,500)");
  EXPECT_TRUE(store().remove_session("room", CV_GROUP));
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"1"});
}

TEST_F(SessionRows, RemovingAMissingConversationSucceeds) {
  EXPECT_TRUE(store().remove_session("room", CV_GROUP));
}

TEST_F(SessionRows, RemovingThatCannotDeleteKeepsTheMessages) {
  save(NewMessage());
  refuse_to("delete");
  EXPECT_FALSE(store().remove_session("room", CV_GROUP));
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"0"});
}

TEST_F(SessionRows, RemovingSucceedsWhenTheMessagesCannotBeMarked) {
  save(NewMessage());
  refuse_to("update", "t_message");
  EXPECT_TRUE(store().remove_session("room", CV_GROUP));
  EXPECT_EQ(rows(kSessions), Rows{});
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"0"});
}

// ---- Clearing kinds -----------------------------------------------------------------------------

TEST_F(SessionRows, ClearingDeletesConversationsAndMessagesOfTheKinds) {
  save(NewMessage().in("a", CV_PRIVATE));
  save(NewMessage().in("b", CV_GROUP));
  save(NewMessage().in("c", CV_CHATROOM));
  plant("insert into t_message(session_id,session_type) values('alone',1)");
  EXPECT_TRUE(store().clear_session({CV_PRIVATE, CV_CHATROOM}));
  EXPECT_EQ(rows("select session_id from t_session"), Rows{"b"});
  EXPECT_EQ(rows("select session_id from t_message"), Rows{"b"});
}

TEST_F(SessionRows, ClearingEmptyKindsDeletesNothingAndSucceeds) {
  save(NewMessage());
  EXPECT_TRUE(store().clear_session({}));
  EXPECT_TRUE(store().clear_session({static_cast<SessionType>(0), static_cast<SessionType>(6)}));
  EXPECT_EQ(rows("select count(*) from t_session"), Rows{"1"});
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"1"});
}

TEST_F(SessionRows, ClearingIsOneTransaction) {
  EXPECT_TRUE(store().clear_session({CV_PRIVATE, CV_GROUP}));
  EXPECT_EQ(take_ledger(),
            (Rows{"begin transaction", "delete from t_session where session_type in(1,2)",
                  "delete from t_message where session_type in(1,2)", "commit transaction"}));
}

TEST_F(SessionRows, ClearingThatCannotDeleteConversationsKeepsMessagesAndCommits) {
  save(NewMessage());
  refuse_to("delete");
  take_ledger();
  EXPECT_FALSE(store().clear_session({CV_GROUP}));
  EXPECT_EQ(take_ledger(),
            (Rows{"begin transaction", "delete from t_session where session_type in(2)",
                  "commit transaction"}));
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"1"});
}

TEST_F(SessionRows, ClearingThatCannotDeleteMessagesKeepsTheConversationsDeleted) {
  save(NewMessage());
  refuse_to("delete", "t_message");
  EXPECT_FALSE(store().clear_session({CV_GROUP}));
  EXPECT_EQ(rows("select count(*) from t_session"), Rows{"0"});
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"1"});
}

// ---- A caller's own statement -------------------------------------------------------------------

TEST_F(SessionRows, CallersStatementIsBoundToIdAndKind) {
  plant_room(7);
  plant_session("room", CV_PRIVATE, 100, 7);
  EXPECT_TRUE(store().common_session_operation(
      "room", CV_GROUP, "update t_session set title='x' where session_id=? and session_type=?"));
  EXPECT_EQ(rows("select session_type,title from t_session order by rowid"), (Rows{"2|x", "1|"}));
}

TEST_F(SessionRows, CallersStatementThatFailsIsReported) {
  plant_room(7);
  EXPECT_FALSE(store().common_session_operation("room", CV_GROUP, "no statement"));
  EXPECT_FALSE(store().common_session_operation(
      "room", CV_GROUP, "insert into t_session(session_id,session_type) values(?,?)"));
}

TEST_F(SessionRows, CallersQueryThatReturnsARowFails) {
  plant_room(7);
  const std::string query = "select 1 from t_session where session_id=? and session_type=?";
  EXPECT_FALSE(store().common_session_operation("room", CV_GROUP, query));
  EXPECT_TRUE(store().common_session_operation("none", CV_GROUP, query));
}

// ---- Existence ----------------------------------------------------------------------------------

TEST_F(SessionRows, ExistsByIdAndKind) {
  plant_room(-1);
  EXPECT_TRUE(store().is_session_exist("room", CV_GROUP));
  EXPECT_FALSE(store().is_session_exist("room", CV_PRIVATE));
  EXPECT_FALSE(store().is_session_exist("roo", CV_GROUP));
}

TEST_F(SessionRows, DoesNotExistIfTheLookupFails) {
  plant_room(-1);
  drop_sessions();
  EXPECT_FALSE(store().is_session_exist("room", CV_GROUP));
  EXPECT_EQ(log.take().size(), 1U);
}

// ---- Creation -----------------------------------------------------------------------------------

TEST_F(SessionRows, AddedRowHasTheGivenValues) {
  EXPECT_TRUE(store().add_session("room", CV_GROUP, kWide, kWide + 1, "title", 3, 1));
  EXPECT_EQ(rows(kSessions), Rows{"room|2|title||0|4294967296|3|1|0|4294967297|0|0"});
}

TEST_F(SessionRows, RowAddedWithoutATimeHasTheClocksTime) {
  EXPECT_TRUE(store().add_session("room", CV_GROUP, 0, 7, "", 1, 0));
  EXPECT_EQ(rows("select session_time from t_session"), Rows{"1000000"});
}

TEST_F(SessionRows, RowAddedWithATimeKeepsIt) {
  EXPECT_TRUE(store().add_session("a", CV_GROUP, 1, 7, "", 1, 0));
  EXPECT_TRUE(store().add_session("b", CV_GROUP, -1, 7, "", 1, 0));
  EXPECT_EQ(rows("select session_time from t_session order by session_id"), (Rows{"1", "-1"}));
}

TEST_F(SessionRows, SecondRowOfTheSameKeyIsRefused) {
  plant_room(7);
  EXPECT_FALSE(store().add_session("room", CV_GROUP, 400, 8, "", 1, 0));
  EXPECT_EQ(rows(kState), Rows{"100|7|3|1"});
  EXPECT_EQ(log.take().size(), 2U);
}

TEST_F(SessionRows, AddedRowThatCannotBePreparedIsRefused) {
  drop_sessions();
  EXPECT_FALSE(store().add_session("room", CV_GROUP, 400, 8, "", 1, 0));
}

// ---- A saved message moves its conversation -----------------------------------------------------

TEST_F(SessionRows, NewerMessageMovesTheConversation) {
  plant_room(7);
  store().set_session_time("room", CV_GROUP, 101, kText, 9, 1, 1, 0);
  EXPECT_EQ(rows(kState), Rows{"101|9|4|2"});
}

TEST_F(SessionRows, OlderMessageMovesTheConversationBack) {
  plant_room(7);
  store().set_session_time("room", CV_GROUP, 99, kText, 9, 1, 1, 0);
  EXPECT_EQ(rows(kState), Rows{"99|9|4|2"});
}

TEST_F(SessionRows, OlderHistoryDoesNotMoveAConversationWithALatestMessage) {
  plant_room(7);
  store().set_session_time("room", CV_GROUP, 99, kText, 9, 1, 1, kHistory);
  EXPECT_EQ(rows(kState), Rows{"100|7|3|1"});
  EXPECT_EQ(take_ledger().size(), 1U);
}

TEST_F(SessionRows, OlderHistoryMovesAConversationWithoutALatestMessage) {
  plant_room(0);
  store().set_session_time("room", CV_GROUP, 99, kText, 9, 1, 1, kHistory);
  EXPECT_EQ(rows(kState), Rows{"99|9|4|2"});
}

TEST_F(SessionRows, OlderInsertedMessageKeepsTheTime) {
  plant_room(7);
  store().set_session_time("room", CV_GROUP, 99, kText, 9, 1, 1, kInsertOnly);
  EXPECT_EQ(rows(kState), Rows{"100|9|4|2"});
}

TEST_F(SessionRows, OlderInsertedMessageWithTheCallersTimeKeepsTimeAndLatestMessage) {
  plant_room(7);
  store().set_session_time("room", CV_GROUP, 99, kText, 9, 1, 1, kInsertOnly | kCustomizedTime);
  EXPECT_EQ(rows(kState), Rows{"100|7|4|2"});
}

TEST_F(SessionRows, OlderNotificationKeepsTheLatestMessage) {
  plant_room(7);
  store().set_session_time("room", CV_GROUP, 99, kNotification, 9, 1, 1, 0);
  EXPECT_EQ(rows(kState), Rows{"99|7|4|2"});
}

TEST_F(SessionRows, NotificationIsRecognisedByItsWholeName) {
  plant_room(7);
  store().set_session_time("room", CV_GROUP, 99, "CV:QbNtfs", 9, 0, 0, 0);
  EXPECT_EQ(rows(kState), Rows{"99|9|3|1"});
}

// Compares every combination, each in its own conversation, with one literal copy of the rules.
TEST_F(SessionRows, ConversationMoveDependsOnProfileLatestTimeAndName) {
  Rows expected;
  std::vector<std::string> labels;
  for (uint32_t profile = 0; profile < 8; ++profile) {
    for (const int64_t latest : {-1, 0, 5}) {
      for (const int64_t sent : {99, 100, 101}) {
        for (const std::string name : {kText, kNotification}) {
          const std::string id = "c" + std::to_string(expected.size());
          const bool late = sent <= 100;
          const bool has_latest = latest > 0;
          int64_t time = sent;
          int64_t newest = 9;
          if (late && (profile & kInsertOnly) != 0) time = 100;
          if (late && (profile & kInsertOnly) != 0 && (profile & kCustomizedTime) != 0 &&
              has_latest) {
            newest = latest;
          }
          if (late && name == kNotification && has_latest) newest = latest;
          const bool untouched = late && (profile & kHistory) != 0 && has_latest;
          expected.push_back(untouched
                                 ? "100|5|3|1"
                                 : std::to_string(time) + "|" + std::to_string(newest) + "|4|3");
          labels.push_back("profile " + std::to_string(profile) + ", latest " +
                           std::to_string(latest) + ", sent " + std::to_string(sent) + ", " + name);
          ASSERT_EQ(store().execute_none_query(
                        "insert into t_session(session_id,session_type,session_time,latest_id,"
                        "unread_count,mention_count) values('" +
                        id + "',2,100," + std::to_string(latest) + ",3,1)"),
                    kDone);
          store().set_session_time(id, CV_GROUP, sent, name, 9, 1, 2, profile);
        }
      }
    }
  }
  const Rows found = rows(kState);
  ASSERT_EQ(found.size(), expected.size());
  for (std::size_t i = 0; i < found.size(); ++i) EXPECT_EQ(found[i], expected[i]) << labels[i];
}

TEST_F(SessionRows, MovingAffectsOneKind) {
  plant_room(7);
  plant_session("room", CV_PRIVATE, 100, 7);
  store().set_session_time("room", CV_PRIVATE, 101, kText, 9, 1, 0, 0);
  EXPECT_EQ(rows(kState), (Rows{"100|7|3|1", "101|9|1|0"}));
}

TEST_F(SessionRows, MovingAccepts64BitTimeAndId) {
  plant_room(7);
  store().set_session_time("room", CV_GROUP, kWide, kText, kWide + 1, 0, 0, 0);
  EXPECT_EQ(rows(kState), Rows{"4294967296|4294967297|3|1"});
}

TEST_F(SessionRows, KeptLatestIdIsTruncated) {
  plant_room(kWide + 7);
  store().set_session_time("room", CV_GROUP, 99, kNotification, 9, 0, 0, 0);
  EXPECT_EQ(rows(kState), Rows{"99|7|3|1"});
}

TEST_F(SessionRows, CountersWrapAroundWhenTheyOverflow) {
  plant_session("room", CV_GROUP, 100, 7, kMaxInt, kMinInt);
  store().set_session_time("room", CV_GROUP, 101, kText, 9, 1, -1, 0);
  EXPECT_EQ(rows(kState), Rows{"101|9|-2147483648|2147483647"});
}

TEST_F(SessionRows, MovingAMissingConversationCreatesNone) {
  store().set_session_time("room", CV_GROUP, 101, kText, 9, 1, 1, 0);
  EXPECT_EQ(rows(kSessions), Rows{});
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(SessionRows, FailedMoveIsOnlyLogged) {
  plant_room(7);
  refuse_to("update");
  store().set_session_time("room", CV_GROUP, 101, kText, 9, 1, 1, 0);
  EXPECT_EQ(rows(kState), Rows{"100|7|3|1"});
  EXPECT_EQ(log.take().size(), 2U);
}

TEST_F(SessionRows, MoveThatCannotBePreparedIsOnlyLogged) {
  drop_sessions();
  store().set_session_time("room", CV_GROUP, 101, kText, 9, 1, 1, 0);
  EXPECT_EQ(log.take().size(), 2U);
}

// ---- A corrected time moves its conversation ----------------------------------------------------

TEST_F(SessionRows, NewerCorrectedTimeMovesOnlyItsConversation) {
  plant_room(7);
  store().set_sessiontime(101, 9, "room", CV_GROUP);
  EXPECT_EQ(rows(kState), Rows{"101|9|3|1"});
}

TEST_F(SessionRows, CorrectedTimeThatIsNotNewerIsIgnoredUnlessTheLatestIdIsNegative) {
  for (const int64_t latest : {0, 7}) {
    plant("delete from t_session");
    plant_room(latest);
    store().set_sessiontime(100, 9, "room", CV_GROUP);
    store().set_sessiontime(99, 9, "room", CV_GROUP);
    EXPECT_EQ(rows(kState), Rows{"100|" + std::to_string(latest) + "|3|1"});
  }
  EXPECT_EQ(take_ledger().size(), 4U);
}

TEST_F(SessionRows, CorrectedTimeThatIsNotNewerMovesAConversationWithoutALatestMessage) {
  plant_room(-1);
  store().set_sessiontime(99, 9, "room", CV_GROUP);
  EXPECT_EQ(rows(kState), Rows{"99|9|3|1"});
}

TEST_F(SessionRows, CorrectedTimeOfAMissingConversationChangesNothing) {
  plant_session("room", CV_PRIVATE, 100, 7);
  store().set_sessiontime(0, 9, "room", CV_GROUP);
  EXPECT_EQ(take_ledger().size(), 2U);
  EXPECT_EQ(rows(kState), Rows{"100|7|0|0"});
}

TEST_F(SessionRows, CorrectedTimeAndIdHave64Bits) {
  plant_room(7);
  store().set_sessiontime(kWide, kWide + 1, "room", CV_GROUP);
  EXPECT_EQ(rows(kState), Rows{"4294967296|4294967297|3|1"});
}

TEST_F(SessionRows, FailedCorrectionIsOnlyLogged) {
  plant_room(7);
  refuse_to("update");
  store().set_sessiontime(101, 9, "room", CV_GROUP);
  EXPECT_EQ(rows(kState), Rows{"100|7|3|1"});
  EXPECT_EQ(log.take().size(), 2U);
}

// ---- Reading time and counters ------------------------------------------------------------------

TEST_F(SessionRows, ReadsTimeAndCounters) {
  plant_session("room", CV_GROUP, kWide, 7, 3, 1);
  int64_t time = 0;
  int64_t latest = -1;
  int32_t unread = 0;
  int32_t mention = 0;
  store().get_sessiontime("room", CV_GROUP, time, latest, unread, mention);
  EXPECT_EQ(time, kWide);
  EXPECT_EQ(latest, 7);
  EXPECT_EQ(unread, 3);
  EXPECT_EQ(mention, 1);
}

TEST_F(SessionRows, LatestIdReadWithTheTimeIsTruncated) {
  plant_session("a", CV_GROUP, 1, kWide + 7);
  plant_session("b", CV_GROUP, 1, int64_t{kMaxInt} + 1);
  int64_t time = 0;
  int64_t latest = 0;
  int32_t unread = 0;
  int32_t mention = 0;
  store().get_sessiontime("a", CV_GROUP, time, latest, unread, mention);
  EXPECT_EQ(latest, 7);
  store().get_sessiontime("b", CV_GROUP, time, latest, unread, mention);
  EXPECT_EQ(latest, kMinInt);
}

TEST_F(SessionRows, MissingRowKeepsTimeAndCounters) {
  plant_room(7);
  int64_t time = 11;
  int64_t latest = 12;
  int32_t unread = 13;
  int32_t mention = 14;
  store().get_sessiontime("room", CV_PRIVATE, time, latest, unread, mention);
  drop_sessions();
  store().get_sessiontime("room", CV_GROUP, time, latest, unread, mention);
  EXPECT_EQ(time, 11);
  EXPECT_EQ(latest, 12);
  EXPECT_EQ(unread, 13);
  EXPECT_EQ(mention, 14);
}

// ---- Deleting a row -----------------------------------------------------------------------------

TEST_F(SessionRows, DeletingARowKeepsItsMessages) {
  save(NewMessage());
  plant_session("room", CV_PRIVATE, 100, 7);
  EXPECT_TRUE(store().delete_session("room", CV_GROUP));
  EXPECT_EQ(rows("select session_id,session_type from t_session"), Rows{"room|1"});
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"0"});
}

TEST_F(SessionRows, DeletingAMissingConversationSucceeds) {
  EXPECT_TRUE(store().delete_session("room", CV_GROUP));
}

TEST_F(SessionRows, FailedDeletingIsReported) {
  plant_room(7);
  refuse_to("delete");
  EXPECT_FALSE(store().delete_session("room", CV_GROUP));
  EXPECT_EQ(rows("select count(*) from t_session"), Rows{"1"});
}

}  // namespace
}  // namespace corvan_test
