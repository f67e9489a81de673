// Prepares with a call that sqlite_ledger.cpp does not wrap, so that the ledger holds only the
// store's texts.

#include "tests/support/rows.h"

#include <sqlite3.h>

#include <memory>
#include <stdexcept>

#include "tests/support/encryption.h"
#include "tests/support/unrecorded.h"

namespace corvan_test {

namespace {

struct Close {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct Finalize {
  void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
};
using Connection = std::unique_ptr<sqlite3, Close>;

Connection open_file(const std::string& file) {
  sqlite3* db = nullptr;
  const int rc = sqlite3_open(file.c_str(), &db);
  Connection connection(db);
  if (rc != SQLITE_OK) throw std::runtime_error("cannot open " + file);
  if (encryption != nullptr) encryption->unlock(db, file);
  sqlite3_busy_timeout(db, 2000);
  return connection;
}

std::string row_text(sqlite3_stmt* stmt) {
  std::string text;
  for (int column = 0; column < sqlite3_column_count(stmt); ++column) {
    if (column > 0) text += "|";
    const unsigned char* value = sqlite3_column_text(stmt, column);
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(stmt, column));
    if (value == nullptr) {
      text += "NULL";
    } else {
      text.append(reinterpret_cast<const char*>(value), size);
    }
  }
  return text;
}

}  // namespace

Rows rows(const std::string& file, const std::string& sql) {
  const Connection connection = open_file(file);
  std::vector<std::string> result;
  const char* rest = sql.c_str();
  while (*rest != '\0') {
    sqlite3_stmt* handle = nullptr;
    if (prepare_unrecorded(connection.get(), rest, &handle, &rest) != SQLITE_OK) {
      throw std::runtime_error(sqlite3_errmsg(connection.get()));
    }
    const std::unique_ptr<sqlite3_stmt, Finalize> stmt(handle);
    if (handle == nullptr) break;
    int rc = SQLITE_ROW;
    while ((rc = sqlite3_step(handle)) == SQLITE_ROW) result.push_back(row_text(handle));
    if (rc != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(connection.get()));
  }
  return result;
}

void plant(const std::string& file, const std::string& sql) {
  rows(file, sql);
}

}  // namespace corvan_test
