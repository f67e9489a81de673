// The bounds of the cache.

#include <string>
#include <vector>

#include "tests/addons/statement_cache/cache_fixture.h"
#include "tests/faults/memory_faults.h"

namespace corvan_test {
namespace {

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

}  // namespace
}  // namespace corvan_test
