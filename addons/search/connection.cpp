#include "addons/search/connection.h"

#include <new>

namespace Corvan::search {

Connection::Connection(const std::string& file, int flags, SearchStatus failure,
                       SearchStatus absence)
    : file_(file), failure_(failure) {
  const int code = sqlite3_open_v2(file.c_str(), &handle_, flags | SQLITE_OPEN_NOMUTEX, nullptr);
  if (code == SQLITE_OK) return;
  const std::string text = file_ + ": " + sqlite3_errmsg(handle_);
  sqlite3_close_v2(handle_);
  if ((code & 0xff) == SQLITE_NOMEM) throw std::bad_alloc();
  throw SqlError(absence, code, text);
}

void Connection::run(std::string_view sql) const {
  Statement(*this, sql).run();
}

int64_t Connection::number(std::string_view sql) const {
  Statement statement(*this, sql);
  return statement.row() ? statement.integer(0) : 0;
}

void Connection::fail(int code) const {
  if ((code & 0xff) == SQLITE_NOMEM) throw std::bad_alloc();
  throw SqlError(failure_, code, file_ + ": " + sqlite3_errmsg(handle_));
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

}  // namespace Corvan::search
