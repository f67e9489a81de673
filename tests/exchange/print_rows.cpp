#include <sqlite3.h>

#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/exchange/print.h"
#include "tests/exchange/text.h"

namespace exchange {

namespace {

struct Finalize {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Statement = std::unique_ptr<sqlite3_stmt, Finalize>;

Statement prepared(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* statement = nullptr;
  if (sqlite3_prepare_v2(db, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sql + ": " + sqlite3_errmsg(db));
  }
  return Statement(statement);
}

std::string text_of(sqlite3_stmt* statement, int column) {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(statement, column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(statement, column));
  return size == 0 ? std::string() : std::string(bytes, size);
}

// Numbers as they are; texts and blobs, which the store does not write, in quotes.
std::string value_of(sqlite3_stmt* statement, int column) {
  switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
      return shown(int64_t{sqlite3_column_int64(statement, column)});
    case SQLITE_TEXT:
      return shown(text_of(statement, column));
    case SQLITE_NULL:
      return "NULL";
    case SQLITE_BLOB:
      return "blob " + shown(text_of(statement, column));
    default:
      return "a number with a fraction";
  }
}

using Rows = std::vector<std::string>;

Rows rows_of(sqlite3* db, const std::string& sql) {
  const Statement statement = prepared(db, sql);
  Rows rows;
  int rc = SQLITE_ROW;
  while ((rc = sqlite3_step(statement.get())) == SQLITE_ROW) {
    std::string row;
    for (int column = 0; column < sqlite3_column_count(statement.get()); ++column) {
      row += (column > 0 ? "|" : "") + value_of(statement.get(), column);
    }
    rows.push_back(row);
  }
  if (rc != SQLITE_DONE) throw std::runtime_error(sql + ": " + sqlite3_errmsg(db));
  return rows;
}

void print(sqlite3* db, const std::string& name, const std::string& sql, std::ostream& out) {
  for (const auto& row : rows_of(db, sql)) out << name << ": " << row << "\n";
}

}  // namespace

void print_rows(sqlite3* db, std::ostream& out) {
  for (const char* setting : {"encoding", "journal_mode", "page_size", "user_version",
                              "application_id", "integrity_check"}) {
    print(db, setting, std::string("pragma ") + setting, out);
  }
  print(db, "schema", "select type,name,tbl_name,sql from sqlite_master order by type,name", out);
  for (const char* table : {"sqlite_sequence", "t_message", "t_session", "t_sync", "t_version"}) {
    print(db, table, std::string("select rowid,* from ") + table + " order by rowid", out);
  }
}

}  // namespace exchange
