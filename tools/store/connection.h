// A connection of the tool's own to a store's file, and the statements that run on it.

#ifndef TOOLS_STORE_CONNECTION_H_
#define TOOLS_STORE_CONNECTION_H_

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "addons/encryption/store_keys.h"
#include "base/pathname.h"

namespace corvan_tool {

class Connection;

// The current row of a statement. Valid until the statement is stepped, reset or destroyed. Columns
// count from 0.
class Row {
 public:
  // Also reads rows of the library's own statements.
  explicit Row(sqlite3_stmt* stmt) : stmt_(stmt) {}

  int size() const { return sqlite3_column_count(stmt_); }

  // The whole text, zero bytes included; empty for SQL NULL.
  std::string text(int column) const { return std::string(text_view(column)); }
  // Like text(), without a copy. Valid as long as the row, unless the column is read as another
  // type.
  std::string_view text_view(int column) const;
  std::string_view blob(int column) const;
  std::int64_t int64(int column) const { return sqlite3_column_int64(stmt_, column); }
  std::int32_t int32(int column) const { return sqlite3_column_int(stmt_, column); }
  double real(int column) const { return sqlite3_column_double(stmt_, column); }
  bool is_null(int column) const { return type(column) == SQLITE_NULL; }
  // SQLITE_INTEGER, SQLITE_TEXT, ...
  int type(int column) const { return sqlite3_column_type(stmt_, column); }

 private:
  sqlite3_stmt* stmt_;
};

// A prepared statement. Parameters count from 1; bound texts and blobs must live until the
// statement is stepped for the last time.
class Statement {
 public:
  // A failure to prepare is returned by step(). `flags` are those of sqlite3_prepare_v3().
  Statement(const Connection& connection, const std::string& sql, unsigned flags = 0);
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement() { sqlite3_finalize(stmt_); }

  void bind(int parameter, std::int64_t value) { sqlite3_bind_int64(stmt_, parameter, value); }
  void bind(int parameter, std::string_view text);
  void bind_blob(int parameter, std::string_view bytes);
  void bind_real(int parameter, double value) { sqlite3_bind_double(stmt_, parameter, value); }
  void bind_null(int parameter) { sqlite3_bind_null(stmt_, parameter); }

  // SQLITE_ROW, SQLITE_DONE, or the code of the failure.
  int step() { return prepared_ == SQLITE_OK ? sqlite3_step(stmt_) : prepared_; }

  // Makes the statement ready to be stepped from the beginning. Keeps what is bound.
  void reset() { sqlite3_reset(stmt_); }

  // After step() has returned SQLITE_ROW.
  Row row() const { return Row(stmt_); }

  // SQLITE_OK, or the code of the failure to prepare.
  int prepared() const { return prepared_; }

  // For functions of SQLite that have no member here. This object keeps the ownership.
  sqlite3_stmt* handle() const { return stmt_; }

 private:
  sqlite3_stmt* stmt_ = nullptr;
  int prepared_ = SQLITE_OK;
};

// Waits for up to two seconds if another process holds a lock. A file is unlocked with used_key(),
// if that is valid.
class Connection {
 public:
  // Creates no file unless the flags say so. A failure to open or to unlock the file is returned by
  // the first statement. `file` is a path, or with SQLITE_OPEN_URI a URI.
  explicit Connection(const std::string& file, int flags = SQLITE_OPEN_READWRITE);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  // Rolls back an open transaction.
  ~Connection() { sqlite3_close_v2(db_); }

  // Binds the arguments, integers and texts, from parameter 1 on, and calls `read`, which may
  // throw, with each Row. Returns SQLITE_DONE, or the code of the failure.
  template <typename Read, typename... Arguments>
  int each_row(const std::string& sql, const Read& read, const Arguments&... arguments) const {
    Statement statement(*this, sql);
    [[maybe_unused]] int parameter = 0;
    (statement.bind(++parameter, arguments), ...);
    int rc = SQLITE_DONE;
    while ((rc = statement.step()) == SQLITE_ROW) read(statement.row());
    return rc;
  }

  // Returns SQLITE_DONE, or the code of the failure.
  template <typename... Arguments>
  int run(const std::string& sql, const Arguments&... arguments) const {
    return each_row(
        sql, [](const Row& /*row*/) {}, arguments...);
  }

  // SQLite's text for the last failure.
  std::string error() const;

  // SQLITE_OK, or the code of the failure to open or to unlock the file.
  int opened() const { return opened_; }

  // Why the key, or the lack of one, was refused; kNone if it was not.
  Corvan::KeyRefusal refusal() const { return refusal_; }

  // For functions of SQLite other than statements. This object keeps the ownership.
  sqlite3* handle() const { return db_; }

 private:
  int open(const std::string& file, int flags);
  int open_once(const std::string& file, int flags);
  int unlock();

  sqlite3* db_ = nullptr;
  Corvan::KeyRefusal refusal_ = Corvan::KeyRefusal::kNone;
  const int opened_;
};

// Throws ToolError if the file was refused because of its key. `name` is the file's name in the
// error.
void require_unlocked(const Connection& connection, const std::string& name);

// A path that SQLite does not treat as a URI. A build with support for URIs would treat "file:..."
// as one.
std::string unmistakable_path(const std::string& path);

// A folder as the libraries take it.
cvrtc::Pathname folder_name(const std::string& folder);

// A name quoted as an SQL identifier.
std::string quoted_name(const std::string& name);

// Texts as SQL literals, separated by commas.
std::string quoted_texts(const std::vector<std::string>& texts);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_CONNECTION_H_
