// Several threads on one store: what the store does not promise, because an operation of several
// statements is not atomic. Each test shows one case at its worst moment. A caller who must avoid
// these cases serialises the calls.
//
//  - Duplicate tests of a save. Two simultaneous saves of one message can both store it
//    (SimultaneousSavesOfOneMessageStoreItTwice).
//  - Reads followed by writes. If two run at once, one change is lost, or a time moves back:
//    - save_message, set_session_time, set_sessiontime: an unread message is not counted, or the
//      conversation keeps an earlier time (SimultaneousSavesToOneConversationLoseAnUnreadCount,
//      SimultaneousFirstMessagesLoseAnUnreadCount);
//    - set_is_top, set_message_draft (SimultaneousPinningOfAMissingConversationFails);
//    - update_message_receipt_status (ReceiptTimeGoesBack);
//    - set_sync_time (SimultaneousSyncTimesLoseOne);
//    - clear_message and delete_message by server uids, which set the conversation's newest message
//      afterwards (ClearingAConversationHidesAMessageSavedMeanwhile);
//    - likewise sync_unread, update_message_status, and set_send_time_for_dup_msg after the
//      duplicate test.
//  - Transactions belong to the connection. They also commit or roll back what other threads do
//    meanwhile (SaveOfAnotherThreadIsLostWithTheTransaction). An operation that is one transaction
//    commits the open one (OperationOfAnotherThreadCommitsTheTransaction). Two such operations that
//    run at once are not atomic (DeletingWhileAnotherThreadMarksReadLowersTheCounterTwice).
//  - The last row id belongs to the connection. A save can return the id of another thread's
//    insert, and make it the newest message of its conversation
//    (SaveReturnsTheIdOfAnotherThreadsInsert, BatchRecordReceivesTheIdOfAnotherThreadsInsert). The
//    insert may even be into another table (SaveReturnsTheRowIdOfAnotherThreadsConversation).
//  - The error text belongs to the connection: get_error(), and what the log says about a failure
//    (ErrorTextIsThatOfTheLastFailure). If two operations fail at the same moment, one may even
//    read the text while SQLite replaces it. There is no test for that.
//  - The store remembers only one end of a page of the conversation list
//    (TwoReadersOfTheListLoseTheirPosition).
//  - A compaction fails while any statement runs (CompactionFailsWhileAnotherThreadReads).
//  - A read that runs while another thread writes sees some of the writes and misses others.
//  - Closing the store while another thread has a statement is undefined. So is damage to the file,
//    because the operation that finds it closes and deletes the file. The tests show both in one
//    thread: a running statement is interrupted; the failure then has no connection to ask for the
//    error text, which aborts the process (RunningStatementOfAClosedStoreAborts). A statement that
//    was not running continues on a connection that nobody closes
//    (PreparedStatementOutlivesItsStore).

#include <sqlite3.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/failures.h"
#include "tests/support/store_library.h"
#include "tests/support/store_test.h"
#include "tests/threads/meanwhile.h"

namespace corvan_test {
namespace {

using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;
using Corvan::MessageResponse;
using Corvan::SessionInfo;

class ThreadsNotSafe : public StoreTest {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }

  sqlite3* connection() {
    int32_t rc = 0;
    sqlite3_stmt* const stmt = store().prepare_sql("select 1", rc);
    sqlite3* const db = sqlite3_db_handle(stmt);
    store().finalize(stmt);
    return db;
  }

  // The only conversation's time, newest message and counters.
  Rows room() const {
    return rows(
        "select session_time,latest_id,unread_count,mention_count from t_session "
        "where session_id='room'");
  }
};

using ThreadsNotSafeDeath = ThreadsNotSafe;

const Rows kNotBegun = run_failed(1, "cannot start a transaction within a transaction");

Rows not_committed() {
  Rows lines = run_failed(1, "cannot commit - no transaction is active");
  const Rows rollback = run_failed(1, "cannot rollback - no transaction is active");
  lines.insert(lines.end(), rollback.begin(), rollback.end());
  return lines;
}

TEST_F(ThreadsNotSafe, SimultaneousSavesOfOneMessageStoreItTwice) {
  const NewMessage same = NewMessage().named("u1").client(7);
  int64_t other = 0;
  {
    const Meanwhile second(Meanwhile::kBefore, "insert into t_message",
                           [&] { other = save(same); });
    EXPECT_EQ(save(same), 2);
  }
  EXPECT_EQ(other, 1);
  EXPECT_EQ(rows("select id,server_uid,client_uid from t_message order by id"),
            (Rows{"1|u1|7", "2|u1|7"}));
  EXPECT_EQ(room(), Rows{"100|2|2|0"});
  EXPECT_EQ(save(same), -1);  // known from now on
}

TEST_F(ThreadsNotSafe, SimultaneousFirstMessagesLoseAnUnreadCount) {
  {
    const Meanwhile second(Meanwhile::kAfter, "select 1 from t_session",
                           [&] { save(NewMessage().at(300)); });
    EXPECT_EQ(save(NewMessage().at(400)), 1);
  }
  EXPECT_EQ(rows("select id,sent_time from t_message order by id"), (Rows{"1|400", "2|300"}));
  EXPECT_EQ(room(), Rows{"300|2|1|0"});
  EXPECT_EQ(log.take(), run_failed(19,
                                   "UNIQUE constraint failed: t_session.session_id, "
                                   "t_session.session_type"));
}

TEST_F(ThreadsNotSafe, SimultaneousSavesToOneConversationLoseAnUnreadCount) {
  save(NewMessage().at(100));
  {
    const Meanwhile second(Meanwhile::kAfter, "select session_time,latest_id",
                           [&] { save(NewMessage().at(300).mention()); });
    EXPECT_EQ(save(NewMessage().at(200)), 2);
  }
  // Message 3 is the newest, the third unread one and a mention.
  EXPECT_EQ(room(), Rows{"200|2|2|0"});
}

TEST_F(ThreadsNotSafe, SimultaneousPinningOfAMissingConversationFails) {
  {
    const Meanwhile second(Meanwhile::kAfter, "select 1 from t_session",
                           [&] { store().add_session("room", CV_GROUP, 5, -1, "", 0, 0); });
    EXPECT_FALSE(store().set_is_top("room", CV_GROUP, true, true));
  }
  EXPECT_EQ(rows("select session_time,is_top from t_session"), Rows{"5|0"});
  EXPECT_EQ(log.take().size(), 2U);
}

TEST_F(ThreadsNotSafe, ClearingAConversationHidesAMessageSavedMeanwhile) {
  save(NewMessage());
  {
    const Meanwhile second(Meanwhile::kAfter, "delete from t_message",
                           [&] { save(NewMessage().at(300)); });
    EXPECT_TRUE(store().clear_message("room", CV_GROUP, false));
  }
  EXPECT_EQ(rows("select id,sent_time from t_message order by id"), Rows{"2|300"});
  EXPECT_EQ(room(), Rows{"300|-1|2|0"});
}

TEST_F(ThreadsNotSafe, ReceiptTimeGoesBack) {
  save(NewMessage());
  {
    const Meanwhile second(Meanwhile::kAfter, "select receipt_time", [&] {
      EXPECT_TRUE(store().update_message_receipt_status("room", CV_GROUP, 300));
    });
    EXPECT_TRUE(store().update_message_receipt_status("room", CV_GROUP, 200));
  }
  EXPECT_EQ(rows("select receipt_time from t_session"), Rows{"200"});
}

TEST_F(ThreadsNotSafe, SimultaneousSyncTimesLoseOne) {
  {
    const Meanwhile second(Meanwhile::kAfter, "select receive_time",
                           [&] { EXPECT_TRUE(store().set_sync_time(50, false)); });
    EXPECT_TRUE(store().set_sync_time(70, true));
  }
  EXPECT_EQ(rows("select * from t_sync"), Rows{"me|70|0"});
}

TEST_F(ThreadsNotSafe, SaveOfAnotherThreadIsLostWithTheTransaction) {
  ASSERT_TRUE(store().start_transaction());
  on_another_thread([&] { EXPECT_EQ(save(NewMessage()), 1); });
  EXPECT_EQ(rows("select id from t_message"), Rows{});
  sqlite3* const db = connection();
  sqlite3_commit_hook(
      db, [](void*) { return 1; }, nullptr);
  EXPECT_FALSE(store().commit_transaction());
  sqlite3_commit_hook(db, nullptr, nullptr);
  EXPECT_EQ(rows("select id from t_message"), Rows{});
  EXPECT_EQ(rows("select session_id from t_session"), Rows{});
  EXPECT_EQ(log.take().size(), 4U);  // the commit's failure, and the rollback's
}

TEST_F(ThreadsNotSafe, OperationOfAnotherThreadCommitsTheTransaction) {
  ASSERT_TRUE(store().start_transaction());
  EXPECT_EQ(save(NewMessage()), 1);
  on_another_thread([&] { EXPECT_TRUE(store().set_read_status(1, 1)); });
  EXPECT_EQ(log.take(), kNotBegun);
  EXPECT_EQ(rows("select read_status from t_message"), Rows{"1"});
  EXPECT_EQ(save(NewMessage()), 2);  // outside a transaction
  EXPECT_EQ(rows("select id from t_message"), (Rows{"1", "2"}));
  EXPECT_FALSE(store().commit_transaction());
  EXPECT_EQ(log.take(), not_committed());
}

TEST_F(ThreadsNotSafe, SecondThreadCannotBeginATransactionOfItsOwn) {
  ASSERT_TRUE(store().start_transaction());
  on_another_thread([&] { EXPECT_FALSE(store().start_transaction()); });
  EXPECT_EQ(log.take(), kNotBegun);
  EXPECT_TRUE(store().commit_transaction());
}

TEST_F(ThreadsNotSafe, DeletingWhileAnotherThreadMarksReadLowersTheCounterTwice) {
  save(NewMessage());
  {
    const Meanwhile second(Meanwhile::kAfter, "select session_id,session_type from t_session",
                           [&] { EXPECT_TRUE(store().set_read_status(1, 1)); });
    EXPECT_TRUE(store().delete_message(std::vector<int64_t>{1}));
  }
  EXPECT_EQ(room(), Rows{"100|-1|-1|0"});
  Rows expected = kNotBegun;
  const Rows end = not_committed();
  expected.insert(expected.end(), end.begin(), end.end());
  EXPECT_EQ(log.take(), expected);
}

TEST_F(ThreadsNotSafe, SaveReturnsTheIdOfAnotherThreadsInsert) {
  save(NewMessage().in("other", CV_GROUP));
  {
    const Meanwhile second(Meanwhile::kAfter, "insert into t_message", [&] {
      EXPECT_EQ(save(NewMessage().in("other", CV_GROUP).text("of the other").at(300)), 3);
    });
    EXPECT_EQ(save(NewMessage().text("mine")), 3);
  }
  EXPECT_EQ(rows("select id,session_id,content from t_message order by id"),
            (Rows{"1|other|hello", "2|room|mine", "3|other|of the other"}));
  EXPECT_EQ(rows("select session_id,latest_id from t_session order by session_id"),
            (Rows{"other|3", "room|3"}));
  std::vector<SessionInfo> list;  // the entry lacks the message
  EXPECT_TRUE(store().get_session_list_by_page({CV_GROUP}, 0, 5, list));
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[1].session_id_, "room");
  EXPECT_EQ(list[1].message_.content_, "");
  SessionInfo info;  // shows the message of the other conversation
  info.session_id_ = "room";
  info.session_type_ = CV_GROUP;
  EXPECT_TRUE(store().get_session(info));
  EXPECT_EQ(info.message_.content_, "of the other");
}

TEST_F(ThreadsNotSafe, SaveReturnsTheRowIdOfAnotherThreadsConversation) {
  plant("insert into t_session(rowid,session_id,session_type) values(76,'before',2)");
  {
    const Meanwhile second(Meanwhile::kAfter, "insert into t_message",
                           [&] { store().add_session("other", CV_GROUP, 5, -1, "", 0, 0); });
    EXPECT_EQ(save(NewMessage()), 77);  // a row of t_session; no message has that id
  }
  EXPECT_EQ(rows("select id from t_message"), Rows{"1"});
  EXPECT_EQ(room(), Rows{"100|77|1|0"});
}

TEST_F(ThreadsNotSafe, BatchRecordReceivesTheIdOfAnotherThreadsInsert) {
  save(NewMessage());
  std::vector<std::unique_ptr<MessageResponse>> batch;
  batch.push_back(std::make_unique<MessageResponse>());
  batch[0]->is_store_ = true;
  batch[0]->msg_id_ = -1;
  batch[0]->session_id_ = "mine";
  {
    const Meanwhile second(Meanwhile::kAfter, "insert into t_message",
                           [&] { EXPECT_EQ(save(NewMessage()), 3); });
    EXPECT_TRUE(store().save_message(batch));
  }
  EXPECT_EQ(batch[0]->msg_id_, 3);
  EXPECT_EQ(rows("select id,session_id from t_message order by id"),
            (Rows{"1|room", "2|mine", "3|room"}));
}

TEST_F(ThreadsNotSafe, ErrorTextIsThatOfTheLastFailure) {
  ASSERT_TRUE(store().set_sync_time(1, true));
  {
    const Meanwhile second(Meanwhile::kAfter, "insert into t_sync",
                           [&] { store().execute_none_query("selct 1"); });
    EXPECT_EQ(store().execute_none_query("insert into t_sync values('me',0,0)"), 19);
  }
  const std::string syntax_error = "near \"selct\": syntax error";
  EXPECT_EQ(log.take(), (Rows{prepare_failed(syntax_error), step_failed(19, syntax_error),
                              finalize_failed(19, "UNIQUE constraint failed: t_sync.user_id")}));
}

TEST_F(ThreadsNotSafe, ErrorTextIsClearedByAnyOtherStatement) {
  store().execute_none_query("selct 1");
  EXPECT_EQ(store().get_error(), "near \"selct\": syntax error");
  on_another_thread([&] { EXPECT_FALSE(store().is_session_exist("room", CV_GROUP)); });
  EXPECT_EQ(store().get_error(), "not an error");
  log.take();
}

TEST_F(ThreadsNotSafe, TwoReadersOfTheListLoseTheirPosition) {
  plant_session("pinned 9", CV_GROUP, 900, 0);
  plant_session("pinned 8", CV_GROUP, 800, 0);
  plant("update t_session set is_top=1");
  plant_session("plain 10", CV_GROUP, 1000, 0);
  plant_session("plain 7", CV_GROUP, 700, 0);
  plant_session("private", CV_PRIVATE, 500, 0);
  std::vector<SessionInfo> list;
  ASSERT_TRUE(store().get_session_list_by_page({CV_GROUP}, 0, 1, list));
  ASSERT_EQ(list[0].session_id_, "pinned 9");
  on_another_thread([&] {
    std::vector<SessionInfo> other;
    EXPECT_TRUE(store().get_session_list_by_page({CV_PRIVATE}, 0, 1, other));
  });
  ASSERT_TRUE(store().get_session_list_by_page({CV_GROUP}, 900, 5, list));
  ASSERT_EQ(list.size(), 2U);  // without "pinned 8" and "plain 10"
  EXPECT_EQ(list[1].session_id_, "plain 7");
}

TEST_F(ThreadsNotSafe, CompactionFailsWhileAnotherThreadReads) {
  save(NewMessage().at(100));
  save(NewMessage().at(200));
  save(NewMessage().in("other", CV_GROUP));
  std::vector<MessageResponse> page;
  {
    const Meanwhile second(Meanwhile::kAfter, "select id,content",
                           [&] { EXPECT_FALSE(store().clear_message("other", CV_GROUP, true)); });
    EXPECT_TRUE(store().get_history_message_by_time("room", CV_GROUP, "", 0, 5, page, true));
  }
  EXPECT_EQ(page.size(), 2U);
  EXPECT_EQ(rows("select id from t_message"), (Rows{"1", "2"}));  // cleared nevertheless
  EXPECT_EQ(log.take(), run_failed(1, "cannot VACUUM - SQL statements in progress"));
}

TEST_F(ThreadsNotSafe, PreparedStatementOutlivesItsStore) {
  int32_t rc = 0;
  sqlite3_stmt* const stmt = store().prepare_sql("select 1", rc);
  sqlite3* const db = sqlite3_db_handle(stmt);
  store().close_db();
  EXPECT_EQ(store().get_pragma("select 1"), -1);  // the store does not use it any more
  EXPECT_EQ(store().step(stmt, true), SQLITE_ROW);
  EXPECT_EQ(close_connection(db), SQLITE_OK);
}

TEST_F(ThreadsNotSafeDeath, RunningStatementOfAClosedStoreAborts) {
  EXPECT_DEATH(
      {
        int32_t rc = 0;
        sqlite3_stmt* const stmt = store().prepare_sql("select 1 union all select 2", rc);
        if (store().step(stmt, false) != SQLITE_ROW) _exit(0);
        store().close_db();
        store().step(stmt, false);
      },
      "Check failed: db_ != nullptr\n# db nullptr\n");
}

}  // namespace
}  // namespace corvan_test
