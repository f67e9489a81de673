#include <cstdint>
#include <limits>
#include <string>

#include "tests/support/failures.h"
#include "tests/support/numbers.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

constexpr const char* kSyncRows = "select * from t_sync order by user_id";

const std::string get_sync = "select receive_time,sent_time from t_sync where user_id=?";
const std::string read_failed =
    "3 bool Corvan::CvDbSingleton::set_sync_time(int64_t, bool): "
    "cv;;;get receive time;;;failed";

class Transactions : public StoreTest {
 protected:
  // Replaces t_sync by a view that can be written but not read; rows written go to t_written.
  void make_sync_times_unreadable() {
    plant(
        "drop table t_sync;"
        "create table t_written(user_id,receive_time,sent_time);"
        "create view t_sync as select 'me' as user_id,abs(-9223372036854775808) as receive_time,"
        "0 as sent_time;"
        "create trigger t_write instead of insert on t_sync begin insert into t_written "
        "values(new.user_id,new.receive_time,new.sent_time); end");
  }

  // Makes every write of t_sync fail when it is stepped.
  void refuse_sync_times() { plant(refuse("insert on t_sync")); }
};

// ---- Transactions -------------------------------------------------------------------------------

TEST_F(Transactions, WritesAreVisibleOnceCommitted) {
  EXPECT_TRUE(store().start_transaction());
  EXPECT_TRUE(in_transaction());
  ASSERT_TRUE(store().set_sync_time(1000, true));
  EXPECT_EQ(rows(kSyncRows), Rows{});
  EXPECT_TRUE(store().commit_transaction());
  EXPECT_FALSE(in_transaction());
  EXPECT_EQ(rows(kSyncRows), Rows{"me|1000|0"});
  EXPECT_EQ(take_ledger().front(), "begin transaction");
}

TEST_F(Transactions, SuccessfulCommitRollsNothingBack) {
  ASSERT_TRUE(store().start_transaction());
  take_ledger();
  EXPECT_TRUE(store().commit_transaction());
  EXPECT_EQ(take_ledger(), Rows{"commit transaction"});
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(Transactions, SecondStartFailsAndKeepsTheFirst) {
  ASSERT_TRUE(store().start_transaction());
  ASSERT_TRUE(store().set_sync_time(1000, true));
  EXPECT_FALSE(store().start_transaction());
  EXPECT_TRUE(in_transaction());
  EXPECT_EQ(log.take(), run_failed(1, "cannot start a transaction within a transaction"));
  EXPECT_TRUE(store().commit_transaction());
  EXPECT_EQ(rows(kSyncRows), Rows{"me|1000|0"});
}

TEST_F(Transactions, CommitWithoutTransactionAndItsRollbackFail) {
  EXPECT_FALSE(store().commit_transaction());
  EXPECT_EQ(take_ledger(), (Rows{"commit transaction", "rollback transaction"}));
  const Rows lines = log.take();
  ASSERT_EQ(lines.size(), 4U);
  EXPECT_NE(lines[0].find("cannot commit - no transaction is active"), std::string::npos);
  EXPECT_NE(lines[2].find("cannot rollback - no transaction is active"), std::string::npos);
}

TEST_F(Transactions, FailedCommitRollsBack) {
  plant(
      "create table t_parent(id integer primary key);"
      "create table t_child(id references t_parent deferrable initially deferred)");
  ASSERT_EQ(store().execute_none_query("pragma foreign_keys=on"), kDone);
  ASSERT_TRUE(store().start_transaction());
  ASSERT_TRUE(store().set_sync_time(1000, true));
  ASSERT_EQ(store().execute_none_query("insert into t_child values(7)"), kDone);
  take_ledger();
  EXPECT_FALSE(store().commit_transaction());
  EXPECT_EQ(take_ledger(), (Rows{"commit transaction", "rollback transaction"}));
  EXPECT_FALSE(in_transaction());
  EXPECT_EQ(rows(kSyncRows), Rows{});
  EXPECT_EQ(rows("select * from t_child"), Rows{});
}

// ---- Reading the sync times ---------------------------------------------------------------------

TEST_F(Transactions, UserWithoutSyncTimesKeepsTheCallersValues) {
  plant("insert into t_sync values('you',1000,500)");
  int64_t received = 7;
  int64_t sent = 8;
  EXPECT_TRUE(store().get_sync_time(&received, &sent));
  EXPECT_EQ(received, 7);
  EXPECT_EQ(sent, 8);
}

TEST_F(Transactions, SyncTimesAreReadIn64Bits) {
  plant("insert into t_sync values('me',9223372036854775807,-9223372036854775808)");
  int64_t received = 0;
  int64_t sent = 0;
  EXPECT_TRUE(store().get_sync_time(&received, &sent));
  EXPECT_EQ(received, std::numeric_limits<int64_t>::max());
  EXPECT_EQ(sent, std::numeric_limits<int64_t>::min());
}

TEST_F(Transactions, SentTimeIsOptional) {
  plant("insert into t_sync values('me',1000,500)");
  int64_t received = 0;
  EXPECT_TRUE(store().get_sync_time(&received, nullptr));
  EXPECT_EQ(received, 1000);
}

TEST_F(Transactions, SyncTimesThatCannotBePreparedKeepTheCallersValues) {
  ASSERT_EQ(store().execute_none_query("drop table t_sync"), kDone);
  int64_t received = 7;
  int64_t sent = 8;
  EXPECT_FALSE(store().get_sync_time(&received, &sent));
  EXPECT_EQ(received, 7);
  EXPECT_EQ(sent, 8);
  EXPECT_EQ(log.take(), Rows{no_table("t_sync")});
}

TEST_F(Transactions, SyncTimesThatCannotBeSteppedKeepTheCallersValues) {
  make_sync_times_unreadable();
  int64_t received = 7;
  int64_t sent = 8;
  EXPECT_FALSE(store().get_sync_time(&received, &sent));
  EXPECT_EQ(received, 7);
  EXPECT_EQ(sent, 8);
}

// ---- Moving the sync times ----------------------------------------------------------------------

TEST_F(Transactions, FirstReceivedTimeIsWrittenWithoutASentTime) {
  EXPECT_TRUE(store().set_sync_time(1000, true));
  EXPECT_EQ(rows(kSyncRows), Rows{"me|1000|0"});
}

TEST_F(Transactions, FirstSentTimeIsWrittenWithoutAReceivedTime) {
  EXPECT_TRUE(store().set_sync_time(500, false));
  EXPECT_EQ(rows(kSyncRows), Rows{"me|0|500"});
}

TEST_F(Transactions, EqualAndOlderReceivedTimesAreRefusedWithoutLogging) {
  plant("insert into t_sync values('me',1000,2000)");
  EXPECT_FALSE(store().set_sync_time(1000, true));
  EXPECT_FALSE(store().set_sync_time(999, true));
  EXPECT_EQ(take_ledger(), (Rows{get_sync, get_sync}));
  EXPECT_EQ(rows(kSyncRows), Rows{"me|1000|2000"});
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(Transactions, EqualAndOlderSentTimesAreRefusedWithoutLogging) {
  plant("insert into t_sync values('me',1000,500)");
  EXPECT_FALSE(store().set_sync_time(500, false));
  EXPECT_FALSE(store().set_sync_time(499, false));
  EXPECT_EQ(take_ledger(), (Rows{get_sync, get_sync}));
  EXPECT_EQ(rows(kSyncRows), Rows{"me|1000|500"});
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(Transactions, SentTimeKeepsTheReceivedTime) {
  plant("insert into t_sync values('me',1000,0)");
  EXPECT_TRUE(store().set_sync_time(500, false));
  EXPECT_EQ(rows(kSyncRows), Rows{"me|1000|500"});
}

TEST_F(Transactions, ReceivedTimeKeepsTheSentTime) {
  plant("insert into t_sync values('me',1000,5000)");
  EXPECT_TRUE(store().set_sync_time(1001, true));
  EXPECT_EQ(rows(kSyncRows), Rows{"me|1001|5000"});
}

TEST_F(Transactions, SyncTimesAreWrittenIn64Bits) {
  EXPECT_TRUE(store().set_sync_time(std::numeric_limits<int64_t>::max(), true));
  EXPECT_EQ(rows(kSyncRows), Rows{"me|9223372036854775807|0"});
}

TEST_F(Transactions, TimesBelowOneDoNotMoveAUserWithoutTimes) {
  EXPECT_FALSE(store().set_sync_time(0, true));
  EXPECT_FALSE(store().set_sync_time(-1, false));
  EXPECT_EQ(rows(kSyncRows), Rows{});
}

TEST_F(Transactions, OtherUsersKeepTheirTimes) {
  plant("insert into t_sync values('you',7000,7000)");
  EXPECT_TRUE(store().set_sync_time(1000, true));
  EXPECT_EQ(rows(kSyncRows), (Rows{"me|1000|0", "you|7000|7000"}));
}

TEST_F(Transactions, FailedReadIsLoggedAndTheTimeIsStillWritten) {
  make_sync_times_unreadable();
  EXPECT_TRUE(store().set_sync_time(1000, true));
  EXPECT_TRUE(store().set_sync_time(500, false));
  EXPECT_EQ(rows("select * from t_written"), (Rows{"me|1000|0", "me|0|500"}));
  Rows read = run_failed(1, "integer overflow");
  read.insert(read.begin() + 2, read_failed);
  Rows both = read;
  both.insert(both.end(), read.begin(), read.end());
  EXPECT_EQ(log.take(), both);
}

TEST_F(Transactions, SyncTimeThatCanBeNeitherReadNorWrittenIsRefused) {
  ASSERT_EQ(store().execute_none_query("drop table t_sync"), kDone);
  EXPECT_FALSE(store().set_sync_time(1000, true));
  const Rows lines = log.take();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[1], read_failed);
}

TEST_F(Transactions, FailedReadIsNotLoggedBelowTheAcceptedSeverity) {
  make_sync_times_unreadable();
  LogCapture errors(cvrtc::LS_ERROR);
  EXPECT_TRUE(store().set_sync_time(1000, true));
  EXPECT_EQ(errors.take(), Rows{});
}

TEST_F(Transactions, SyncTimeThatCannotBeWrittenIsRefused) {
  refuse_sync_times();
  EXPECT_FALSE(store().set_sync_time(1000, true));
  EXPECT_EQ(rows(kSyncRows), Rows{});
  EXPECT_EQ(log.take(), run_refused());
}

}  // namespace
}  // namespace corvan_test
