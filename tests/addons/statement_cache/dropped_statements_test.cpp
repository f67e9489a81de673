// What drops kept statements: other statements, failures, and closing.

#include <string>
#include <vector>

#include "tests/addons/statement_cache/cache_fixture.h"
#include "tests/support/rows.h"

namespace corvan_test {
namespace {

// ---- What drops statements ----------------------------------------------------------------------

// A table that the store has used with two statements, which are idle now, and that another
// connection has dropped.
class DroppedTable : public Cache {
 protected:
  void drop_used_table() const {
    plant(file(), "create table a(b)");
    use("select * from a");
    use("select b from a");
    plant(file(), "drop table a");
  }
  // The first statement fails when it is stepped, which drops the other one.
  void expect_missed_once_in_the_step() {
    EXPECT_EQ(store().execute_none_query("select * from a"), SQLITE_ERROR);
    std::vector<std::string> lines = log.take();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_NE(lines[0].find("step;;;1;;;no such table: a"), std::string::npos) << lines[0];
    EXPECT_EQ(store().execute_none_query("select b from a"), SQLITE_ERROR);
    lines = log.take();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find("prepare_db;;;1;;;no such table: a"), std::string::npos) << lines[0];
  }
};

TEST_F(Cache, StatementThatFailsIsReportedAsWithoutACacheAndDropsAll) {
  use("select 1");
  const std::string sql = "insert into t_session(session_id,session_type) values('a',1),('a',1)";
  sqlite3_stmt* const stmt = prepare(sql);
  sqlite3* const db = sqlite3_db_handle(stmt);
  EXPECT_EQ(store().step(stmt, true), SQLITE_CONSTRAINT);
  const std::string error =
      ";;;19;;;UNIQUE constraint failed: t_session.session_id, t_session.session_type";
  EXPECT_EQ(
      log.take(),
      (std::vector<std::string>{
          "3 int32_t Corvan::CvDbSingleton::step(sqlite3_stmt *, bool): P-more-C;;;step" + error,
          "3 void Corvan::CvDbSingleton::finalize(sqlite3_stmt *): P-more-C;;;finalize" + error}));
  EXPECT_TRUE(statements_of(db).empty());
}

TEST_F(Cache, ChangeOfTheSchemaDropsAll) {
  use("select 1");
  use("create temp table a(b)");
  EXPECT_EQ(prepares_of("select 1"), 1);
}

TEST_F(Cache, TableThatIsGoneIsMissedWhenAStatementIsPrepared) {
  use("create temp table a(b)");
  use("select * from temp.a");
  use("drop table temp.a");
  EXPECT_EQ(store().execute_none_query("select * from temp.a"), SQLITE_ERROR);
  const std::vector<std::string> lines = log.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_NE(lines[0].find("prepare_db;;;1;;;no such table: temp.a"), std::string::npos) << lines[0];
}

TEST_F(Cache, PragmaIsInForceForTheNextStatement) {
  const std::string insert = "insert into b values(5)";
  use("create temp table a(x integer primary key)");
  use("create temp table b(x references a)");
  use(insert);
  sqlite3_stmt* const used = prepare(insert);
  sqlite3_stmt* const pragma = prepare("pragma foreign_keys=1");  // in force from here on
  EXPECT_EQ(store().execute_none_query(insert), SQLITE_CONSTRAINT);
  store().finalize(pragma);
  EXPECT_EQ(store().execute_none_query(insert), SQLITE_CONSTRAINT);
  store().finalize(used);  // prepared before, so it must not be kept
  EXPECT_EQ(store().execute_none_query(insert), SQLITE_CONSTRAINT);
  EXPECT_EQ(log.take().size(), 6U);
}

TEST_F(Cache, StatementInUseDuringAChangeOfTheSchemaIsNotKept) {
  use("create temp table a(b)");
  sqlite3_stmt* const stmt = prepare("select * from temp.a");
  sqlite3_stmt* const drop = prepare("drop table temp.a");
  EXPECT_EQ(store().step(drop, false), kDone);
  int32_t code = 0;
  EXPECT_EQ(store().prepare_sql("select * from temp.a", code), nullptr);
  store().finalize(drop);
  store().finalize(stmt);
  EXPECT_EQ(store().prepare_sql("select * from temp.a", code), nullptr);
  EXPECT_EQ(log.take().size(), 2U) << "one line for each failed prepare";
}

TEST_F(Cache, RollbackOfAChangeOfTheSchemaDropsTheOthers) {
  use("begin");
  use("create table a(b)");
  use("select * from a");
  use("rollback");
  int32_t code = 0;
  EXPECT_EQ(store().prepare_sql("select * from a", code), nullptr);
  EXPECT_EQ(log.take().size(), 1U);
  use("begin");
  EXPECT_EQ(prepares_of("rollback"), 0);
}

TEST_F(Cache, RollbackToASavepointLeavesTheRestToTheRollback) {
  use("begin");
  use("create table a(b)");
  use("savepoint c");
  use("rollback to c");
  use("select * from a");
  use("rollback");
  int32_t code = 0;
  EXPECT_EQ(store().prepare_sql("select * from a", code), nullptr);
  EXPECT_EQ(log.take().size(), 1U);
}

// Another statement has made SQLite read the changed schema, so a new statement would fail when it
// is prepared.
TEST_F(DroppedTable, IsMissedInTheStepEvenIfSqliteKnows) {
  drop_used_table();
  int32_t code = 0;
  EXPECT_EQ(store().prepare_sql("select absent from t_sync", code), nullptr);
  EXPECT_EQ(log.take().size(), 1U);
  expect_missed_once_in_the_step();
}

TEST_F(Cache, OtherStatementThatFailsEndsAsWell) {
  EXPECT_EQ(store().execute_none_query("drop table absent"), SQLITE_ERROR);  // when prepared
  EXPECT_EQ(store().execute_none_query("attach '' as main"), SQLITE_ERROR);  // when stepped
  EXPECT_EQ(log.take().size(), 3U);
  use("select 1");
  EXPECT_EQ(prepares_of("select 1"), 0);
}

TEST_F(DroppedTable, IsMissedInTheStepAsWithoutACache) {
  drop_used_table();
  expect_missed_once_in_the_step();
}

TEST_F(Cache, ChangeOfTheSchemaByAnotherConnectionDropsAll) {
  use("select 1");
  use("select count(*) from t_message");
  plant(file(), "create index elsewhere on t_message(content)");
  EXPECT_EQ(prepares_of("select count(*) from t_message"), 0) << "SQLite itself prepares it again";
  EXPECT_EQ(prepares_of("select 1"), 1);
}

TEST_F(Cache, ClearFinalisesWhatIsIdle) {
  use("select 1");
  sqlite3_stmt* const stmt = prepare("select 2");
  sqlite3* const db = sqlite3_db_handle(stmt);
  EXPECT_EQ(statements_of(db).size(), 2U);
  StatementCache::clear();
  EXPECT_EQ(statements_of(db), std::vector<sqlite3_stmt*>{stmt});
  store().finalize(stmt);
  EXPECT_EQ(prepares_of("select 2"), 0);
}

// ---- Closing ------------------------------------------------------------------------------------

TEST_F(Cache, ClosingRemovesTheLog) {
  use("select * from t_message");
  EXPECT_TRUE(file_exists(file() + "-wal"));
  store().close_db();
  EXPECT_FALSE(file_exists(file() + "-wal")) << "the connection is still open";
}

TEST_F(Cache, ClosingIsBusyWhileAStatementIsInUse) {
  use("select * from t_message");
  sqlite3_stmt* const stmt = prepare("select 1");
  sqlite3* const db = sqlite3_db_handle(stmt);
  store().close_db();
  EXPECT_EQ(statements_of(db), std::vector<sqlite3_stmt*>{stmt}) << "idle ones are gone";
  EXPECT_EQ(sqlite3_close(db), SQLITE_BUSY);
  store().finalize(stmt);
  EXPECT_EQ(sqlite3_close(db), SQLITE_OK) << "nothing is kept for a connection that was closed";
}

TEST_F(Cache, ConnectionThatIsAbandonedForAnotherUserKeepsNothing) {
  use("select 2");
  sqlite3* const abandoned = connection();
  EXPECT_FALSE(statements_of(abandoned).empty());
  const TemporaryFolder other;
  EXPECT_TRUE(store().init_open_db(cvrtc::Pathname(other.path()), "", "other"));
  EXPECT_EQ(prepares_of("select 2"), 1);
  EXPECT_EQ(prepares_of("select 2"), 0);
  EXPECT_TRUE(statements_of(abandoned).empty());
  EXPECT_EQ(sqlite3_close(abandoned), SQLITE_OK);
}

TEST_F(Cache, ReopenedStoreStartsEmpty) {
  use("select 1");
  store().close_db();
  EXPECT_TRUE(store().init_open_db(cvrtc::Pathname(folder.path()), "", "me"));
  EXPECT_EQ(prepares_of("select 1"), 1);
}

}  // namespace
}  // namespace corvan_test
