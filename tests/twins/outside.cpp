// Prepares with a call that support/sqlite_ledger.cpp does not wrap.

#include "tests/twins/outside.h"

#include <sqlite3.h>

#include "tests/model/values.h"
#include "tests/support/unrecorded.h"

namespace corvan_test {

namespace {

std::string row_text(sqlite3_stmt* stmt) {
  std::string text;
  for (int column = 0; column < sqlite3_column_count(stmt); ++column) {
    if (column > 0) text += "|";
    const void* const value = sqlite3_column_blob(stmt, column);
    const auto size = static_cast<std::size_t>(sqlite3_column_bytes(stmt, column));
    if (value != nullptr) text += printable({static_cast<const char*>(value), size});
  }
  return text;
}

}  // namespace

Outside::Outside(const std::string& file) {
  sqlite3_open(file.c_str(), &db_);
}

Outside::~Outside() {
  sqlite3_close_v2(db_);
}

std::string Outside::run(const std::string& sql) {
  std::string text;
  sqlite3_stmt* stmt = nullptr;
  int rc = prepare_unrecorded(db_, sql.c_str(), &stmt);
  while (stmt != nullptr && (rc = sqlite3_step(stmt)) == SQLITE_ROW) text += row_text(stmt) + "\n";
  text += std::to_string(rc) + " " + sqlite3_errmsg(db_);
  sqlite3_finalize(stmt);
  return text;
}

}  // namespace corvan_test
