// A connection to a store's file beside the library's own.

#ifndef TOOLS_CONNECTION_H_
#define TOOLS_CONNECTION_H_

#include <sqlite3.h>

#include <string>

namespace corvan_tool {

// Waits for up to two seconds where another process holds a lock.
class Connection {
 public:
  // Makes no file. A failure is left to the first statement.
  explicit Connection(const std::string& file, int flags = SQLITE_OPEN_READWRITE)
      : opened_(sqlite3_open_v2(file.c_str(), &db_, flags, nullptr)) {
    sqlite3_busy_timeout(db_, 2000);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  // Takes back a transaction that was not committed.
  ~Connection() { sqlite3_close_v2(db_); }

  // Calls `read` with each row: SQLITE_DONE after the last one, else the code of the failure.
  template <typename Read>
  int each_row(const std::string& sql, const Read& read) const {
    if (opened_ != SQLITE_OK) return opened_;
    sqlite3_stmt* stmt = nullptr;
    int rc = sqlite3_prepare_v2(db_, sql.c_str(), -1, &stmt, nullptr);
    if (rc != SQLITE_OK) return rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) read(stmt);
    sqlite3_finalize(stmt);
    return rc;
  }

  // SQLITE_DONE, or the code of the failure.
  int run(const std::string& sql) const {
    return each_row(sql, [](sqlite3_stmt* /*row*/) {});
  }

  // What went wrong last, in SQLite's words.
  std::string error() const { return sqlite3_errmsg(db_); }

 private:
  sqlite3* db_ = nullptr;
  const int opened_;
};

// A column of a row; empty for SQL NULL.
inline std::string text_at(sqlite3_stmt* row, int column) {
  const unsigned char* const text = sqlite3_column_text(row, column);
  return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

}  // namespace corvan_tool

#endif  // TOOLS_CONNECTION_H_
