// What callers see when memory runs out: the cases that the header and the documents describe.

#include <gtest/gtest.h>

#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <new>
#include <sstream>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"
#include "tests/faults/memory_faults.h"
#include "tests/support/store_library.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;
using Corvan::Session;
using Corvan::SessionInfo;

// ---- Transactions that cannot be ended ----------------------------------------------------------

class OutOfMemoryInTransaction : public StoreTest {
 protected:
  // Changes the read status of message 1, in one transaction, with just enough of SQLite's memory
  // to succeed: none is left to end the transaction.
  void leave_open() {
    ASSERT_EQ(save(NewMessage().own()), 1);
    for (uint64_t nth = 1; !in_transaction(); ++nth) {
      release_idle_statements();
      arm_memory(Memory::kSqlite, nth, false);
      const bool set = store().set_read_status(1, 5);
      disarm_memory();
      ASSERT_TRUE(!set || in_transaction()) << "it was ended in every case";
      // A transaction in which nothing succeeded also stays open.
      if (!set && in_transaction()) {
        ASSERT_TRUE(store().commit_transaction());
      }
    }
    log.take();
    ASSERT_EQ(committed(), Rows{"1|1"});
  }

  Rows committed() const { return rows("select id,read_status from t_message order by id"); }
};

// Neither "commit transaction" nor "rollback transaction" can be prepared. If one of them is idle,
// no memory is needed: tests/addons/statement_cache/ tests that.
TEST_F(OutOfMemoryInTransaction, TransactionStaysOpenWhenThereIsNoMemoryToEndIt) {
  ASSERT_TRUE(store().start_transaction());
  ASSERT_EQ(save(NewMessage()), 1);
  release_idle_statements();
  arm_memory(Memory::kSqlite, 1, false);
  const bool ended = store().commit_transaction();
  disarm_memory();
  EXPECT_FALSE(ended);
  EXPECT_TRUE(in_transaction());
  EXPECT_EQ(committed(), Rows{});

  EXPECT_TRUE(store().commit_transaction());
  EXPECT_FALSE(in_transaction());
  EXPECT_EQ(committed(), Rows{"1|0"});
}

// An idle "commit transaction" needs no memory.
TEST_F(OutOfMemoryInTransaction, KeptCommitEndsTheTransactionWithoutMemory) {
  ASSERT_TRUE(store().start_transaction());
  ASSERT_TRUE(store().commit_transaction());
  ASSERT_TRUE(store().start_transaction());
  arm_memory(Memory::kSqlite, 1, false);
  const bool ended = store().commit_transaction();
  disarm_memory();
  EXPECT_EQ(ended, statements_are_kept());
  EXPECT_EQ(in_transaction(), !statements_are_kept());
  EXPECT_EQ(log.take().empty(), statements_are_kept());
  store().close_db();
}

TEST_F(OutOfMemoryInTransaction, TransactionOfASuccessfulOperationAlsoStaysOpen) {
  ASSERT_NO_FATAL_FAILURE(leave_open());
  EXPECT_FALSE(store().start_transaction());
  log.take();
  EXPECT_TRUE(store().commit_transaction());
  EXPECT_FALSE(in_transaction());
  EXPECT_EQ(committed(), Rows{"1|5"});
}

TEST_F(OutOfMemoryInTransaction, NextOperationWithATransactionCommitsTheOpenOne) {
  ASSERT_NO_FATAL_FAILURE(leave_open());
  EXPECT_EQ(save(NewMessage().at(200)), 2);
  EXPECT_EQ(committed(), Rows{"1|1"});
  EXPECT_TRUE(store().clear_unread("room", Corvan::CV_GROUP));
  EXPECT_FALSE(in_transaction());
  EXPECT_EQ(committed(), (Rows{"1|5", "2|1"}));
}

TEST_F(OutOfMemoryInTransaction, ClosingTheStoreRollsBackTheOpenTransaction) {
  ASSERT_NO_FATAL_FAILURE(leave_open());
  EXPECT_EQ(save(NewMessage().at(200)), 2);
  store().close_db();
  ASSERT_TRUE(open());
  EXPECT_EQ(committed(), Rows{"1|1"});
}

// ---- The object, and its opening ----------------------------------------------------------------

TEST(OutOfMemoryForTheInstance, GetInstanceThrowsAndThenWorks) {
  CvDbSingleton::delete_instance();
  arm_memory(Memory::kOwn, 1, false);
  EXPECT_THROW(CvDbSingleton::get_instance(), std::bad_alloc);
  disarm_memory();
  CvDbSingleton* const store = CvDbSingleton::get_instance();
  ASSERT_NE(store, nullptr);
  EXPECT_EQ(CvDbSingleton::get_instance(), store);
  CvDbSingleton::delete_instance();
}

class OutOfMemoryInStore : public StoreTest {};

// The first opening initialises SQLite. If memory runs out there, nothing is opened.
TEST_F(OutOfMemoryInStore, OpeningFailsWithoutMemoryToStartSqlite) {
  SKIP_IF_ENCRYPTED("after sqlite3_shutdown() SQLite must be started to register the keys again");
  for (const bool once : {true, false}) {
    uint64_t failures = 0;
    for (uint64_t nth = 1, opened = 0; opened == 0; ++nth) {
      store().close_db();
      ASSERT_EQ(sqlite3_shutdown(), SQLITE_OK);
      arm_memory(Memory::kSqlite, nth, once);
      opened = open() ? 1 : 0;
      disarm_memory();
      EXPECT_EQ(store_connection() != nullptr, opened != 0) << "allocation " << nth;
      if (opened == 0) ++failures;
    }
    EXPECT_GT(failures, 0U);
    store().close_db();
    ASSERT_TRUE(open());
    EXPECT_GT(save(NewMessage().named(once ? "s1" : "s2")), 0);
  }
  log.take();
}

// The line of the failed prepare is lost or truncated; everything else is done.
TEST_F(OutOfMemoryInStore, DamagedFileIsDeletedWithoutMemoryForTheLogLine) {
  store().close_db();
  write_file(file(), std::string(8192, 'x'));
  if (is_refused(SQLITE_NOTADB)) return;
  ASSERT_EQ(store().open_db(), SQLITE_OK);
  const std::string query = "select 1 from t_sync";
  int32_t code = 0;
  arm_memory(Memory::kOwn, 1, true);
  EXPECT_NO_THROW(EXPECT_EQ(store().prepare_sql(query, code), nullptr));
  disarm_memory();
  EXPECT_EQ(failed_allocations(), 1U);
  EXPECT_EQ(code, SQLITE_NOTADB);
  EXPECT_EQ(store_connection(), nullptr);
  EXPECT_FALSE(file_exists(file()));
  // The standard library decides whether text that was streamed before memory ran out becomes a log
  // line.
  for (const std::string& line : log.take()) {
    EXPECT_EQ(line.find(query), std::string::npos) << line;
  }
}

class OutOfMemoryInOpening : public StoreTest {
 protected:
  // A new file whose opening threw std::bad_alloc before it created the schema.
  void SetUp() override {
    for (uint64_t nth = 1; store_connection() == nullptr || !rows(kTables).empty(); ++nth) {
      CvDbSingleton::delete_instance();
      for (const char* name : {"corvan", "corvan-wal", "corvan-shm"}) {
        std::remove(folder.file(name).c_str());
      }
      store();
      arm_memory(Memory::kOwn, nth, true);
      bool threw = false;
      try {
        open();
      } catch (const std::bad_alloc&) {
        threw = true;
      }
      disarm_memory();
      // Where memory for the key runs out, SQLite does not open the file, and nothing is thrown.
      const bool refused = stores_are_encrypted() && store_connection() == nullptr;
      ASSERT_TRUE(threw || refused) << "each opening leaves tables behind, or none open";
    }
    EXPECT_FALSE(in_transaction());
  }

  static constexpr const char* kTables = "select name from sqlite_master where type='table'";
};

TEST_F(OutOfMemoryInOpening, CallerCanCloseAndOpenAgain) {
  store().close_db();
  ASSERT_TRUE(open());
  EXPECT_EQ(save(NewMessage()), 1);
}

// The connection is open for the user, so another opening does nothing more.
TEST_F(OutOfMemoryInOpening, OpeningAgainWithoutClosingDoesNotCreateTheTables) {
  EXPECT_TRUE(open());
  EXPECT_EQ(rows(kTables), Rows{});
  EXPECT_EQ(save(NewMessage()), -1);
  log.take();
}

// ---- The caller's records -----------------------------------------------------------------------

std::string fields(const std::string& text) {
  return text;
}
std::string fields(const MessageResponse& m) {
  std::ostringstream out;
  out << m.msg_id_ << ":" << m.session_id_ << ":" << m.session_type_ << ":" << m.sender_ << ":"
      << m.object_name_ << ":" << m.content_ << ":" << m.server_uid_ << ":" << m.is_receive_
      << m.read_status_ << m.sent_status_ << ":" << m.sent_time_;
  return out.str();
}
std::string fields(const Session& s) {
  std::ostringstream out;
  out << s.session_id_ << ":" << s.session_type_ << ":" << s.title_ << ":" << s.draft_ << ":"
      << s.is_top_ << ":" << s.session_time_ << ":" << s.unread_count_ << ":" << s.mention_count_
      << ":" << s.latest_id_ << ":" << s.content_ << ":" << s.sender_ << ":" << s.server_uid_;
  return out.str();
}
std::string fields(const SessionInfo& s) {
  std::ostringstream out;
  out << s.session_id_ << ":" << s.session_type_ << ":" << s.title_ << ":" << s.draft_ << ":"
      << s.is_top_ << ":" << s.session_time << ":" << s.unread_count_ << ":" << s.mention_count_
      << ":" << fields(s.message_);
  return out.str();
}

template <typename Record>
Rows fields_of(const std::vector<Record>& records) {
  Rows all;
  for (const Record& each : records) all.push_back(fields(each));
  return all;
}

// Texts too long for a string to hold without an allocation.
std::string long_text(const std::string& name) {
  return name + std::string(40, '-');
}

class OutOfMemoryInLists : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    for (int i = 0; i < 6; ++i) {
      const std::string number = std::to_string(i);
      save(NewMessage()
               .in(long_text("room" + std::to_string(i % 3)), Corvan::CV_GROUP)
               .at(100 + i)
               .from(long_text("sender" + number))
               .kind(long_text("kind"))
               .text(long_text("text" + number))
               .named(long_text("uid" + number)));
    }
    plant("update t_session set title='" + long_text("title") + "',is_top=is_top");
    plant("update t_message set direction=2,is_mention=1 where session_id like 'room1%'");
  }

  // Wherever memory runs out, `list` has appended only complete records, which it also appends when
  // nothing fails. The caller's own records are kept.
  template <typename Record, typename List>
  void expect_whole_records(const List& list) {
    std::vector<Record> complete(1);
    list(complete);
    const Rows known = fields_of(complete);
    ASSERT_GT(known.size(), 1U);
    for (const bool once : {true, false}) {
      for (uint64_t nth = 1, failed = 1; failed > 0; ++nth) {
        std::vector<Record> records(1);
        arm_memory(Memory::kOwn, nth, once);
        bool threw = false;
        try {
          list(records);
        } catch (const std::bad_alloc&) {
          threw = true;
        }
        disarm_memory();
        failed = failed_allocations();
        const Rows actual = fields_of(records);
        EXPECT_TRUE(threw || actual == known) << "allocation " << nth;
        for (const std::string& each : actual) {
          EXPECT_NE(std::find(known.begin(), known.end(), each), known.end())
              << each << ", allocation " << nth;
        }
        EXPECT_NE(std::find(actual.begin(), actual.end(), fields(Record())), actual.end());
        EXPECT_EQ(open_statements(), 0);
        EXPECT_FALSE(in_transaction());
      }
    }
  }

  const std::string room0_ = long_text("room0");
  const std::string room1_ = long_text("room1");
  const std::string ids_ = "1,2,3,4,5,6";
};

TEST_F(OutOfMemoryInLists, HistoryAppendsOnlyCompleteElements) {
  expect_whole_records<MessageResponse>([&](std::vector<MessageResponse>& page) {
    store().get_history_message_by_time(room0_, Corvan::CV_GROUP, "", 0, 9, page, true);
  });
}

TEST_F(OutOfMemoryInLists, MatchedMessagesAppendOnlyCompleteElements) {
  expect_whole_records<MessageResponse>([&](std::vector<MessageResponse>& page) {
    store().get_matched_message(room0_, Corvan::CV_GROUP, 4, 5, 5, page);
  });
}

TEST_F(OutOfMemoryInLists, MentionsAppendOnlyCompleteElements) {
  expect_whole_records<MessageResponse>([&](std::vector<MessageResponse>& page) {
    store().get_mention_message(room1_, Corvan::CV_GROUP, page);
  });
}

TEST_F(OutOfMemoryInLists, ConversationListAppendsOnlyCompleteElements) {
  expect_whole_records<SessionInfo>([&](std::vector<SessionInfo>& page) {
    store().get_session_list_by_page({Corvan::CV_GROUP}, 0, 9, page);
  });
}

TEST_F(OutOfMemoryInLists, ConversationRowsAppendOnlyCompleteElements) {
  std::string kinds = "2";
  expect_whole_records<Session>(
      [&](std::vector<Session>& page) { store().load_session(page, kinds, 0, 9, false); });
}

TEST_F(OutOfMemoryInLists, MessagesOfIdsAppendOnlyCompleteElements) {
  expect_whole_records<Session>(
      [&](std::vector<Session>& page) { store().load_message(page, ids_); });
}

TEST_F(OutOfMemoryInLists, SessionsOfIdsAppendOnlyCompleteElements) {
  expect_whole_records<Session>(
      [&](std::vector<Session>& page) { store().load_session_with_latestid(page, ids_); });
}

TEST_F(OutOfMemoryInLists, KnownUidsAppendOnlyCompleteElements) {
  const std::string uids = "'" + long_text("uid1") + "','" + long_text("uid4") + "'";
  expect_whole_records<std::string>(
      [&](std::vector<std::string>& known) { store().is_message_exist(uids, known); });
}

}  // namespace
}  // namespace corvan_test
