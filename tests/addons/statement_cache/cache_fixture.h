// The fixture of the cache's tests: an open store, and what SQLite prepares for it.

#ifndef TESTS_ADDONS_STATEMENT_CACHE_CACHE_FIXTURE_H_
#define TESTS_ADDONS_STATEMENT_CACHE_CACHE_FIXTURE_H_

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <vector>

#include "addons/statement_cache/statement_cache.h"
#include "db/cv_db_singleton.h"
#include "tests/addons/statement_cache/prepare_count.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

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

// All prepared statements of a connection.
inline std::vector<sqlite3_stmt*> statements_of(sqlite3* db) {
  std::vector<sqlite3_stmt*> all;
  for (sqlite3_stmt* stmt = sqlite3_next_stmt(db, nullptr); stmt != nullptr;
       stmt = sqlite3_next_stmt(db, stmt)) {
    all.push_back(stmt);
  }
  return all;
}

inline std::string numbered(int number) {
  return "select " + std::to_string(number);
}

}  // namespace corvan_test

#endif  // TESTS_ADDONS_STATEMENT_CACHE_CACHE_FIXTURE_H_
