// The rules of the statement cache: which statements are kept, for how long, and in what state.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <vector>

#include "addons/statement_cache/statement_cache.h"
#include "db/cv_db_singleton.h"
#include "tests/addons/statement_cache/prepare_count.h"
#include "tests/faults/memory_faults.h"
#include "tests/support/log_capture.h"
#include "tests/support/rows.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;
using Corvan::StatementCache;

constexpr int32_t kRow = SQLITE_ROW;
constexpr int32_t kDone = SQLITE_DONE;

// An open store without idle statements.
class Cache : public testing::Test {
 protected:
  Cache() {
    EXPECT_TRUE(store().init_open_db(cvrtc::Pathname(folder.path()), "", "me"));
    StatementCache::clear();
    take_prepares();
  }
  ~Cache() override {
    EXPECT_TRUE(StatementCache::set_limit(StatementCache::kDefaultLimit));
    CvDbSingleton::delete_instance();
  }

  static CvDbSingleton& store() { return *CvDbSingleton::get_instance(); }

  static sqlite3_stmt* prepare(const std::string& sql) {
    int32_t code = -1;
    sqlite3_stmt* const stmt = store().prepare_sql(sql, code);
    EXPECT_EQ(code, 0) << sql;
    return stmt;
  }
  // Prepares, steps once and finalises.
  static void use(const std::string& sql) {
    EXPECT_GE(store().execute_none_query(sql), SQLITE_ROW) << sql;
  }
  // How often SQLite prepares a statement while `sql` is used once.
  static int prepares_of(const std::string& sql) {
    take_prepares();
    use(sql);
    return take_prepares();
  }

  // The store's connection. Finding it keeps one more statement.
  static sqlite3* connection() {
    sqlite3_stmt* const stmt = prepare("select 'connection'");
    sqlite3* const db = sqlite3_db_handle(stmt);
    store().finalize(stmt);
    return db;
  }

  std::string file() const { return folder.file("corvan"); }

  TemporaryFolder folder;
  LogCapture log{cvrtc::LS_WARNING};
};

std::vector<sqlite3_stmt*> statements_of(sqlite3* db) {
  std::vector<sqlite3_stmt*> all;
  for (sqlite3_stmt* stmt = sqlite3_next_stmt(db, nullptr); stmt != nullptr;
       stmt = sqlite3_next_stmt(db, stmt)) {
    all.push_back(stmt);
  }
  return all;
}

std::string numbered(int number) {
  return "select " + std::to_string(number);
}

// A text of this length that begins with "select 1".
std::string select_of_length(std::size_t length) {
  std::string sql = "select 1 /*";
  sql.append(length - sql.size() - 2, '.');
  return sql + "*/";
}

// ---- Which texts are kept -----------------------------------------------------------------------

TEST_F(Cache, SecondUseOfATextPreparesNothing) {
  EXPECT_EQ(prepares_of("select count(*) from t_message"), 1);
  EXPECT_EQ(prepares_of("select count(*) from t_message"), 0);
  EXPECT_EQ(prepares_of("select count(*) from t_session"), 1);
}

TEST_F(Cache, KeepsQueriesChangesAndTransactions) {
  for (const std::string sql :
       {"select 1", "insert into t_sync(user_id) values('a')", "update t_session set silence=0",
        "delete from t_session", "replace into t_sync(user_id) values('a')", "begin transaction",
        "rollback transaction", "BEGIN", "Commit", " \t\n\f\rselect 2"}) {
    take_prepares();
    store().execute_none_query(sql);
    ASSERT_EQ(take_prepares(), 1) << sql;
    sqlite3_stmt* const again = prepare(sql);
    EXPECT_EQ(take_prepares(), 0) << sql;
    store().finalize(again);
  }
}

TEST_F(Cache, KeepsNothingElse) {
  for (const std::string sql :
       {"pragma user_version", "explain select 1", "with a as (select 1) select * from a",
        "create temp table if not exists a(b)", "drop table if exists a", "analyze", "savepoint a",
        "release a", "/* a */ select 1", "(", "selection", "values(1)"}) {
    take_prepares();
    for (int i = 0; i < 2; ++i) store().execute_none_query(sql);
    EXPECT_EQ(take_prepares(), 2) << sql;
  }
}

TEST_F(Cache, KeepsTextsUpToTwoKibibytes) {
  const std::string kept = select_of_length(2048);
  EXPECT_EQ(prepares_of(kept), 1);
  EXPECT_EQ(prepares_of(kept), 0);
  const std::string longer = select_of_length(2049);
  EXPECT_EQ(prepares_of(longer), 1);
  EXPECT_EQ(prepares_of(longer), 1);
  EXPECT_EQ(prepares_of(kept), 0) << "a text that is too long leaves the others alone";
}

TEST_F(Cache, TextThatIsEqualToTheBeginningOfAnotherIsAnotherText) {
  use("select 1");
  EXPECT_EQ(prepares_of("select 1 "), 1);
  EXPECT_EQ(prepares_of("select 1;"), 1);
  EXPECT_EQ(prepares_of("SELECT 1"), 1);
}

TEST_F(Cache, StatementThatIsNotTheWholeTextIsNotKept) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(prepares_of("select 1; select 2"), 1);
    EXPECT_EQ(prepares_of("select 1; "), 1);
  }
  EXPECT_TRUE(statements_of(connection()).size() == 1) << "the one for connection()";
}

// ---- What an idle statement is like -------------------------------------------------------------

TEST_F(Cache, ResultsAreThoseOfANewStatement) {
  for (int32_t i = 0; i < 3; ++i) {
    sqlite3_stmt* const stmt = prepare("select ?,?");
    EXPECT_EQ(CvDbSingleton::bind(stmt, 1, i), 0);
    EXPECT_EQ(store().step(stmt, false), kRow);
    EXPECT_EQ(CvDbSingleton::get_int(stmt, 0), i);
    EXPECT_EQ(sqlite3_column_type(stmt, 1), SQLITE_NULL);
    store().finalize(stmt);
    sqlite3_stmt* const unbound = prepare("select ?,?");
    EXPECT_EQ(store().step(unbound, false), kRow);
    EXPECT_EQ(sqlite3_column_type(unbound, 0), SQLITE_NULL) << "the value is gone";
    store().finalize(unbound);
  }
}

TEST_F(Cache, BoundLimitPreparesNothingAgain) {
  const std::string sql = "select id from t_message order by id limit ?";
  for (int32_t limit = 0; limit < 3; ++limit) {
    take_prepares();
    sqlite3_stmt* const stmt = prepare(sql);
    EXPECT_EQ(take_prepares(), limit == 0 ? 1 : 0);
    EXPECT_EQ(CvDbSingleton::bind(stmt, 1, limit), 0);
    EXPECT_EQ(store().step(stmt, false), kDone);
    EXPECT_EQ(sqlite3_stmt_status(stmt, SQLITE_STMTSTATUS_REPREPARE, 0), 0);
    store().finalize(stmt);
  }
}

TEST_F(Cache, ForgetsValues) {
  sqlite3_stmt* const stmt = prepare("select ?");
  sqlite3* const db = sqlite3_db_handle(stmt);
  {
    const std::string text(100, 'x');
    EXPECT_EQ(CvDbSingleton::bind(stmt, 1, text), 0);
    EXPECT_EQ(store().step(stmt, true), kRow);
  }
  ASSERT_EQ(statements_of(db).size(), 1U);
  char* const expanded = sqlite3_expanded_sql(statements_of(db)[0]);
  EXPECT_STREQ(expanded, "select NULL");
  sqlite3_free(expanded);
}

TEST_F(Cache, IdleStatementReadsNothing) {
  use("insert into t_sync(user_id) values('a')");
  use("select * from t_sync");
  const Rows checkpoint = rows(file(), "pragma wal_checkpoint(truncate)");
  EXPECT_EQ(checkpoint, Rows{"0|0|0"}) << "busy, or the log is in use";
}

TEST_F(Cache, UseOfATextWithinItsOwnUseGetsAnotherStatement) {
  const std::string sql = "select 1 union all select 2";
  use(sql);
  sqlite3_stmt* const outer = prepare(sql);
  EXPECT_EQ(store().step(outer, false), kRow);
  sqlite3_stmt* const inner = prepare(sql);
  EXPECT_NE(inner, outer);
  EXPECT_EQ(store().step(inner, false), kRow);
  EXPECT_EQ(CvDbSingleton::get_int(inner, 0), 1);
  store().finalize(inner);
  EXPECT_EQ(store().step(outer, false), kRow);
  EXPECT_EQ(CvDbSingleton::get_int(outer, 0), 2);
  store().finalize(outer);
  take_prepares();
  sqlite3_stmt* const first = prepare(sql);
  sqlite3_stmt* const second = prepare(sql);
  EXPECT_EQ(take_prepares(), 0) << "both are kept";
  store().finalize(first);
  store().finalize(second);
}

TEST_F(Cache, ErrorOfAnEarlierStatementIsGoneOnceAKeptOneIsPrepared) {
  use("select 1");
  int32_t code = 0;
  EXPECT_EQ(store().prepare_sql("select", code), nullptr);
  EXPECT_EQ(code, SQLITE_ERROR);
  use("select 1");  // a failed prepare drops nothing, so this one is kept
  EXPECT_EQ(store().prepare_sql("select", code), nullptr);
  EXPECT_NE(store().get_error(), "not an error");
  take_prepares();
  sqlite3_stmt* const stmt = prepare("select 1");
  EXPECT_EQ(take_prepares(), 0);
  EXPECT_EQ(store().get_error(), "not an error");
  store().finalize(stmt);
}

TEST_F(Cache, FinalisingTwiceIsReportedAndHarmless) {
  sqlite3_stmt* const stmt = prepare("select 1");
  store().finalize(stmt);
  EXPECT_TRUE(log.take().empty());
  store().finalize(stmt);
  const std::vector<std::string> lines = log.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_NE(lines[0].find("P-more-C;;;finalize;;;21;;;"), std::string::npos) << lines[0];
  EXPECT_EQ(prepares_of("select 1"), 0);
}

TEST_F(Cache, FinalisingNullIsHarmless) {
  store().finalize(nullptr);
  EXPECT_TRUE(log.take().empty());
}

// ---- What drops statements ----------------------------------------------------------------------

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

TEST_F(Cache, OtherStatementThatFailsEndsAsWell) {
  EXPECT_EQ(store().execute_none_query("drop table absent"), SQLITE_ERROR);  // when prepared
  EXPECT_EQ(store().execute_none_query("attach '' as main"), SQLITE_ERROR);  // when stepped
  EXPECT_EQ(log.take().size(), 3U);
  use("select 1");
  EXPECT_EQ(prepares_of("select 1"), 0);
}

TEST_F(Cache, TableThatAnotherConnectionDroppedIsMissedAsWithoutACache) {
  plant(file(), "create table a(b)");
  use("select * from a");
  use("select b from a");
  plant(file(), "drop table a");
  EXPECT_EQ(store().execute_none_query("select * from a"), SQLITE_ERROR);
  std::vector<std::string> lines = log.take();
  ASSERT_EQ(lines.size(), 2U) << "SQLite notices in the step";
  EXPECT_NE(lines[0].find("step;;;1;;;no such table: a"), std::string::npos) << lines[0];
  EXPECT_EQ(store().execute_none_query("select b from a"), SQLITE_ERROR);
  lines = log.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_NE(lines[0].find("prepare_db;;;1;;;no such table: a"), std::string::npos) << lines[0];
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

// ---- Bounds -------------------------------------------------------------------------------------

TEST_F(Cache, KeepsSixtyFourStatementsUsedLast) {
  EXPECT_EQ(StatementCache::limit(), 64);
  sqlite3* const db = connection();
  for (int i = 0; i < 64; ++i) use(numbered(i));
  EXPECT_EQ(prepares_of(numbered(0)), 0) << "and from now on it is the one used last";
  use(numbered(64));
  EXPECT_EQ(statements_of(db).size(), 64U);
  EXPECT_EQ(prepares_of(numbered(0)), 0);
  EXPECT_EQ(prepares_of(numbered(2)), 0);
  EXPECT_EQ(prepares_of(numbered(1)), 1);
}

TEST_F(Cache, StatementsInUseCountButAreNotDropped) {
  EXPECT_TRUE(StatementCache::set_limit(2));
  use(numbered(1));
  use(numbered(2));
  sqlite3_stmt* const first = prepare(numbered(1));
  sqlite3_stmt* const second = prepare(numbered(2));
  use(numbered(3));
  EXPECT_EQ(statements_of(sqlite3_db_handle(first)), (std::vector<sqlite3_stmt*>{second, first}));
  EXPECT_EQ(store().step(first, true), kRow);
  EXPECT_EQ(store().step(second, true), kRow);
  EXPECT_EQ(prepares_of(numbered(1)), 0);
}

TEST_F(Cache, ANewLimitHoldsAtOnce) {
  sqlite3* const db = connection();
  for (int i = 0; i < 10; ++i) use(numbered(i));
  EXPECT_TRUE(StatementCache::set_limit(3));
  EXPECT_EQ(StatementCache::limit(), 3);
  EXPECT_EQ(statements_of(db).size(), 3U);
  EXPECT_EQ(prepares_of(numbered(7)), 0);
  EXPECT_TRUE(StatementCache::set_limit(100));
  for (int i = 0; i < 120; ++i) use(numbered(i));
  EXPECT_EQ(statements_of(db).size(), 100U);
}

TEST_F(Cache, ALimitOfZeroKeepsNothing) {
  EXPECT_TRUE(StatementCache::set_limit(0));
  EXPECT_EQ(prepares_of("select 1"), 1);
  EXPECT_EQ(prepares_of("select 1"), 1);
  EXPECT_TRUE(statements_of(connection()).empty());
}

TEST_F(Cache, ALimitOutOfRangeIsRefused) {
  for (const int32_t limit : {-1, 257, INT32_MIN, INT32_MAX}) {
    EXPECT_FALSE(StatementCache::set_limit(limit));
    EXPECT_EQ(log.take(), std::vector<std::string>{
                              "3 static bool Corvan::StatementCache::set_limit(int32_t): " +
                              std::to_string(limit) + " is not from 0 to 256"});
  }
  EXPECT_EQ(StatementCache::limit(), 64);
  EXPECT_TRUE(StatementCache::set_limit(256));
}

TEST_F(Cache, TakesAtMostAMebibyte) {
  EXPECT_TRUE(StatementCache::set_limit(StatementCache::kLargestLimit));
  std::string columns;
  for (int i = 0; i < 100; ++i) columns += "content like 'x',";
  for (int i = 0; i < StatementCache::kLargestLimit; ++i) {
    use("select " + columns + std::to_string(i) + " from t_message");
  }
  const std::vector<sqlite3_stmt*> kept = statements_of(connection());
  int64_t bytes = 0;
  for (sqlite3_stmt* stmt : kept) {
    bytes += sqlite3_stmt_status(stmt, SQLITE_STMTSTATUS_MEMUSED, 0);
  }
  EXPECT_LE(bytes, 1024 * 1024);
  EXPECT_GT(bytes, 1024 * 1024 * 9 / 10);
  EXPECT_LT(kept.size(), 256U);
}

TEST_F(Cache, AHitAllocatesNothing) {
  const std::string sql = "select 1";
  use(sql);
  take_prepares();
  int32_t code = -1;
  arm_memory(Memory::kBoth, 1, false);
  sqlite3_stmt* const stmt = store().prepare_sql(sql, code);
  store().finalize(stmt);
  disarm_memory();
  EXPECT_EQ(failed_allocations(), 0U);
  EXPECT_EQ(code, 0);
  EXPECT_EQ(take_prepares(), 0);
}

TEST_F(Cache, KeepingAllocatesNothing) {
  arm_memory(Memory::kOwn, 1, false);
  for (int i = 0; i < 70; ++i) use(numbered(i));
  disarm_memory();
  EXPECT_EQ(failed_allocations(), 0U);
  EXPECT_EQ(prepares_of(numbered(69)), 0);
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
