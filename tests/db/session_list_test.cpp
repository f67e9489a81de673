#include <cstdint>
#include <functional>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/support/failures.h"
#include "tests/support/numbers.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CV_CHATROOM;
using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;
using Corvan::CvDbSingleton;
using Corvan::Session;
using Corvan::SessionInfo;
using Corvan::SessionType;

constexpr int64_t kAboveInt = int64_t{1} << 31;
const std::vector<SessionType> all_kinds{CV_PRIVATE, CV_GROUP, CV_CHATROOM};

// The statement of a page of groups.
std::string page_sql(const std::string& filter) {
  return "select session_id,session_type,title,draft,is_top,session_time,unread_count,"
         "mention_count,silence,latest_id from t_session where session_type in(2)" +
         filter + " order by is_top desc,session_time desc limit ?";
}
const std::string first_page = page_sql("");
const std::string page_after_pinned = page_sql(" and ((session_time<? and is_top=1) or is_top=0)");
const std::string page_after_unpinned = page_sql(" and session_time<? and is_top=0");

// A row of t_session; by default an unpinned group without messages.
struct Row {
  Row(std::string session_id, int64_t session_time)
      : id(std::move(session_id)), time(session_time) {}
  Row& pinned(int32_t value = 1) {
    is_top = value;
    return *this;
  }
  Row& latest(int64_t value) {
    latest_id = value;
    return *this;
  }
  Row& drafted(const std::string& value) {
    draft = value;
    return *this;
  }
  Row& of(SessionType value) {
    type = value;
    return *this;
  }

  std::string id;
  int64_t time;
  int32_t is_top = 0;
  int64_t latest_id = -1;
  std::string draft;
  SessionType type = CV_GROUP;
};

std::string conversation(const SessionInfo& s) {
  return s.session_id_ + "|" + std::to_string(s.session_type_) + "|" + s.title_ + "|" + s.draft_ +
         "|" + std::to_string(s.is_top_) + "|" + std::to_string(s.silence_) + "|" +
         std::to_string(s.unread_count_) + "|" + std::to_string(s.mention_count_) + "|" +
         std::to_string(s.session_time);
}

std::string message(const SessionInfo& s) {
  const Corvan::MessageResponse& m = s.message_;
  return m.session_id_ + "|" + std::to_string(m.session_type_) + "|" + std::to_string(m.msg_id_) +
         "|" + m.object_name_ + "|" + m.content_ + "|" + m.sender_ + "|" + m.server_uid_ + "|" +
         std::to_string(m.is_receive_) + "|" + std::to_string(m.read_status_) + "|" +
         std::to_string(m.sent_status_) + "|" + std::to_string(m.sent_time_);
}

SessionInfo named(const std::string& id, int32_t type) {
  SessionInfo session;
  session.session_id_ = id;
  session.session_type_ = type;
  return session;
}

// The fields that the loaders of messages fill.
std::string message(const Session& s) {
  return s.content_ + "|" + s.object_name_ + "|" + s.sender_ + "|" + std::to_string(s.is_recieve_) +
         "|" + std::to_string(s.read_status_) + "|" + std::to_string(s.sent_status_) + "|" +
         std::to_string(s.session_time_) + "|" + s.server_uid_;
}

// The fields that the loaders of conversations fill, except id and kind.
std::string conversation(const Session& s) {
  return s.title_ + "|" + s.draft_ + "|" + std::to_string(s.is_top_) + "|" +
         std::to_string(s.session_time_) + "|" + std::to_string(s.unread_count_) + "|" +
         std::to_string(s.mention_count_) + "|" + std::to_string(s.silence_) + "|" +
         std::to_string(s.latest_id_);
}

class SessionList : public StoreTest {
 protected:
  void plant_row(const Row& row) const {
    plant(
        "insert into t_session(session_id,session_type,session_time,is_top,latest_id,draft) "
        "values('" +
        row.id + "'," + std::to_string(row.type) + "," + std::to_string(row.time) + "," +
        std::to_string(row.is_top) + "," + std::to_string(row.latest_id) + ",'" + row.draft + "')");
  }

  // A message of a group, by default read and without a mention.
  void plant_message(int64_t id, const std::string& session_id, int64_t time,
                     const std::string& content = "hello", int32_t read_status = 1,
                     int32_t is_mention = 0) const {
    plant(
        "insert into t_message(id,session_id,session_type,sent_time,content,read_status,"
        "is_mention) values(" +
        std::to_string(id) + ",'" + session_id + "',2," + std::to_string(time) + ",'" + content +
        "'," + std::to_string(read_status) + "," + std::to_string(is_mention) + ")");
  }

  // One page of groups; the call must succeed.
  std::vector<SessionInfo> page(int64_t time, int32_t limit = 10) {
    std::vector<SessionInfo> list;
    EXPECT_TRUE(store().get_session_list_by_page({CV_GROUP}, time, limit, list));
    return list;
  }

  // The ids of one page of groups; empty if the call fails.
  Rows page_ids(int64_t time, int32_t limit = 10) {
    std::vector<SessionInfo> list;
    const bool found = store().get_session_list_by_page({CV_GROUP}, time, limit, list);
    EXPECT_EQ(found, !list.empty());
    Rows ids;
    for (const SessionInfo& entry : list) ids.push_back(entry.session_id_);
    return ids;
  }

  // The statement that reads a page.
  std::string page_statement(int64_t time) {
    take_ledger();
    std::vector<SessionInfo> list;
    store().get_session_list_by_page({CV_GROUP}, time, 10, list);
    return take_ledger().front();
  }

  // Sets the store's memory of the previous page: whether it ended with a pinned row.
  void page_that_ends(bool pinned) {
    plant_row(Row("last page", 1).pinned(pinned ? 1 : 0).of(CV_CHATROOM));
    std::vector<SessionInfo> list;
    ASSERT_TRUE(store().get_session_list_by_page({CV_CHATROOM}, 0, 1, list));
  }

  // Removes a table, so that later statements cannot be prepared.
  void drop(const std::string& table) {
    ASSERT_EQ(store().execute_none_query("drop table " + table), kDone);
  }

  // Replaces t_message by a view that can be prepared but not stepped.
  void make_messages_unreadable() const {
    plant(
        "drop table t_message;"
        "create view t_message as select 1 as id,'room' as session_id,2 as session_type,"
        "abs(-9223372036854775808) as sent_time");
  }

  // The elements that are appended for the messages with these ids, as id, unread and mentions.
  Rows distinct(const std::string& ids) {
    std::vector<Session> list;
    const bool found = store().load_distinct_session_with_unread(list, ids);
    EXPECT_EQ(found, !list.empty());
    return counted(list);
  }
  static Rows counted(const std::vector<Session>& list) {
    Rows result;
    for (const Session& s : list) {
      result.push_back(s.session_id_ + " " + std::to_string(s.unread_count_) + " " +
                       std::to_string(s.mention_count_));
    }
    return result;
  }
};

// ---- One page -----------------------------------------------------------------------------------

TEST_F(SessionList, EmptyStoreHasNoPage) {
  std::vector<SessionInfo> list(1);
  EXPECT_FALSE(store().get_session_list_by_page(all_kinds, 0, 10, list));
  EXPECT_EQ(list.size(), 1U);
}

TEST_F(SessionList, KindsWithoutConversationsHaveNoPage) {
  plant_row(Row("room", 100));
  std::vector<SessionInfo> list;
  EXPECT_FALSE(store().get_session_list_by_page({CV_PRIVATE}, 0, 10, list));
  EXPECT_FALSE(store().get_session_list_by_page({}, 0, 10, list));
  EXPECT_FALSE(store().get_session_list_by_page({static_cast<SessionType>(9)}, 0, 10, list));
  EXPECT_TRUE(list.empty());
}

TEST_F(SessionList, PageContainsOnlyTheGivenKinds) {
  plant_row(Row("a", 1).of(CV_PRIVATE));
  plant_row(Row("b", 2));
  plant_row(Row("c", 3).of(CV_CHATROOM));
  std::vector<SessionInfo> list;
  EXPECT_TRUE(store().get_session_list_by_page({CV_PRIVATE, CV_CHATROOM}, 0, 10, list));
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].session_id_ + list[1].session_id_, "ca");
}

TEST_F(SessionList, PageIsAppendedToTheVector) {
  plant_row(Row("room", 100));
  std::vector<SessionInfo> list(1);
  list.front().session_id_ = "before";
  EXPECT_TRUE(store().get_session_list_by_page({CV_GROUP}, 0, 10, list));
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0].session_id_, "before");
  EXPECT_EQ(list[1].session_id_, "room");
}

TEST_F(SessionList, EntryContainsConversationAndLatestMessage) {
  plant(
      "insert into t_session values('room',2,'title','',1,100,3,1,4,7,50,60);"
      "insert into t_message values(7,'room',2,'CV:TxtMsg','hello','u01',1,3,5,0,4294967296,6,"
      "'S-1')");
  const auto list = page(0);
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(conversation(list[0]), "room|2|title||1|4|3|1|4294967296");
  EXPECT_EQ(message(list[0]), "room|2|7|CV:TxtMsg|hello|u01|S-1|1|5|3|0");
}

TEST_F(SessionList, EntryDoesNotFillTheTimeOfItsMessage) {
  save(NewMessage().at(500));
  EXPECT_EQ(page(0).front().message_.sent_time_, 0);
}

TEST_F(SessionList, EntryIsReceivedUnlessItsDirectionIsZero) {
  plant_row(Row("a", 2).latest(1));
  plant_row(Row("b", 1).latest(2));
  plant_message(1, "a", 2);
  plant_message(2, "b", 1);
  plant("update t_message set direction=2 where id=1");
  const auto list = page(0);
  ASSERT_EQ(list.size(), 2U);
  EXPECT_TRUE(list[0].message_.is_receive_);
  EXPECT_FALSE(list[1].message_.is_receive_);
}

TEST_F(SessionList, PinnedComeFirstThenNewestFirst) {
  plant_row(Row("old", 1));
  plant_row(Row("new", 4));
  plant_row(Row("old pinned", 2).pinned());
  plant_row(Row("new pinned", 3).pinned());
  EXPECT_EQ(page_ids(0), (Rows{"new pinned", "old pinned", "new", "old"}));
}

TEST_F(SessionList, PageEndsAtItsLimit) {
  for (const char* id : {"a", "b", "c"}) plant_row(Row(id, 100));
  EXPECT_EQ(page_ids(0, 2).size(), 2U);
  EXPECT_EQ(page_ids(0, 3).size(), 3U);
  EXPECT_EQ(page_ids(0, -1).size(), 3U);
  EXPECT_EQ(page_ids(0, 0), Rows{});
}

TEST_F(SessionList, PinnedComesBeforeANewerUnpinned) {
  Rows expected;
  for (int i = 0; i < 20; ++i) {
    const std::string id(1, static_cast<char>('a' + i));
    plant_row(Row(id, 100 - i).pinned(i < 10 ? 1 : 0).latest(i + 1));
    // Unpinned conversations have newer messages than pinned ones.
    plant_message(i + 1, id, i < 10 ? 1000 - i : 2000 - i);
    expected.push_back(id);
  }
  EXPECT_EQ(page_ids(0, 20), expected);
}

TEST_F(SessionList, PageIsSortedByMessageTimes) {
  plant_row(Row("a", 3).latest(1));
  plant_row(Row("b", 2).latest(2));
  plant_row(Row("c", 1).latest(3));
  plant_message(1, "a", 10);
  plant_message(2, "b", 30);
  plant_message(3, "c", 20);
  EXPECT_EQ(page_ids(0), (Rows{"b", "c", "a"}));
}

TEST_F(SessionList, MorePinnedComesFirst) {
  plant_row(Row("pinned", 300).pinned());
  plant_row(Row("more pinned", 100).pinned(2));
  plant_row(Row("newer", 400));
  plant_row(Row("less than unpinned", 500).pinned(-1));
  EXPECT_EQ(page_ids(0), (Rows{"more pinned", "pinned", "newer", "less than unpinned"}));
}

TEST_F(SessionList, EquallyOldConversationsKeepTheOrderOfTheRows) {
  for (int i = 0; i < 40; ++i) plant_row(Row("c" + std::to_string(i), 100).pinned(i % 2));
  std::vector<Session> loaded;
  std::string kinds = "2";
  ASSERT_TRUE(store().load_session(loaded, kinds, 0, 40, false));
  Rows expected;
  expected.reserve(loaded.size());
  for (const Session& row : loaded) expected.push_back(row.session_id_);
  EXPECT_EQ(page_ids(0, 40), expected);
}

TEST_F(SessionList, ConversationWithoutALatestMessageKeepsItsTime) {
  plant_row(Row("zero", 300).latest(0));
  plant_row(Row("none", 200));
  plant_row(Row("missing", 100).latest(77));
  const auto list = page(0);
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[0].session_time, 300);
  EXPECT_EQ(message(list[0]), "zero|2|0|||||0|0|0|0");
  EXPECT_EQ(list[1].session_time, 200);
  EXPECT_EQ(message(list[1]), "none|2|-1|||||0|0|0|0");
  EXPECT_EQ(list[2].session_time, 100);
  EXPECT_EQ(message(list[2]), "missing|2|77|||||0|0|0|0");
}

TEST_F(SessionList, MessageOfAnotherConversationIsNotShown) {
  plant_row(Row("room", 100).latest(7));
  plant_message(7, "elsewhere", 900);
  const auto list = page(0);
  EXPECT_EQ(list[0].session_time, 100);
  EXPECT_EQ(message(list[0]), "room|2|7|||||0|0|0|0");
}

TEST_F(SessionList, MessageOfAnotherKindWithTheSameIdIsNotShown) {
  plant_row(Row("room", 100).latest(7));
  plant_message(7, "room", 900);
  plant("update t_message set session_type=1");
  EXPECT_EQ(page(0)[0].message_.content_, "");
}

// Two ids with the same hash in libstdc++ on 64-bit machines.
TEST_F(SessionList, MessageOfAConversationWithTheSameHashIsNotShown) {
  const std::string id = "room-one00000726";
  const std::string other = "room-405tDZ5Xiq4";
  const std::hash<std::string_view> hash;
  if (hash(id) != hash(other)) GTEST_SKIP() << "the library hashes these ids apart";
  plant_row(Row(id, 200).latest(7));
  plant_row(Row(other, 100).latest(8));
  plant_message(7, id, 200, "of the one");
  plant_message(8, other, 100, "of the other");
  const auto list = page(0);
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(message(list[0]), id + "|2|7||of the one|||0|1|0|0");
  EXPECT_EQ(message(list[1]), other + "|2|8||of the other|||0|1|0|0");
}

TEST_F(SessionList, MessageIsShownInItsOwnConversationWhicheverRowNamesIt) {
  plant_row(Row("a", 300).latest(7));
  plant_row(Row("b", 200).latest(0));
  plant_message(7, "b", 250, "of b");
  const auto list = page(0);
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(message(list[0]), "a|2|7|||||0|0|0|0");
  EXPECT_EQ(message(list[1]), "b|2|0||of b|||0|1|0|0");
  EXPECT_EQ(list[1].session_time, 250);
}

TEST_F(SessionList, LastOfSeveralMessagesOfAConversationIsShown) {
  plant_row(Row("a", 300).latest(1));
  plant_row(Row("b", 200).latest(2));
  plant_message(1, "a", 310, "first");
  plant_message(2, "a", 250, "second");
  const auto list = page(0);
  EXPECT_EQ(message(list[0]), "a|2|1||second|||0|1|0|0");
  EXPECT_EQ(list[0].session_time, 250);
}

TEST_F(SessionList, DraftKeepsTheTimeAndShowsTheMessage) {
  plant_row(Row("room", 100).latest(7).drafted("to do"));
  plant_message(7, "room", 900);
  const auto list = page(0);
  EXPECT_EQ(list[0].session_time, 100);
  EXPECT_EQ(list[0].draft_, "to do");
  EXPECT_EQ(list[0].message_.content_, "hello");
}

TEST_F(SessionList, WithoutADraftTheMessageTimeIsShownEvenIfOlder) {
  plant_row(Row("room", 100).latest(7));
  plant_message(7, "room", 50);
  EXPECT_EQ(page(0)[0].session_time, 50);
}

TEST_F(SessionList, LatestIdIsTruncatedAndItsMessageShown) {
  plant_row(Row("a", 300).latest(kWide + 7));
  plant_row(Row("b", 200).latest(kAboveInt));
  plant_message(7, "a", 900);
  const auto list = page(0);
  EXPECT_EQ(list[0].message_.msg_id_, 7);
  EXPECT_EQ(list[0].message_.content_, "hello");
  EXPECT_EQ(list[1].message_.msg_id_, kMinInt);
}

TEST_F(SessionList, PageQueriesItsMessagesInRowOrder) {
  plant_row(Row("a", 1).latest(5));
  plant_row(Row("b", 2).latest(0));
  plant_row(Row("c", 3));
  take_ledger();
  page(0);
  EXPECT_EQ(take_ledger(), (Rows{first_page,
                                 "select session_id,session_type,content,object_name,sender,"
                                 "direction,read_status,sent_status,sent_time,server_uid "
                                 "from t_message where id in(-1,0,5)"}));
}

TEST_F(SessionList, PageOmitsMessagesThatCannotBeRead) {
  plant_row(Row("room", 100).latest(7));
  drop("t_message");
  const auto list = page(0);
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(message(list[0]), "room|2|7|||||0|0|0|0");
  EXPECT_EQ(log.take().size(), 1U);
}

TEST_F(SessionList, PageThatCannotBePreparedFails) {
  drop("t_session");
  std::vector<SessionInfo> list(1);
  EXPECT_FALSE(store().get_session_list_by_page({CV_GROUP}, 0, 10, list));
  EXPECT_EQ(list.size(), 1U);
}

// ---- Paging -------------------------------------------------------------------------------------

TEST_F(SessionList, PagesListPinnedThenOthers) {
  plant_row(Row("p3", 30).pinned());
  plant_row(Row("p2", 20).pinned());
  plant_row(Row("p1", 10).pinned());
  plant_row(Row("u4", 40));
  plant_row(Row("u2", 25));
  plant_row(Row("u1", 5));
  EXPECT_EQ(page_ids(0, 2), (Rows{"p3", "p2"}));
  EXPECT_EQ(page_ids(20, 2), (Rows{"p1", "u4"}));
  EXPECT_EQ(page_ids(40, 2), (Rows{"u2", "u1"}));
  EXPECT_EQ(page_ids(5, 2), Rows{});
}

TEST_F(SessionList, CursorIsExclusive) {
  plant_row(Row("a", 100));
  plant_row(Row("b", 99));
  page_that_ends(false);
  EXPECT_EQ(page_ids(100), Rows{"b"});
  plant("update t_session set is_top=1");
  page_ids(0);
  EXPECT_EQ(page_ids(100), Rows{"b"});
}

TEST_F(SessionList, PageAfterPinnedIncludesUnpinnedOfAnyTime) {
  plant_row(Row("newer", 500));
  plant_row(Row("newer pinned", 500).pinned());
  page_that_ends(true);
  EXPECT_EQ(page_ids(100), Rows{"newer"});
}

TEST_F(SessionList, PageAfterUnpinnedExcludesPinned) {
  plant_row(Row("older pinned", 50).pinned());
  plant_row(Row("older", 40));
  page_that_ends(false);
  EXPECT_EQ(page_ids(100), Rows{"older"});
}

TEST_F(SessionList, CursorIsComparedWithTheStoredTimeNotTheShownTime) {
  plant_row(Row("room", 100).latest(7));
  plant_message(7, "room", 50);
  page_that_ends(false);
  EXPECT_EQ(page_ids(100), Rows{});
  EXPECT_EQ(page_ids(101), Rows{"room"});
}

TEST_F(SessionList, StatementDependsOnTheEndOfThePreviousPage) {
  page_that_ends(true);
  EXPECT_EQ(page_statement(100), page_after_pinned);
  plant("delete from t_session");
  page_that_ends(false);
  EXPECT_EQ(page_statement(100), page_after_unpinned);
}

TEST_F(SessionList, FirstPageIsNotFilteredByTime) {
  page_that_ends(true);
  EXPECT_EQ(page_statement(0), first_page);
  plant("delete from t_session");
  page_that_ends(false);
  EXPECT_EQ(page_statement(0), first_page);
}

TEST_F(SessionList, EndOfAPageIsItsLastRowAfterSorting) {
  plant_row(Row("pinned", 100).pinned());
  plant_row(Row("unpinned", 900));
  page(0);
  EXPECT_EQ(page_statement(500), page_after_unpinned);
}

TEST_F(SessionList, AnyNonZeroPinEndsThePageAmongThePinned) {
  for (const int32_t is_top : {2, -1}) {
    plant("delete from t_session");
    plant_row(Row("room", 100).pinned(is_top));
    page(0);
    EXPECT_EQ(page_statement(50), page_after_pinned) << is_top;
  }
}

TEST_F(SessionList, EmptyPageKeepsTheEndOfThePreviousPage) {
  page_that_ends(true);
  EXPECT_EQ(page_ids(100), Rows{});
  EXPECT_EQ(page_statement(100), page_after_pinned);
}

TEST_F(SessionList, FailedPageKeepsTheEndOfThePreviousPage) {
  page_that_ends(true);
  plant_row(Row("room", 100).pinned());
  EXPECT_EQ(page_ids(-5), Rows{});
  EXPECT_EQ(page_statement(100), page_after_pinned);
}

TEST_F(SessionList, EmptyFirstPageResetsTheEndOfThePreviousPage) {
  page_that_ends(true);
  EXPECT_EQ(page_ids(0), Rows{});
  EXPECT_EQ(page_statement(100), page_after_unpinned);
}

TEST_F(SessionList, EndOfThePageOutlivesTheInstance) {
  page_that_ends(true);
  CvDbSingleton::delete_instance();
  ASSERT_TRUE(open());
  EXPECT_EQ(page_statement(100), page_after_pinned);
}

TEST_F(SessionList, NegativeCursorAfterPinnedFails) {
  plant_row(Row("room", 100).pinned());
  plant_row(Row("other", 90));
  page(0, 1);
  std::vector<SessionInfo> list;
  EXPECT_FALSE(store().get_session_list_by_page({CV_GROUP}, -1, 10, list));
  EXPECT_TRUE(list.empty());
  EXPECT_EQ(log.take(), run_failed(20, "datatype mismatch"));
}

TEST_F(SessionList, NegativeCursorAfterUnpinnedStartsOver) {
  plant_row(Row("room", 100).pinned());
  page_that_ends(false);
  EXPECT_EQ(page_ids(-1), Rows{"room"});
}

// ---- One conversation ---------------------------------------------------------------------------

TEST_F(SessionList, FindsAConversationByIdAndKindWithItsMessage) {
  plant(
      "insert into t_session values('room',2,'title','to do',1,100,3,1,4,7,50,60);"
      "insert into t_message values(7,'room',2,'CV:TxtMsg','hello','u01',2,3,5,0,4294967296,6,"
      "'S-1')");
  SessionInfo session = named("room", CV_GROUP);
  EXPECT_TRUE(store().get_session(session));
  EXPECT_EQ(conversation(session), "room|2|title|to do|1|4|3|1|4294967296");
  EXPECT_EQ(message(session), "room|2|7|CV:TxtMsg|hello|u01|S-1|1|5|3|4294967296");
}

TEST_F(SessionList, ConversationWithoutAMessageHasItsOwnTime) {
  for (const int64_t latest : {-1, 0, 77}) {
    plant("delete from t_session");
    plant_row(Row("room", 100).latest(latest));
    SessionInfo session = named("room", CV_GROUP);
    EXPECT_TRUE(store().get_session(session));
    EXPECT_EQ(session.session_time, 100);
    EXPECT_EQ(message(session), "room|2|" + std::to_string(latest) + "|||||0|0|0|100");
  }
}

TEST_F(SessionList, LatestIdOfZeroQueriesNoMessage) {
  plant_row(Row("room", 100).latest(0));
  plant_message(7, "room", 200);
  SessionInfo session = named("room", CV_GROUP);
  take_ledger();
  EXPECT_TRUE(store().get_session(session));
  EXPECT_EQ(take_ledger().size(), 1U);
}

TEST_F(SessionList, NegativeLatestIdQueriesItsMessage) {
  plant_row(Row("room", 100).latest(-3));
  plant_message(-3, "room", 200);
  SessionInfo session = named("room", CV_GROUP);
  EXPECT_TRUE(store().get_session(session));
  EXPECT_EQ(message(session), "room|2|-3||hello|||0|1|0|200");
}

TEST_F(SessionList, ConversationShowsItsLatestMessageEvenFromAnotherConversation) {
  plant_row(Row("room", 100).latest(7));
  plant_message(7, "elsewhere", 900);
  SessionInfo session = named("room", CV_GROUP);
  EXPECT_TRUE(store().get_session(session));
  EXPECT_EQ(message(session), "room|2|7||hello|||0|1|0|900");
}

TEST_F(SessionList, LatestIdOfAConversationIsTruncated) {
  plant_row(Row("room", 100).latest(kAboveInt));
  SessionInfo session = named("room", CV_GROUP);
  EXPECT_TRUE(store().get_session(session));
  EXPECT_EQ(session.message_.msg_id_, kMinInt);
}

TEST_F(SessionList, MissingConversationKeepsTheCallersRecord) {
  plant_row(Row("room", 100).pinned().latest(7));
  SessionInfo session = named("room", CV_PRIVATE);
  session.title_ = "kept";
  session.session_time = 7;
  session.message_.content_ = "kept";
  EXPECT_FALSE(store().get_session(session));
  EXPECT_EQ(conversation(session), "room|1|kept||0|0|0|0|7");
  EXPECT_EQ(message(session), "|0|0||kept|||0|0|0|0");
}

TEST_F(SessionList, ConversationOmitsAMessageThatCannotBeRead) {
  plant_row(Row("room", 100).latest(7));
  drop("t_message");
  SessionInfo session = named("room", CV_GROUP);
  EXPECT_TRUE(store().get_session(session));
  EXPECT_EQ(message(session), "room|2|7|||||0|0|0|100");
}

TEST_F(SessionList, ConversationThatCannotBePreparedFails) {
  drop("t_session");
  SessionInfo session;
  EXPECT_FALSE(store().get_session(session));
}

// ---- Loaders of rows ----------------------------------------------------------------------------

TEST_F(SessionList, RowsAreLoadedWithoutTheirMessages) {
  plant(
      "insert into t_session values('room',2,'title','to do',1,4294967296,3,1,4,7,50,60);"
      "insert into t_message(id,session_id,session_type,content) values(7,'room',2,'hello')");
  std::vector<Session> list(1);
  std::string kinds = "2";
  EXPECT_TRUE(store().load_session(list, kinds, 0, 10, false));
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[1].session_id_, "room");
  EXPECT_EQ(list[1].session_type_, 2);
  EXPECT_EQ(conversation(list[1]), "title|to do|1|4294967296|3|1|4|7");
  EXPECT_EQ(list[1].content_, "");
  EXPECT_EQ(kinds, "2");
}

TEST_F(SessionList, LoadingRowsReturnsWhetherTheVectorIsNonEmpty) {
  std::vector<Session> list;
  std::string kinds = "2";
  EXPECT_FALSE(store().load_session(list, kinds, 0, 10, false));
  list.emplace_back();
  EXPECT_TRUE(store().load_session(list, kinds, 0, 10, false));
  drop("t_session");
  EXPECT_FALSE(store().load_session(list, kinds, 0, 10, false));
}

TEST_F(SessionList, RowsAfterPinnedWithoutATimeFail) {
  plant_row(Row("room", 100));
  std::vector<Session> list;
  std::string kinds = "2";
  EXPECT_FALSE(store().load_session(list, kinds, 0, 10, true));
}

TEST_F(SessionList, RowIsLoadedByTheCallersIdAndKind) {
  plant("insert into t_session values('room',2,'title','to do',1,4294967296,3,1,4,7,50,60)");
  Session session;
  session.session_id_ = "kept";
  session.session_type_ = 9;
  session.content_ = "kept";
  EXPECT_TRUE(store().load_session(session, "room", CV_GROUP));
  EXPECT_EQ(conversation(session), "title|to do|1|4294967296|3|1|4|7");
  EXPECT_EQ(session.session_id_ + session.content_, "keptkept");
  EXPECT_EQ(session.session_type_, 9);
}

TEST_F(SessionList, LatestIdOfARowIsTruncated) {
  plant_row(Row("room", 100).latest(kAboveInt));
  Session session;
  EXPECT_TRUE(store().load_session(session, "room", CV_GROUP));
  EXPECT_EQ(session.latest_id_, kMinInt);
}

TEST_F(SessionList, MissingRowKeepsTheRecord) {
  plant_row(Row("room", 100));
  Session session;
  session.title_ = "kept";
  EXPECT_FALSE(store().load_session(session, "room", CV_PRIVATE));
  drop("t_session");
  EXPECT_FALSE(store().load_session(session, "room", CV_GROUP));
  EXPECT_EQ(conversation(session), "kept||0|0|0|0|0|0");
}

// ---- Loaders of messages ------------------------------------------------------------------------

TEST_F(SessionList, MessagesAreLoadedWithTheirConversations) {
  plant(
      "insert into t_message values(7,'room',2,'CV:TxtMsg','hello','u01',2,3,5,1,4294967296,6,"
      "'S-1'),(8,'other',1,'','','',0,0,0,0,0,0,'')");
  std::vector<Session> list(1);
  EXPECT_TRUE(store().load_message(list, "7,8,9"));
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[1].session_id_, "room");
  EXPECT_EQ(list[1].session_type_, 2);
  EXPECT_EQ(message(list[1]), "hello|CV:TxtMsg|u01|2|5|3|4294967296|S-1");
  EXPECT_EQ(list[1].latest_id_, 0);
  EXPECT_EQ(list[2].session_id_, "other");
  EXPECT_EQ(list[2].session_type_, 1);
}

TEST_F(SessionList, LoadingNoMessageSucceeds) {
  std::vector<Session> list;
  EXPECT_TRUE(store().load_message(list, "7"));
  EXPECT_TRUE(store().load_message(list, ""));
  EXPECT_TRUE(list.empty());
}

TEST_F(SessionList, MessagesThatCannotBePreparedFail) {
  std::vector<Session> list;
  EXPECT_FALSE(store().load_message(list, "1,,2"));
}

TEST_F(SessionList, MessageIsLoadedByIts64BitId) {
  plant(
      "insert into t_message values(4294967303,'room',2,'CV:TxtMsg','hello','u01',2,3,5,1,"
      "4294967296,6,'S-1')");
  Session session;
  session.latest_id_ = kWide + 7;
  session.session_id_ = "kept";
  EXPECT_TRUE(store().load_message(session));
  EXPECT_EQ(message(session), "hello|CV:TxtMsg|u01|2|5|3|4294967296|S-1");
  EXPECT_EQ(session.session_id_, "kept");
}

TEST_F(SessionList, MissingMessageKeepsTheRecord) {
  Session session;
  session.latest_id_ = 7;
  session.session_time_ = 8;
  EXPECT_FALSE(store().load_message(session));
  drop("t_message");
  EXPECT_FALSE(store().load_message(session));
  EXPECT_EQ(message(session), "|||0|0|0|8|");
}

// ---- Conversations of given messages ------------------------------------------------------------

TEST_F(SessionList, ConversationsAreFoundByTheirLatestMessage) {
  plant_row(Row("a", 300).latest(7));
  plant_row(Row("b", 200).latest(8).of(CV_PRIVATE));
  plant_row(Row("c", 100).latest(9));
  std::vector<Session> list(1);
  EXPECT_TRUE(store().load_session_with_latestid(list, "7,8,10"));
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[1].session_id_, "a");
  EXPECT_EQ(list[1].session_type_, CV_GROUP);
  EXPECT_EQ(conversation(list[1]), "||0|0|0|0|0|0");
  EXPECT_EQ(list[2].session_id_, "b");
  EXPECT_EQ(list[2].session_type_, CV_PRIVATE);
}

TEST_F(SessionList, LatestMessageIsComparedIn64Bits) {
  plant_row(Row("a", 300).latest(kWide + 7));
  std::vector<Session> list;
  EXPECT_FALSE(store().load_session_with_latestid(list, "7"));
  EXPECT_TRUE(store().load_session_with_latestid(list, "4294967303"));
}

TEST_F(SessionList, FindingConversationsReturnsWhetherTheVectorIsNonEmpty) {
  std::vector<Session> list;
  EXPECT_FALSE(store().load_session_with_latestid(list, "7"));
  list.emplace_back();
  EXPECT_TRUE(store().load_session_with_latestid(list, "7"));
  EXPECT_FALSE(store().load_session_with_latestid(list, "1,,2"));
}

TEST_F(SessionList, UnreadMessagesOfOneConversationAddUp) {
  plant_message(1, "A", 100, "", 0);
  plant_message(2, "A", 200, "", 0);
  EXPECT_EQ(distinct("1,2"), Rows{"A 2 0"});
}

TEST_F(SessionList, UnreadMessagesOfTheLastConversationAddUp) {
  plant_message(1, "A", 100, "", 0);
  plant_message(2, "B", 100, "", 0);
  plant_message(3, "B", 100, "", 0);
  EXPECT_EQ(distinct("1,2,3"), (Rows{"A 1 0", "B 2 0"}));
}

TEST_F(SessionList, EarlierConversationIsAppendedAgain) {
  plant_message(1, "A", 100, "", 0);
  plant_message(2, "B", 100, "", 0);
  plant_message(3, "A", 100, "", 0);
  EXPECT_EQ(distinct("1,2,3"), (Rows{"A 2 0", "B 1 0", "A 1 0"}));
  plant_message(4, "B", 100, "", 0);
  EXPECT_EQ(distinct("1,2,3,4"), (Rows{"A 2 0", "B 2 0", "A 1 0", "B 1 0"}));
}

TEST_F(SessionList, EveryElementOfAConversationCountsItsMessages) {
  plant_message(1, "A", 100, "", 0);
  plant_message(2, "B", 100, "", 0);
  plant_message(3, "A", 100, "", 0);
  plant_message(4, "A", 100, "", 0);
  EXPECT_EQ(distinct("1,2,3,4"), (Rows{"A 3 0", "B 1 0", "A 2 0"}));
}

TEST_F(SessionList, MessagesReadAndWithoutMentionAddNoElement) {
  plant_message(1, "A", 100);
  plant_message(2, "B", 100, "", 2);
  EXPECT_EQ(distinct("1,2"), Rows{});
}

TEST_F(SessionList, ReadFirstMessageDoesNotHideTheNext) {
  plant_message(1, "A", 100);
  plant_message(2, "A", 100, "", 0);
  EXPECT_EQ(distinct("1,2"), Rows{"A 1 0"});
}

TEST_F(SessionList, ReadMessageOfAnotherConversationIsNotAppended) {
  plant_message(1, "A", 100, "", 0);
  plant_message(2, "B", 100);
  plant_message(3, "A", 100);
  EXPECT_EQ(distinct("1,2,3"), Rows{"A 1 0"});
}

TEST_F(SessionList, ReadMentionAddsAnElement) {
  plant_message(1, "A", 100, "", 1, 1);
  plant_message(2, "A", 100, "", 0, 1);
  EXPECT_EQ(distinct("1,2"), Rows{"A 1 2"});
}

TEST_F(SessionList, OnlyAMentionFlagOfOneCounts) {
  plant_message(1, "A", 100, "", 1, 2);
  plant_message(2, "B", 100, "", 0, 2);
  EXPECT_EQ(distinct("1,2"), Rows{"B 1 0"});
}

TEST_F(SessionList, EqualIdsOfDifferentKindsAreCountedApart) {
  plant_message(1, "A", 100, "", 0);
  plant_message(2, "A", 100, "", 0);
  plant("update t_message set session_type=1 where id=2");
  EXPECT_EQ(distinct("1,2"), (Rows{"A 1 0", "A 1 0"}));
}

TEST_F(SessionList, ElementHasTheTimeOfTheMessageThatAddedIt) {
  plant_message(1, "A", kWide, "", 0);
  plant_message(2, "A", kWide + 1, "", 0);
  std::vector<Session> list;
  EXPECT_TRUE(store().load_distinct_session_with_unread(list, "1,2"));
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0].session_time_, kWide);
  EXPECT_EQ(list[0].session_type_, CV_GROUP);
}

TEST_F(SessionList, CountingContinuesWithTheCallersElements) {
  plant_message(1, "A", 100, "", 0);
  std::vector<Session> list(1);
  list[0].session_id_ = "A";
  list[0].session_type_ = CV_GROUP;
  list[0].unread_count_ = 5;
  EXPECT_TRUE(store().load_distinct_session_with_unread(list, "1"));
  EXPECT_EQ(counted(list), Rows{"A 6 0"});
}

TEST_F(SessionList, CountingReturnsWhetherTheVectorIsNonEmpty) {
  std::vector<Session> list;
  EXPECT_FALSE(store().load_distinct_session_with_unread(list, "7"));
  list.emplace_back();
  EXPECT_TRUE(store().load_distinct_session_with_unread(list, "7"));
  EXPECT_FALSE(store().load_distinct_session_with_unread(list, "1,,2"));
}

// ---- The link to the latest message -------------------------------------------------------------

TEST_F(SessionList, LatestMessageHasTheGreatestTime) {
  plant_message(1, "room", kWide + 1);
  plant_message(2, "room", kWide);
  plant_message(3, "other", kWide + 2);
  int64_t id = 0;
  int64_t time = 0;
  EXPECT_TRUE(store().get_message_latestid("room", CV_GROUP, id, time));
  EXPECT_EQ(id, 1);
  EXPECT_EQ(time, kWide + 1);
}

TEST_F(SessionList, IdOfTheLatestMessageIsTruncated) {
  plant_message(kWide + 7, "room", 100);
  int64_t id = 0;
  int64_t time = 0;
  EXPECT_TRUE(store().get_message_latestid("room", CV_GROUP, id, time));
  EXPECT_EQ(id, 7);
}

TEST_F(SessionList, EmptyConversationSucceedsAndKeepsTheCallersValues) {
  plant_message(1, "room", 100);
  int64_t id = 11;
  int64_t time = 12;
  EXPECT_TRUE(store().get_message_latestid("room", CV_PRIVATE, id, time));
  EXPECT_EQ(id, 11);
  EXPECT_EQ(time, 12);
}

TEST_F(SessionList, LatestMessageThatCannotBeSteppedFails) {
  make_messages_unreadable();
  int64_t id = 11;
  int64_t time = 12;
  EXPECT_FALSE(store().get_message_latestid("room", CV_GROUP, id, time));
  EXPECT_EQ(id, 11);
  EXPECT_EQ(time, 12);
}

TEST_F(SessionList, LatestMessageThatCannotBePreparedFails) {
  drop("t_message");
  int64_t id = 11;
  int64_t time = 12;
  EXPECT_FALSE(store().get_message_latestid("room", CV_GROUP, id, time));
  EXPECT_EQ(id, 11);
  EXPECT_EQ(time, 12);
}

constexpr const char* kLink =
    "select session_type,latest_id,session_time from t_session order by rowid";

TEST_F(SessionList, PositiveLatestIdAlsoMovesTheTime) {
  plant_row(Row("room", 100).latest(7));
  plant_row(Row("room", 100).latest(7).of(CV_PRIVATE));
  EXPECT_TRUE(store().set_message_latestid("room", CV_GROUP, kWide + 7, kWide));
  EXPECT_EQ(rows(kLink), (Rows{"2|4294967303|4294967296", "1|7|100"}));
}

TEST_F(SessionList, PositiveLatestIdAcceptsATimeOfZero) {
  plant_row(Row("room", 100).latest(7));
  EXPECT_TRUE(store().set_message_latestid("room", CV_GROUP, 1, 0));
  EXPECT_EQ(rows(kLink), Rows{"2|1|0"});
}

TEST_F(SessionList, LatestIdOfZeroKeepsTheTime) {
  plant_row(Row("room", 100).latest(7));
  EXPECT_TRUE(store().set_message_latestid("room", CV_GROUP, 0, 900));
  EXPECT_EQ(rows(kLink), Rows{"2|0|100"});
}

TEST_F(SessionList, NegativeLatestIdKeepsTheTime) {
  plant_row(Row("room", 100).latest(7));
  EXPECT_TRUE(store().set_message_latestid("room", CV_GROUP, -1, 900));
  EXPECT_EQ(rows(kLink), Rows{"2|-1|100"});
}

TEST_F(SessionList, LatestIdOfAMissingConversationSucceeds) {
  EXPECT_TRUE(store().set_message_latestid("room", CV_GROUP, 1, 900));
  EXPECT_EQ(rows(kLink), Rows{});
}

TEST_F(SessionList, LatestIdThatCannotBeWrittenFails) {
  plant_row(Row("room", 100).latest(7));
  plant(refuse("update on t_session"));
  EXPECT_FALSE(store().set_message_latestid("room", CV_GROUP, 1, 900));
  EXPECT_EQ(rows(kLink), Rows{"2|7|100"});
  drop("t_session");
  EXPECT_FALSE(store().set_message_latestid("room", CV_GROUP, 1, 900));
}

}  // namespace
}  // namespace corvan_test
