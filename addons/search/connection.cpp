#include "addons/search/connection.h"

#include <new>

namespace Corvan::search {

std::string joined(std::initializer_list<std::string_view> parts) {
  std::string text;
  for (const std::string_view part : parts) text += part;
  return text;
}

SqlError::SqlError(SearchStatus status, int code, std::initializer_list<std::string_view> text)
    : status_(status), code_(code), text_(joined(text)) {}

Connection::Connection(const std::string& file, int flags, SearchStatus failure,
                       SearchStatus absence)
    : file_(file), failure_(failure) {
  sqlite3* handle = nullptr;
  const int code = sqlite3_open_v2(file.c_str(), &handle, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  handle_.reset(handle);
  if (code != SQLITE_OK) fail(absence, code);
}

Connection::~Connection() = default;

void Connection::run(std::string_view sql) const {
  Statement(*this, sql).run();
}

int64_t Connection::number(std::string_view sql) const {
  Statement statement(*this, sql);
  return statement.row() ? statement.integer(0) : 0;
}

void Connection::fail(int code) const {
  fail(failure_, code);
}

void Connection::fail(SearchStatus status, int code) const {
  if ((code & 0xff) == SQLITE_NOMEM) throw std::bad_alloc();
  throw SqlError(status, code, {file_, ": ", sqlite3_errmsg(handle())});
}

Statement::Statement(const Connection& connection, std::string_view sql) : connection_(connection) {
  connection.require(sqlite3_prepare_v2(connection.handle(), sql.data(),
                                        static_cast<int>(sql.size()), &stmt_, nullptr));
}

bool Statement::row() {
  const int code = sqlite3_step(stmt_);
  if (code == SQLITE_ROW) return true;
  sqlite3_reset(stmt_);
  if (code != SQLITE_DONE) connection_.fail(code);
  return false;
}

void Statement::run() {
  while (row()) {
  }
}

std::string_view Statement::text(int column) const {
  const bool is_null = sqlite3_column_type(stmt_, column) == SQLITE_NULL;
  const auto* const text = reinterpret_cast<const char*>(sqlite3_column_text(stmt_, column));
  if (text == nullptr && !is_null) throw std::bad_alloc();
  if (text == nullptr) return {};
  return {text, static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column))};
}

std::string_view Statement::blob(int column) const {
  const auto* const blob = static_cast<const char*>(sqlite3_column_blob(stmt_, column));
  if (blob == nullptr) return {};
  return {blob, static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column))};
}

void Statement::bind_value(int position, int64_t value) {
  connection_.require(sqlite3_bind_int64(stmt_, position, value));
}

void Statement::bind_value(int position, std::string_view text) {
  connection_.require(
      sqlite3_bind_text64(stmt_, position, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8));
}

void Statement::bind_value(int position, const Blob& blob) {
  connection_.require(
      sqlite3_bind_blob64(stmt_, position, blob.bytes.data(), blob.bytes.size(), SQLITE_STATIC));
}

Transaction::Transaction(const Connection& connection, const char* begin)
    : connection_(connection) {
  roll_back();  // an earlier one, if memory ran out when it was to be rolled back
  connection_.run(begin);
}

// Statements that still have a row would keep their snapshot.
void Transaction::roll_back() const {
  sqlite3* const handle = connection_.handle();
  if (sqlite3_get_autocommit(handle) != 0) return;
  sqlite3_stmt* stmt = nullptr;
  while ((stmt = sqlite3_next_stmt(handle, stmt)) != nullptr) sqlite3_reset(stmt);
  sqlite3_exec(handle, "rollback", nullptr, nullptr, nullptr);
}

}  // namespace Corvan::search
