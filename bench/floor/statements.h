// Two ways for the floor to obtain statements, with the same members: take() before values are
// bound, release() after the last step.

#ifndef BENCH_FLOOR_STATEMENTS_H_
#define BENCH_FLOOR_STATEMENTS_H_

#include <sqlite3.h>

#include <string>
#include <string_view>
#include <unordered_map>

namespace corvan_bench {

// Prepares a statement for each use, as the store does.
class PreparedEachTime {
 public:
  explicit PreparedEachTime(sqlite3* db) : db_(db) {}

  sqlite3_stmt* take(const char* sql) {
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v2(db_, sql, -1, &stmt, nullptr);
    return stmt;
  }
  static void release(sqlite3_stmt* stmt) { sqlite3_finalize(stmt); }

 private:
  sqlite3* db_;
};

// Prepares a statement at its first use and keeps it. A statement must be released before the same
// text is taken again.
class PreparedOnce {
 public:
  explicit PreparedOnce(sqlite3* db) : db_(db) {}
  PreparedOnce(const PreparedOnce&) = delete;
  PreparedOnce& operator=(const PreparedOnce&) = delete;
  ~PreparedOnce() {
    for (const auto& [text, stmt] : kept_) sqlite3_finalize(stmt);
  }

  sqlite3_stmt* take(const char* sql) {
    const auto found = kept_.find(sql);
    if (found != kept_.end()) return found->second;
    sqlite3_stmt* stmt = nullptr;
    sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt, nullptr);
    kept_.emplace(sqlite3_sql(stmt), stmt);
    return stmt;
  }
  static void release(sqlite3_stmt* stmt) { sqlite3_reset(stmt); }

 private:
  sqlite3* db_;
  std::unordered_map<std::string_view, sqlite3_stmt*> kept_;  // the keys point into the statements
};

// A statement in use until the end of the scope.
template <typename Statements>
class Query {
 public:
  Query(Statements& statements, const char* sql)
      : statements_(statements), stmt_(statements.take(sql)) {}
  Query(Statements& statements, const std::string& sql) : Query(statements, sql.c_str()) {}
  Query(const Query&) = delete;
  Query& operator=(const Query&) = delete;
  ~Query() { statements_.release(stmt_); }

  void bind(int parameter, int32_t value) { sqlite3_bind_int(stmt_, parameter, value); }
  void bind(int parameter, int64_t value) { sqlite3_bind_int64(stmt_, parameter, value); }
  void bind(int parameter, const std::string& text) {
    sqlite3_bind_text(stmt_, parameter, text.c_str(), -1, SQLITE_STATIC);
  }
  int step() { return sqlite3_step(stmt_); }
  bool row() { return step() == SQLITE_ROW; }
  void reset() { sqlite3_reset(stmt_); }
  int32_t get_int(int column) const { return sqlite3_column_int(stmt_, column); }
  int64_t get_int64(int column) const { return sqlite3_column_int64(stmt_, column); }
  const char* text(int column) const {
    const unsigned char* value = sqlite3_column_text(stmt_, column);
    return value == nullptr ? "" : reinterpret_cast<const char*>(value);
  }

 private:
  Statements& statements_;
  sqlite3_stmt* stmt_;
};

}  // namespace corvan_bench

#endif  // BENCH_FLOOR_STATEMENTS_H_
