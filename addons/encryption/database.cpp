#include "addons/encryption/database.h"

#include "addons/encryption/cipher.h"
#include "addons/encryption/connection_hook.h"

namespace Corvan::encryption {

namespace {

ConversionResult result_of(int code) {
  switch (code & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return ConversionResult::kInUse;
    case SQLITE_FULL:
      return ConversionResult::kNoSpace;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_CONSTRAINT:
      return ConversionResult::kDamaged;
    default:
      return ConversionResult::kFailed;
  }
}

ConversionResult result_of(const Unlocking& unlocking) {
  switch (unlocking.refusal) {
    case KeyRefusal::kNoCipher:
      return ConversionResult::kNoCipher;
    case KeyRefusal::kWrongKey:
      return ConversionResult::kWrongKey;
    case KeyRefusal::kNotEncrypted:
      return ConversionResult::kNotEncrypted;
    default:
      return result_of(unlocking.code);
  }
}

std::string quoted(std::string_view text, char mark) {
  std::string result(1, mark);
  for (const char c : text) {
    if (c == mark) result += mark;
    result += c;
  }
  return result + mark;
}

}  // namespace

Query::Query(const Database& database, const std::string& sql) : database_(database) {
  const int code = sqlite3_prepare_v2(database.handle(), sql.c_str(), -1, &stmt_, nullptr);
  if (code != SQLITE_OK) database.fail(code);
}

bool Query::row() {
  const int code = sqlite3_step(stmt_);
  if (code != SQLITE_ROW && code != SQLITE_DONE) database_.fail(code);
  return code == SQLITE_ROW;
}

std::string Query::text(int column) const {
  const unsigned char* const bytes = sqlite3_column_text(stmt_, column);
  const auto count = static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column));
  return bytes == nullptr ? std::string()
                          : std::string(reinterpret_cast<const char*>(bytes), count);
}

Database::Database(const std::string& file, const StoreKey& key) {
  const HookPause pause;
  const int code = sqlite3_open_v2(file.c_str(), &connection_, SQLITE_OPEN_READWRITE, nullptr);
  Unlocking unlocking;
  if (code == SQLITE_OK && key.is_valid()) unlocking = unlock(connection_, key);
  if (code == SQLITE_OK && unlocking.refusal == KeyRefusal::kNone) return;
  const ConversionResult result = code == SQLITE_OK ? result_of(unlocking) : result_of(code);
  const std::string detail = sqlite3_errstr(code == SQLITE_OK ? unlocking.code : code);
  close();
  throw ConversionFailure(result, detail);
}

void Database::close() {
  sqlite3_close_v2(connection_);
  connection_ = nullptr;
}

void Database::run(const std::string& sql) const {
  Query query(*this, sql);
  while (query.row()) {
  }
}

bool Database::accepts(const std::string& sql) const {
  sqlite3_stmt* stmt = nullptr;
  const int code = sqlite3_prepare_v2(connection_, sql.c_str(), -1, &stmt, nullptr);
  sqlite3_finalize(stmt);
  return code == SQLITE_OK;
}

std::string Database::value(const std::string& sql) const {
  Query query(*this, sql);
  return query.row() ? query.text(0) : std::string();
}

std::vector<std::string> Database::values(const std::string& sql) const {
  Query query(*this, sql);
  std::vector<std::string> found;
  while (query.row()) found.push_back(query.text(0));
  return found;
}

bool Database::has_moved() const {
  int moved = 0;
  sqlite3_file_control(connection_, "main", SQLITE_FCNTL_HAS_MOVED, &moved);
  return moved != 0;
}

void Database::fail(int code) const {
  throw ConversionFailure(result_of(code), sqlite3_errstr(code));
}

std::string identifier(std::string_view name) {
  return quoted(name, '"');
}

std::string literal(std::string_view text) {
  return quoted(text, '\'');
}

}  // namespace Corvan::encryption
