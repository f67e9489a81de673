// Transactions and sync times.

#include <cstdint>
#include <new>
#include <string>

#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

const std::string kReadWarning =
    "3 bool Corvan::CvDbSingleton::set_sync_time(int64_t, bool): "
    "cv;;;get receive time;;;failed";

Operation start_transaction() {
  Operation op("start_transaction", Commits::kNothing);
  op.statements = {
      {"Transactions",
       [](CvDbSingleton& s) {
         s.start_transaction();
         s.commit_transaction();
         s.commit_transaction();
       },
       {kBegin, kCommit, kCommit, {"rollback transaction", kNoPlan}}},
  };
  op.calls = {
      {"Transaction",
       [](CvDbSingleton& s) {
         const bool begun = s.start_transaction();
         try {
           const int64_t id = save(s, NewMessage().at(900).named("n1"));
           const bool sent = s.update_sent_status(2, 3);
           return text(begun, id, sent, s.commit_transaction());
         } catch (const std::bad_alloc&) {
           s.commit_transaction();  // the caller has to end it
           throw;
         }
       },
       [](Answers& a) {
         const bool begun = a.begin();
         std::string id = text(-1);
         if (!a.row(kByServerUid)) id = insert_and_move(a);
         const bool sent = a.done("update t_message set sent_status=?");
         return text(begun, id, sent, a.commit());
       },
       {"false, -1, false, false"}},
  };
  op.flat = {
      {"StartAndCommitTransaction",
       [](FilledStore& s, const Room&) {
         EXPECT_TRUE(s.store().start_transaction());
         EXPECT_TRUE(in_transaction());
         EXPECT_TRUE(s.store().commit_transaction());
       },
       {kTiny}},
  };
  op.left_out = {
      {Suite::kGrowth, "has no rows to find"},
  };
  return op;
}

Operation commit_transaction() {
  Operation op("commit_transaction", Commits::kOnce);
  op.left_out = {
      {Suite::kStatements, "with start_transaction()"},
      {Suite::kFaults, "with start_transaction()"},
      {Suite::kSteps, "with start_transaction()"},
      {Suite::kClosed, "with start_transaction()"},
      {Suite::kGrowth, "has no rows to find"},
  };
  return op;
}

Operation set_sync_time() {
  Operation op("set_sync_time", Commits::kOnce);
  op.statements = {
      {"SyncTimes",
       [](CvDbSingleton& s) {
         s.set_sync_time(5, true);
         s.set_sync_time(5, true);
         int64_t time = 0;
         s.get_sync_time(&time, nullptr);
       },
       {kSyncTimes, kWriteSyncTimes, kSyncTimes, kSyncTimes}},
  };
  op.calls = {
      {"SetSyncTime",
       [](CvDbSingleton& s) { return text(s.set_sync_time(5, true)); },
       [](Answers& a) {
         a.run(kSyncTimes);  // both marks count as 0 if this fails
         return text(a.done("replace into t_sync"));
       },
       {"false", {kReadWarning}}},
      {"SetSyncTimeNotLater",
       [](CvDbSingleton& s) { return text(s.set_sync_time(4, false)); },
       [](Answers& a) {
         if (a.row(kSyncTimes)) return text(false);
         return text(a.done("replace into t_sync"));
       },
       {"false", {kReadWarning}}},
  };
  op.flat = {
      {"SetSyncTime",
       [](FilledStore& s, const Room&) {
         EXPECT_TRUE(s.store().set_sync_time(5, true));
         EXPECT_EQ(s.row("select * from t_sync"), "me|5|0");
       },
       {kTiny}},
  };
  return op;
}

Operation get_sync_time() {
  Operation op("get_sync_time", Commits::kNothing);
  op.calls = {
      {"GetSyncTime",
       [](CvDbSingleton& s) {
         int64_t received = -1;
         int64_t sent = -1;
         const bool read = s.get_sync_time(&received, &sent);
         return text(read, received, sent);
       },
       [](Answers& a) { return a.row(kSyncTimes) ? text(true, 3, 4) : text(false, -1, -1); },
       {"false, -1, -1"}},
  };
  op.flat = {
      {"GetSyncTime",
       [](FilledStore& s, const Room&) {
         s.plant("insert into t_sync values('me',5,6)");
         int64_t received = 0;
         int64_t sent = 0;
         EXPECT_TRUE(s.store().get_sync_time(&received, &sent));
         EXPECT_EQ(received, 5);
         EXPECT_EQ(sent, 6);
       },
       {kTiny}},
  };
  op.left_out = {
      {Suite::kStatements, "with set_sync_time()"},
  };
  return op;
}

}  // namespace

Operations operations_of_transactions() {
  return {start_transaction(), commit_transaction(), set_sync_time(), get_sync_time()};
}

}  // namespace corvan_test
