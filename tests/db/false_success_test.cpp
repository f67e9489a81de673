// Operations that report success although part of the work failed, because they do not check every
// step or because they commit more than once. docs/reliability.md tells callers what to do.

#include <sqlite3.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/failures.h"
#include "tests/support/store_test.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

using Corvan::MessageResponse;
using Corvan::SessionInfo;

constexpr auto kRoom = Corvan::CV_GROUP;

// While it exists, statements that read this column cannot be prepared: all of them, or the first
// `times`.
class UnreadableColumn {
 public:
  explicit UnreadableColumn(std::string name, int times = std::numeric_limits<int>::max())
      : name_(std::move(name)), left_(times), db_(store_connection()) {
    sqlite3_set_authorizer(db_, authorize, this);
  }
  UnreadableColumn(const UnreadableColumn&) = delete;
  UnreadableColumn& operator=(const UnreadableColumn&) = delete;
  ~UnreadableColumn() { sqlite3_set_authorizer(db_, nullptr, nullptr); }

 private:
  static int authorize(void* self, int action, const char* table, const char* column,
                       const char* /*schema*/, const char* /*trigger*/) {
    if (action != SQLITE_READ) return SQLITE_OK;
    UnreadableColumn& denied = *static_cast<UnreadableColumn*>(self);
    const std::string name = std::string(table) + "." + column;
    if (name != denied.name_ || denied.left_ == 0) return SQLITE_OK;
    --denied.left_;
    return SQLITE_DENY;
  }

  std::string name_;
  int left_;  // a denial ends its statement
  sqlite3* db_;
};

// While it exists, every commit is turned into a rollback.
class RefusedCommits {
 public:
  RefusedCommits() : db_(store_connection()) {
    sqlite3_commit_hook(
        db_, [](void*) { return 1; }, nullptr);
  }
  RefusedCommits(const RefusedCommits&) = delete;
  RefusedCommits& operator=(const RefusedCommits&) = delete;
  ~RefusedCommits() { sqlite3_commit_hook(db_, nullptr, nullptr); }

 private:
  sqlite3* db_;
};

class FalseSuccess : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    save(NewMessage().at(100).named("s1").mention());
    save(NewMessage().own(5).at(200).named("s2"));
    save(NewMessage().own(6).at(300));
    log.take();
  }
  void TearDown() override {
    EXPECT_NE(log.take(), Rows{});  // only the log shows the failure
    StoreTest::TearDown();
  }

  Rows messages() const { return rows("select id from t_message order by id"); }
  Rows room() const {
    return rows(
        "select session_time,unread_count,mention_count,latest_id,receipt_time from t_session "
        "where session_id='room'");
  }
};

// ---- Saving messages ----------------------------------------------------------------------------

TEST_F(FalseSuccess, SaveStoresAMessageAgainWhenItsServerUidCannotBeLookedUp) {
  const UnreadableColumn uid("t_message.server_uid");
  EXPECT_EQ(save(NewMessage().at(100).named("s1")), 4);
  EXPECT_EQ(rows("select id from t_message where server_uid='s1'"), (Rows{"1", "4"}));
}

TEST_F(FalseSuccess, SaveStoresAMessageAgainWhenItsClientUidCannotBeLookedUp) {
  const UnreadableColumn uid("t_message.client_uid");
  EXPECT_EQ(save(NewMessage().own(5).at(200)), 4);
  EXPECT_EQ(rows("select id from t_message where client_uid=5"), (Rows{"2", "4"}));
}

TEST_F(FalseSuccess, SaveReturnsTheIdOfAMessageThatItsConversationDoesNotShow) {
  plant(refuse("update on t_session"));
  EXPECT_EQ(save(NewMessage().at(900)), 4);
  EXPECT_EQ(messages(), (Rows{"1", "2", "3", "4"}));
  EXPECT_EQ(room(), Rows{"300|1|1|3|0"});
}

TEST_F(FalseSuccess, SaveReturnsTheIdOfAMessageWithoutAConversation) {
  plant(refuse("insert on t_session"));
  EXPECT_EQ(save(NewMessage().in("new", kRoom)), 4);
  EXPECT_EQ(rows("select count(*) from t_session where session_id='new'"), Rows{"0"});
}

TEST_F(FalseSuccess, SaveThatCannotReadItsConversationStartsItsCountersAgain) {
  const UnreadableColumn time("t_session.session_time");
  EXPECT_EQ(save(NewMessage().at(50)), 4);
  EXPECT_EQ(room(), Rows{"50|1|0|4|0"});  // correct: 2 unread and a mention at 300
}

TEST_F(FalseSuccess, EchoReturnsTheIdOfAMessageThatItDidNotComplete) {
  plant(refuse("update on t_message"));
  EXPECT_EQ(save(NewMessage().own(6).at(900).named("s3")), 3);
  EXPECT_EQ(rows("select server_uid,sent_time from t_message where id=3"), Rows{"|300"});
}

TEST_F(FalseSuccess, BatchReturnsTrueAndForeignIdsWhenItsInsertsFail) {
  plant(refuse("insert on t_message"));
  std::vector<std::unique_ptr<MessageResponse>> batch;
  batch.push_back(std::make_unique<MessageResponse>());
  batch.back()->is_store_ = true;
  batch.back()->msg_id_ = -1;
  EXPECT_TRUE(store().save_message(batch));
  EXPECT_EQ(batch.back()->msg_id_, 3);  // the id of the message saved before
  EXPECT_EQ(messages(), (Rows{"1", "2", "3"}));
}

TEST_F(FalseSuccess, MessageThatCannotBeLookedUpIsReportedAsMissing) {
  const StepsUntilInterrupt none(0);
  EXPECT_FALSE(store().is_message_exist("s1"));
  EXPECT_FALSE(store().is_message_exist("room", kRoom, int64_t{50}));
  std::vector<std::string> uids;
  EXPECT_TRUE(store().is_message_exist("'s1'", uids));
  EXPECT_EQ(uids, Rows{});
}

// ---- Message state ------------------------------------------------------------------------------

TEST_F(FalseSuccess, ReadStatusIsReportedAsSetWhenItsCommitFails) {
  const RefusedCommits refused;
  EXPECT_TRUE(store().set_read_status(1, 1));
  EXPECT_EQ(rows("select read_status from t_message where id=1"), Rows{"0"});
}

TEST_F(FalseSuccess, ReadStatusIsReportedAsSetWhenTheCountersAreNotUpdated) {
  plant(refuse("update on t_session"));
  EXPECT_TRUE(store().set_read_status(1, 1));
  EXPECT_EQ(rows("select read_status from t_message where id=1"), Rows{"1"});
  EXPECT_EQ(room(), Rows{"300|1|1|3|0"});
}

TEST_F(FalseSuccess, ReceiptIsReportedAsAppliedWhenItsTimeIsNotStored) {
  plant(refuse("update on t_session"));
  EXPECT_TRUE(store().update_message_receipt_status("room", kRoom, 250));
  EXPECT_EQ(rows("select sent_status from t_message where id=2"), Rows{"3"});
  EXPECT_EQ(room(), Rows{"300|1|1|3|0"});
}

// ---- Deleting and clearing messages -------------------------------------------------------------

TEST_F(FalseSuccess, MessagesAreReportedAsDeletedWhenTheCommitFails) {
  const RefusedCommits refused;
  EXPECT_TRUE(store().delete_message(std::vector<int64_t>{1, 3}));
  EXPECT_EQ(messages(), (Rows{"1", "2", "3"}));
}

TEST_F(FalseSuccess, MessagesAreReportedAsDeletedWhenTheCountersAreNotUpdated) {
  const UnreadableColumn state("t_message.read_status");
  EXPECT_TRUE(store().delete_message(std::vector<int64_t>{1, 3}));
  EXPECT_EQ(messages(), Rows{"2"});
  EXPECT_EQ(room(), Rows{"200|1|1|2|0"});  // the deleted message still counts
}

TEST_F(FalseSuccess, MessagesAreReportedAsDeletedWhenTheirConversationStillPointsToThem) {
  const UnreadableColumn latest("t_session.latest_id");
  EXPECT_TRUE(store().delete_message(std::vector<int64_t>{3}));
  EXPECT_EQ(room(), Rows{"300|1|1|3|0"});
}

TEST_F(FalseSuccess, ConversationIsReportedAsClearedWhenItStillPointsToAMessage) {
  plant(refuse("update on t_session"));
  EXPECT_TRUE(store().clear_message("room", kRoom, false));
  EXPECT_EQ(messages(), Rows{});
  EXPECT_EQ(room(), Rows{"300|1|1|3|0"});
}

TEST_F(FalseSuccess, SuccessfulCompactionHidesThatNothingWasCleared) {
  plant(refuse("delete on t_message"));
  EXPECT_TRUE(store().clear_message("room", kRoom, true));
  EXPECT_EQ(messages(), (Rows{"1", "2", "3"}));
  EXPECT_EQ(room(), Rows{"300|1|1|-1|0"});
}

// ---- Message queries ----------------------------------------------------------------------------

TEST_F(FalseSuccess, TruncatedPageIsReportedAsComplete) {
  std::vector<MessageResponse> page;
  for (int steps = 0; page.size() != 2; ++steps) {
    ASSERT_LT(steps, 1000);
    page.clear();
    const StepsUntilInterrupt some(steps);
    const bool found = store().get_history_message_by_time("room", kRoom, "", 99, 9, page, false);
    EXPECT_EQ(found, !page.empty());
  }
  EXPECT_EQ(page.back().msg_id_, 2);  // of three
}

TEST_F(FalseSuccess, PageAfterAnUnreadableAnchorStartsAtTheOldestMessage) {
  const UnreadableColumn time("t_message.sent_time", 1);
  std::vector<MessageResponse> page;
  EXPECT_TRUE(store().get_history_message_by_object_name("room", kRoom, {}, 2, 9, page, false));
  EXPECT_EQ(page.size(), 3U);  // if the anchor had been read: message 3 alone
}

// ---- Read state and send time -------------------------------------------------------------------

TEST_F(FalseSuccess, EarlierMessagesAreMarkedAsReadWhenTheReadTimeCannotBeRead) {
  plant("update t_session set read_time=200");
  const UnreadableColumn time("t_session.read_time");
  EXPECT_TRUE(store().update_message_status("room", kRoom));
  EXPECT_EQ(rows("select read_status from t_message where id=1"), Rows{"1"});  // of time 100
}

// ---- Conversation rows and settings -------------------------------------------------------------

TEST_F(FalseSuccess, ConversationThatCannotBeLookedUpIsReportedAsUnpinned) {
  ASSERT_TRUE(store().set_is_top("room", kRoom, true, false));
  const UnreadableColumn id("t_session.session_id");
  EXPECT_TRUE(store().set_is_top("room", kRoom, false, false));
  EXPECT_EQ(rows("select is_top from t_session"), Rows{"1"});
}

TEST_F(FalseSuccess, DraftOfAConversationThatCannotBeLookedUpIsReportedAsCleared) {
  ASSERT_TRUE(store().set_message_draft("room", kRoom, "draft"));
  const UnreadableColumn id("t_session.session_id");
  EXPECT_TRUE(store().set_message_draft("room", kRoom, ""));
  EXPECT_EQ(rows("select draft from t_session"), Rows{"draft"});
}

TEST_F(FalseSuccess, ConversationIsReportedAsRemovedWhenItsMessagesRemainUnread) {
  plant(refuse("update on t_message"));
  EXPECT_TRUE(store().remove_session("room", kRoom));
  EXPECT_EQ(rows("select count(*) from t_session"), Rows{"0"});
  EXPECT_EQ(rows("select read_status from t_message where id=1"), Rows{"0"});
}

TEST_F(FalseSuccess, ConversationsAreReportedAsClearedWhenTheCommitFails) {
  const RefusedCommits refused;
  EXPECT_TRUE(store().clear_session({kRoom}));
  EXPECT_EQ(messages(), (Rows{"1", "2", "3"}));
}

// ---- Conversation list --------------------------------------------------------------------------

TEST_F(FalseSuccess, ListEntryIsReturnedWithoutAMessageThatCannotBeRead) {
  const UnreadableColumn content("t_message.content");
  std::vector<SessionInfo> page;
  EXPECT_TRUE(store().get_session_list_by_page({kRoom}, 0, 9, page));
  ASSERT_EQ(page.size(), 1U);
  EXPECT_EQ(page[0].message_.msg_id_, 3);
  EXPECT_EQ(page[0].message_.content_, "");
}

TEST_F(FalseSuccess, ConversationIsReturnedWithoutAMessageThatCannotBeRead) {
  const UnreadableColumn content("t_message.content");
  SessionInfo session;
  session.session_id_ = "room";
  session.session_type_ = kRoom;
  EXPECT_TRUE(store().get_session(session));
  EXPECT_EQ(session.unread_count_, 1);
  EXPECT_EQ(session.message_.content_, "");
}

// ---- Counters, read and receipt times -----------------------------------------------------------

TEST_F(FalseSuccess, SumThatCannotBeReadKeepsTheCallersValueAndReturnsTrue) {
  const StepsUntilInterrupt none(0);
  int32_t unread = 77;
  EXPECT_TRUE(store().get_total_unread_count(unread));
  EXPECT_EQ(unread, 77);
}

TEST_F(FalseSuccess, ConversationIsReportedAsReadWhenTheCommitFails) {
  const RefusedCommits refused;
  EXPECT_TRUE(store().clear_unread("room", kRoom));
  EXPECT_EQ(room(), Rows{"300|1|1|3|0"});
}

TEST_F(FalseSuccess, ConversationIsReportedAsReadWhenTheCountersAreNotUpdated) {
  plant(refuse("update on t_session"));
  EXPECT_TRUE(store().clear_unread("room", kRoom));
  EXPECT_EQ(rows("select read_status from t_message where id=1"), Rows{"1"});
  EXPECT_EQ(room(), Rows{"300|1|1|3|0"});
}

TEST_F(FalseSuccess, ReadTimeBecomesZeroWhenTheNewestReceivedTimeCannotBeRead) {
  plant("update t_session set read_time=50");
  const UnreadableColumn time("t_message.sent_time", 1);
  EXPECT_TRUE(store().clear_unread("room", kRoom));
  EXPECT_EQ(rows("select read_time,unread_count from t_session"), Rows{"0|0"});
}

// ---- Lifecycle and opening ----------------------------------------------------------------------

TEST_F(FalseSuccess, OpeningReturnsTrueWhenTheSchemaCannotBeWritten) {
  store().close_db();
  const TemporaryFolder other;
  write_file(other.file("corvan"), "");
  sqlite3* locker = nullptr;
  ASSERT_EQ(sqlite3_open(other.file("corvan").c_str(), &locker), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(locker, "begin exclusive", nullptr, nullptr, nullptr), SQLITE_OK);
  // The key of an encrypted store is tried while the file is opened, and cannot be.
  EXPECT_EQ(store().init_open_db(cvrtc::Pathname(other.path()), "", "me"), !stores_are_encrypted());
  sqlite3_close(locker);
  EXPECT_EQ(save(NewMessage()), -1);  // no table
}

// ---- Transactions and sync times ----------------------------------------------------------------

TEST_F(FalseSuccess, SettingOneSyncTimeLosesTheOtherWhenTheyCannotBeRead) {
  ASSERT_TRUE(store().set_sync_time(70, false));
  const UnreadableColumn time("t_sync.receive_time");
  EXPECT_TRUE(store().set_sync_time(50, true));
  EXPECT_EQ(rows("select receive_time,sent_time from t_sync"), Rows{"50|0"});
}

TEST_F(FalseSuccess, CommitFailsAfterAnOperationInsideHasCommitted) {
  ASSERT_TRUE(store().start_transaction());
  EXPECT_EQ(save(NewMessage().at(900)), 4);
  EXPECT_TRUE(store().set_read_status(1, 1));  // commits its own transaction
  EXPECT_EQ(save(NewMessage().at(901)), 5);    // from here on outside a transaction
  EXPECT_FALSE(store().commit_transaction());
  EXPECT_EQ(messages(), (Rows{"1", "2", "3", "4", "5"}));
}

// On a full disk SQLite rolls back the whole transaction. The caller does not notice before the
// commit, and later saves continue, each with its own commit.
TEST_F(FalseSuccess, SavesInATransactionThatSqliteRolledBackAreLostOrStoredOneByOne) {
  ASSERT_TRUE(store().start_transaction());
  EXPECT_EQ(save(NewMessage().at(900)), 4);
  const int32_t pages = store().get_pragma("pragma page_count");
  ASSERT_EQ(store().get_pragma("pragma max_page_count=" + std::to_string(pages)), pages);
  EXPECT_EQ(save(NewMessage().at(901).text(std::string(100000, 'x'))), -1);  // the disk is full
  EXPECT_FALSE(in_transaction());
  EXPECT_EQ(save(NewMessage().at(902)), 4);  // also the id of a message that was rolled back
  EXPECT_FALSE(store().commit_transaction());
  EXPECT_EQ(rows("select id,sent_time from t_message where id>3"), Rows{"4|902"});
}

}  // namespace
}  // namespace corvan_test
