// Which statements are kept, and in what state.

#include <string>
#include <vector>

#include "tests/addons/statement_cache/cache_fixture.h"
#include "tests/support/rows.h"

namespace corvan_test {
namespace {

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

}  // namespace
}  // namespace corvan_test
