// What idle statements must not do: hold locks, files or values, or change a result.

#include <sqlite3.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "tests/addons/statement_cache/open_files.h"
#include "tests/support/failures.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;

class IdleStatements : public StoreTest {
 protected:
  // Makes statements of reads, writes and transactions idle, some of them before their last row.
  void use_store() {
    ASSERT_EQ(save(NewMessage().at(100).named("s1")), 1);
    ASSERT_EQ(save(NewMessage().at(200).named("s2")), 2);
    std::vector<MessageResponse> page;
    ASSERT_TRUE(
        store().get_history_message_by_time("room", Corvan::CV_GROUP, "", 0, 1, page, true));
    ASSERT_TRUE(store().set_read_status(1, 5));
    ASSERT_EQ(store().get_pragma("select id from t_message"), 1);
    ASSERT_FALSE(idle().empty());
  }

  // The texts of all statements of the store's connection, with their values.
  static Rows idle() {
    Rows texts;
    sqlite3_stmt* stmt = nullptr;
    while ((stmt = sqlite3_next_stmt(store_connection(), stmt)) != nullptr) {
      const std::unique_ptr<char, void (*)(void*)> text(sqlite3_expanded_sql(stmt), sqlite3_free);
      texts.emplace_back(text.get());
    }
    return texts;
  }

  Rows open_files() const { return open_files_in(folder.path()); }
};

// ---- Locks and files ----------------------------------------------------------------------------

TEST_F(IdleStatements, DoNotKeepTheLogFromBeingTruncated) {
  use_store();
  EXPECT_EQ(rows("pragma wal_checkpoint(truncate)"), Rows{"0|0|0"});
}

TEST_F(IdleStatements, DoNotKeepTheLogFromBeingTruncatedAfterAFailure) {
  use_store();
  plant(refuse("insert on t_message"));
  EXPECT_EQ(save(NewMessage()), -1);
  EXPECT_NE(log.take(), Rows{});
  EXPECT_EQ(rows("pragma wal_checkpoint(truncate)"), Rows{"0|0|0"});
}

TEST_F(IdleStatements, HoldNoLock) {
  use_store();
  plant("begin exclusive; insert into t_sync values('other',1,2); commit");
  EXPECT_EQ(rows("select user_id from t_sync"), Rows{"other"});
}

TEST_F(IdleStatements, SeeWhatAnotherConnectionHasCommitted) {
  const std::string count = "select count(*) from t_sync";
  EXPECT_EQ(store().get_pragma(count), 0);
  plant("insert into t_sync values('other',1,2)");
  EXPECT_EQ(store().get_pragma(count), 1);
}

TEST_F(IdleStatements, KeepNoFileOpenAfterTheStoreIsClosed) {
  use_store();
  EXPECT_FALSE(open_files().empty());
  store().close_db();
  EXPECT_EQ(open_files(), Rows{});
  EXPECT_FALSE(file_exists(folder.file("corvan-wal"))) << "the last connection removes the log";
}

TEST_F(IdleStatements, DoNotKeepAnAttachedFileOpen) {
  const std::string older = folder.file("older");
  corvan_test::plant(older, "create table extra(a);insert into extra values(7)");
  store().execute_none_query("attach '" + older + "' as odb");
  EXPECT_EQ(store().get_pragma("select a from odb.extra"), 7);
  EXPECT_EQ(store().execute_none_query("detach odb"), SQLITE_DONE);
  const Rows files = open_files();
  EXPECT_EQ(std::count(files.begin(), files.end(), older), 0);
  EXPECT_EQ(store().get_pragma("select a from odb.extra"), -1);
  EXPECT_EQ(log.take(), Rows{no_table("odb.extra")});
}

TEST_F(IdleStatements, LetTheFileBeCompacted) {
  use_store();
  EXPECT_EQ(store().execute_none_query("vacuum"), SQLITE_DONE);
  EXPECT_TRUE(store().clear_message("room", Corvan::CV_GROUP, true));
  EXPECT_EQ(log.take(), Rows{});
}

// ---- Values -------------------------------------------------------------------------------------

TEST_F(IdleStatements, HaveNoValues) {
  sqlite3_stmt* stmt = nullptr;
  {
    const auto text = std::make_unique<std::string>(40, 'x');
    int32_t code = 0;
    stmt = store().prepare_sql("select ?,?", code);
    CvDbSingleton::bind(stmt, 1, *text);
    CvDbSingleton::bind(stmt, 2, 7);
    EXPECT_EQ(store().step(stmt, false), SQLITE_ROW);
    store().finalize(stmt);
  }
  EXPECT_EQ(idle().front(), "select NULL,NULL");
}

TEST_F(IdleStatements, OfOperationsHaveNoValues) {
  use_store();
  for (const std::string& text : idle()) {
    for (const char* value : {"'room'", "'s1'", "'s2'", "'hello'", "'u01'"}) {
      EXPECT_EQ(text.find(value), std::string::npos) << text;
    }
  }
}

TEST_F(IdleStatements, DoNotPassValuesToTheNextUse) {
  const std::string sql = "select ? is null";
  int32_t code = 0;
  sqlite3_stmt* const first = store().prepare_sql(sql, code);
  CvDbSingleton::bind(first, 1, 7);
  store().finalize(first);
  sqlite3_stmt* const again = store().prepare_sql(sql, code);
  EXPECT_EQ(again, first);
  EXPECT_EQ(store().step(again, false), SQLITE_ROW);
  EXPECT_EQ(CvDbSingleton::get_int(again, 0), 1);
  store().finalize(again);
}

// ---- Results ------------------------------------------------------------------------------------

TEST_F(IdleStatements, OfCommitsReturnWhatEachCommitReturns) {
  store().execute_none_query("create table parent(id integer primary key)");
  store().execute_none_query(
      "create table child(id references parent deferrable initially deferred)");
  store().execute_none_query("pragma foreign_keys=on");
  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(store().start_transaction());
    EXPECT_TRUE(store().commit_transaction());

    ASSERT_TRUE(store().start_transaction());
    EXPECT_EQ(store().execute_none_query("insert into child values(1)"), SQLITE_DONE);
    EXPECT_FALSE(store().commit_transaction());
    EXPECT_EQ(log.take(), run_failed(19, "FOREIGN KEY constraint failed"));
    EXPECT_FALSE(in_transaction()) << "it was rolled back";

    EXPECT_FALSE(store().commit_transaction());
    EXPECT_EQ(log.take().front(), step_failed(1, "cannot commit - no transaction is active"));
  }
  EXPECT_EQ(rows("select count(*) from child"), Rows{"0"});
}

TEST_F(IdleStatements, LeaveNoErrorTextOfAnEarlierFailure) {
  EXPECT_EQ(store().get_pragma("select 1"), 1);
  int32_t code = 0;
  EXPECT_EQ(store().prepare_sql("selct 1", code), nullptr);
  EXPECT_NE(store().get_error(), "not an error");
  sqlite3_stmt* const idle = store().prepare_sql("select 1", code);
  EXPECT_EQ(store().get_error(), "not an error");
  store().finalize(idle);
  log.take();
}

TEST_F(IdleStatements, AreSeenBySqlite) {
  const std::string sql = "select 17";
  store().get_pragma(sql);
  EXPECT_EQ(idle().front(), sql);
  EXPECT_EQ(open_statements(), 0);
}

}  // namespace
}  // namespace corvan_test
