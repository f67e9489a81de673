// A connection to a store's file beside the library's own.

#ifndef TOOLS_STORE_CONNECTION_H_
#define TOOLS_STORE_CONNECTION_H_

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace corvan_tool {

// A path as SQLite takes it for nothing else: one built to know URIs takes "file:..." for one.
inline std::string unmistakable_path(const std::string& path) {
  return path.rfind("file:", 0) == 0 ? "./" + path : path;
}

// Waits for up to two seconds where another process holds a lock.
class Connection {
 public:
  // Makes no file. A failure is left to the first statement. `file` is a path, or with
  // SQLITE_OPEN_URI a URI.
  explicit Connection(const std::string& file, int flags = SQLITE_OPEN_READWRITE)
      : opened_(sqlite3_open_v2(
            ((flags & SQLITE_OPEN_URI) != 0 ? file : unmistakable_path(file)).c_str(), &db_, flags,
            nullptr)) {
    sqlite3_busy_timeout(db_, 2000);
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  // Takes back a transaction that was not committed.
  ~Connection() { sqlite3_close_v2(db_); }

  // Binds the arguments, integers and texts, from the first place on, and calls `read`, which may
  // throw, with each row: SQLITE_DONE after the last one, else the code of the failure.
  template <typename Read, typename... Arguments>
  int each_row(const std::string& sql, const Read& read, const Arguments&... arguments) const {
    if (opened_ != SQLITE_OK) return opened_;
    sqlite3_stmt* prepared = nullptr;
    int rc = sqlite3_prepare_v2(db_, sql.c_str(), -1, &prepared, nullptr);
    if (rc != SQLITE_OK) return rc;
    const std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)> stmt(prepared, sqlite3_finalize);
    [[maybe_unused]] int place = 0;
    (bind(stmt.get(), ++place, arguments), ...);
    while ((rc = sqlite3_step(stmt.get())) == SQLITE_ROW) read(stmt.get());
    return rc;
  }

  // SQLITE_DONE, or the code of the failure.
  template <typename... Arguments>
  int run(const std::string& sql, const Arguments&... arguments) const {
    return each_row(
        sql, [](sqlite3_stmt* /*row*/) {}, arguments...);
  }

  // What went wrong last, in SQLite's words.
  std::string error() const { return sqlite3_errmsg(db_); }

  // For what SQLite offers beyond statements. The connection stays this object's.
  sqlite3* handle() const { return db_; }

 private:
  static void bind(sqlite3_stmt* stmt, int place, int64_t value) {
    sqlite3_bind_int64(stmt, place, value);
  }
  static void bind(sqlite3_stmt* stmt, int place, std::string_view text) {
    // A null pointer would bind SQL NULL. The text outlives the statement: it is an argument.
    sqlite3_bind_text64(stmt, place, text.data() == nullptr ? "" : text.data(), text.size(),
                        SQLITE_STATIC, SQLITE_UTF8);
  }

  sqlite3* db_ = nullptr;
  const int opened_;
};

// A column of a row, whole even where it holds zero bytes; empty for SQL NULL.
inline std::string text_at(sqlite3_stmt* row, int column) {
  const unsigned char* const text = sqlite3_column_text(row, column);
  if (text == nullptr) return "";
  return {reinterpret_cast<const char*>(text),
          static_cast<std::size_t>(sqlite3_column_bytes(row, column))};
}

// A name as SQL takes it, whatever is in it.
inline std::string quoted_name(const std::string& name) {
  std::string result = "\"";
  for (const char c : name) result.append(c == '"' ? 2 : 1, c);
  return result + '"';
}

}  // namespace corvan_tool

#endif  // TOOLS_STORE_CONNECTION_H_
