// Operations that report a failure although their change is stored after a restart: the sync of
// their commit failed, but their pages and the commit mark are already in the write-ahead log.
// docs/reliability.md tells callers what to do.

#include <sqlite3.h>

#include <filesystem>
#include <string>

#include "tests/faults/vfs_shim.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

// Makes syncs of the write-ahead log fail on demand.
class FailingSync : public VfsShim {
 public:
  int sync(ShimFile& file, int flags) override {
    if (failing && (file.flags & SQLITE_OPEN_WAL) != 0) return SQLITE_IOERR_FSYNC;
    return VfsShim::sync(file, flags);
  }

  bool failing = false;
};

class FalseFailure : public StoreTest {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    save(NewMessage().at(100).named("s1").text("first"));
  }
  void TearDown() override {
    StoreTest::TearDown();
    Corvan::CvDbSingleton::delete_instance();  // before the file system is destroyed
  }

  // Runs the operation while syncs of the log fail.
  template <typename Operation>
  auto without_sync(const Operation& operation) {
    disk_.failing = true;
    const auto result = operation();
    disk_.failing = false;
    EXPECT_NE(log.take(), Rows{}) << "the log tells of the failure";
    return result;
  }
  int64_t save_without_sync(const NewMessage& message) {
    return without_sync([&] { return save(message); });
  }

  // Continues like the next process would after a kill: on the files as they are.
  void restart() {
    std::filesystem::copy_file(folder.file("corvan"), later_.file("corvan"));
    std::filesystem::copy_file(folder.file("corvan-wal"), later_.file("corvan-wal"));
    Corvan::CvDbSingleton::delete_instance();
    ASSERT_TRUE(store().init_open_db(cvrtc::Pathname(later_.path()), "", "me"));
  }
  Rows rows_after_restart(const std::string& sql) const {
    return corvan_test::rows(later_.file("corvan"), sql);
  }
  Rows contents_after_restart() const {
    return rows_after_restart("select content from t_message order by id");
  }

 private:
  TemporaryFolder later_;
  FailingSync disk_;
};

TEST_F(FalseFailure, SaveThatReturnsMinusOneIsStoredAfterARestart) {
  EXPECT_EQ(save_without_sync(NewMessage().at(200).text("second")), -1);
  EXPECT_EQ(rows("select content from t_message"), Rows{"first"});
  restart();
  EXPECT_EQ(contents_after_restart(), (Rows{"first", "second"}));
  EXPECT_EQ(rows_after_restart("select session_time,unread_count,latest_id from t_session"),
            Rows{"100|1|1"})
      << "its conversation was not brought up to date";
}

TEST_F(FalseFailure, MessageSavedAgainAfterARestartIsStoredTwice) {
  const NewMessage message = NewMessage().at(200).text("second");
  EXPECT_EQ(save_without_sync(message), -1);
  restart();
  EXPECT_GT(save(message), 0);
  EXPECT_EQ(contents_after_restart(), (Rows{"first", "second", "second"}));
}

TEST_F(FalseFailure, MessageWithAServerUidIsNotStoredTwice) {
  const NewMessage message = NewMessage().at(200).named("s2").text("second");
  EXPECT_EQ(save_without_sync(message), -1);
  restart();
  EXPECT_EQ(save(message), -1);
  EXPECT_TRUE(store().is_message_exist(message.server_uid)) << "-1 then means that it is there";
  EXPECT_EQ(contents_after_restart(), (Rows{"first", "second"}));
}

TEST_F(FalseFailure, OwnMessageSavedAgainIsMarkedAsSent) {
  const NewMessage message = NewMessage().own(7).at(200).status(2);
  EXPECT_EQ(save_without_sync(message), -1);
  restart();
  EXPECT_EQ(rows_after_restart("select sent_status from t_message where id=2"), Rows{"2"});
  EXPECT_EQ(save(message), 2);
  EXPECT_EQ(rows_after_restart("select sent_status from t_message where client_uid=7"), Rows{"0"});
}

TEST_F(FalseFailure, MessageSavedAgainBeforeARestartIsStoredOnce) {
  const NewMessage message = NewMessage().at(200).text("second");
  EXPECT_EQ(save_without_sync(message), -1);
  EXPECT_GT(save(message), 0);
  restart();
  EXPECT_EQ(contents_after_restart(), (Rows{"first", "second"}));
}

TEST_F(FalseFailure, LaterCommitRemovesTheFailedWrite) {
  EXPECT_EQ(save_without_sync(NewMessage().at(200).text("second")), -1);
  EXPECT_TRUE(store().set_sync_time(1, true));
  restart();
  EXPECT_EQ(contents_after_restart(), Rows{"first"});
}

TEST_F(FalseFailure, ClosingTheStoreRemovesTheFailedWrite) {
  EXPECT_EQ(save_without_sync(NewMessage().at(200).text("second")), -1);
  store().close_db();
  ASSERT_TRUE(open());
  EXPECT_EQ(rows("select content from t_message"), Rows{"first"});
}

TEST_F(FalseFailure, TransactionWhoseCommitReturnsFalseIsStoredAfterARestart) {
  ASSERT_TRUE(store().start_transaction());
  EXPECT_EQ(save(NewMessage().at(200).text("second")), 2);
  EXPECT_EQ(save(NewMessage().at(300).text("third")), 3);
  EXPECT_FALSE(without_sync([this] { return store().commit_transaction(); }));
  restart();
  EXPECT_EQ(contents_after_restart(), (Rows{"first", "second", "third"}));
  EXPECT_EQ(rows_after_restart("select session_time,unread_count,latest_id from t_session"),
            Rows{"300|3|3"});
}

TEST_F(FalseFailure, WriteThatReturnsFalseIsStoredAfterARestart) {
  EXPECT_FALSE(without_sync([this] { return store().update_sent_status(1, 3); }));
  restart();
  EXPECT_EQ(rows_after_restart("select sent_status from t_message"), Rows{"3"});
}

TEST_F(FalseFailure, DeletionThatReturnsFalseIsCompleteAfterARestart) {
  EXPECT_FALSE(without_sync([this] { return store().delete_message("room", Corvan::CV_GROUP); }));
  restart();
  EXPECT_EQ(contents_after_restart(), Rows{});
}

}  // namespace
}  // namespace corvan_test
