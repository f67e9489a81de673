// The library's own connections to the store and to the index, and their statements.

#ifndef ADDONS_SEARCH_CONNECTION_H_
#define ADDONS_SEARCH_CONNECTION_H_

#include <sqlite3.h>

#include <array>
#include <cstdint>
#include <exception>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>

#include "addons/search/message_search.h"

namespace Corvan::search {

// The texts, one after the other.
std::string joined(std::initializer_list<std::string_view> parts);

// A failure of SQLite. The public functions catch it.
class SqlError : public std::exception {
 public:
  SqlError(SearchStatus status, int code, std::initializer_list<std::string_view> text);

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
  ~Connection();

  // Runs a statement to its end.
  void run(std::string_view sql) const;
  // The first column of the first row; 0 if there is none.
  int64_t number(std::string_view sql) const;

  [[noreturn]] void fail(int code) const;
  // Throws unless `code` is SQLITE_OK.
  void require(int code) const {
    if (code != SQLITE_OK) fail(code);
  }

  sqlite3* handle() const { return handle_.get(); }
  const std::string& file() const { return file_; }

 private:
  struct Close {
    void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
  };

  [[noreturn]] void fail(SearchStatus status, int code) const;

  const std::string file_;
  const SearchStatus failure_;
  std::unique_ptr<sqlite3, Close> handle_;
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
  template <std::size_t kCount>
  Statement& bind(const std::array<int64_t, kCount>& values) {
    sqlite3_reset(stmt_);
    int position = 0;
    for (const int64_t value : values) bind_value(++position, value);
    return *this;
  }
  // True if there is a row; otherwise the statement is reset.
  bool row();
  // Runs it to its end.
  void run();
  void reset() { sqlite3_reset(stmt_); }

  int64_t integer(int column) const { return sqlite3_column_int64(stmt_, column); }
  // Valid until the next call; SQL NULL reads as "".
  std::string_view text(int column) const;
  std::string_view blob(int column) const;

 private:
  void bind_value(int position, int64_t value);
  void bind_value(int position, std::string_view text);
  void bind_value(int position, const Blob& blob);

  const Connection& connection_;
  sqlite3_stmt* stmt_ = nullptr;
};

// A transaction; rolled back unless it is committed.
class Transaction {
 public:
  // `begin` is "begin" or "begin immediate".
  Transaction(const Connection& connection, const char* begin);
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction() { roll_back(); }
  void commit() const { connection_.run("commit"); }

 private:
  void roll_back() const;

  const Connection& connection_;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_CONNECTION_H_
