// The library's own connections to the store and to the index, and their statements.

#ifndef ADDONS_SEARCH_CONNECTION_H_
#define ADDONS_SEARCH_CONNECTION_H_

#include <sqlite3.h>

#include <cstdint>
#include <exception>
#include <string>
#include <string_view>

#include "addons/search/message_search.h"

namespace Corvan::search {

// A failure of SQLite. The public functions catch it.
class SqlError : public std::exception {
 public:
  SqlError(SearchStatus status, int code, std::string text)
      : status_(status), code_(code), text_(std::move(text)) {}

  // kNoStore, kStoreError or kIndexError.
  SearchStatus status() const { return status_; }
  // SQLite's primary result code.
  int code() const { return code_ & 0xff; }
  // The file and SQLite's text.
  const std::string& text() const { return text_; }

 private:
  SearchStatus status_;
  int code_;
  std::string text_;
};

// One thread at a time uses a connection and its statements.
class Connection {
 public:
  // `flags` as for sqlite3_open_v2(). `failure` is the status of the errors that its statements
  // throw. Throws SqlError, with the status `absence` if the file cannot be opened.
  Connection(const std::string& file, int flags, SearchStatus failure, SearchStatus absence);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection() { sqlite3_close_v2(handle_); }

  // Runs a statement to its end.
  void run(std::string_view sql) const;
  // The first column of the first row; 0 if there is none.
  int64_t number(std::string_view sql) const;

  [[noreturn]] void fail(int code) const;
  // Throws unless `code` is SQLITE_OK.
  void require(int code) const {
    if (code != SQLITE_OK) fail(code);
  }

  sqlite3* handle() const { return handle_; }
  const std::string& file() const { return file_; }

 private:
  const std::string file_;
  const SearchStatus failure_;
  sqlite3* handle_ = nullptr;
};

// Bytes to be bound as a blob.
struct Blob {
  std::string_view bytes;
};

// A prepared statement.
class Statement {
 public:
  Statement(const Connection& connection, std::string_view sql);
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement() { sqlite3_finalize(stmt_); }

  // Makes the statement ready to run with these values. Texts must stay until reset() or the next
  // bind().
  template <typename... Values>
  Statement& bind(const Values&... values) {
    sqlite3_reset(stmt_);
    int position = 0;
    (bind_value(++position, values), ...);
    return *this;
  }
  // True if there is a row; otherwise the statement is reset.
  bool row();
  // Runs it to its end.
  void run() {
    while (row()) {
    }
  }
  void reset() { sqlite3_reset(stmt_); }

  int64_t integer(int column) const { return sqlite3_column_int64(stmt_, column); }
  // Valid until the next call; SQL NULL reads as "".
  std::string_view text(int column) const;
  std::string_view blob(int column) const;

 private:
  void bind_value(int position, int64_t value) {
    connection_.require(sqlite3_bind_int64(stmt_, position, value));
  }
  void bind_value(int position, std::string_view text) {
    connection_.require(
        sqlite3_bind_text64(stmt_, position, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8));
  }
  void bind_value(int position, const Blob& blob) {
    connection_.require(
        sqlite3_bind_blob64(stmt_, position, blob.bytes.data(), blob.bytes.size(), SQLITE_STATIC));
  }

  const Connection& connection_;
  sqlite3_stmt* stmt_ = nullptr;
};

// A transaction; rolled back unless it is committed.
class Transaction {
 public:
  // `begin` is "begin" or "begin immediate".
  Transaction(const Connection& connection, const char* begin) : connection_(connection) {
    roll_back();  // an earlier one, if memory ran out when it was to be rolled back
    connection_.run(begin);
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction() { roll_back(); }
  void commit() const { connection_.run("commit"); }

 private:
  // Statements that still have a row would keep their snapshot.
  void roll_back() const {
    sqlite3* const handle = connection_.handle();
    if (sqlite3_get_autocommit(handle) != 0) return;
    sqlite3_stmt* stmt = nullptr;
    while ((stmt = sqlite3_next_stmt(handle, stmt)) != nullptr) sqlite3_reset(stmt);
    sqlite3_exec(handle, "rollback", nullptr, nullptr, nullptr);
  }

  const Connection& connection_;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_CONNECTION_H_
