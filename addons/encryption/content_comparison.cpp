#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "addons/encryption/content.h"
#include "addons/encryption/content_tables.h"

namespace Corvan::encryption {

namespace {

[[noreturn]] void fail(const std::string& what) {
  throw ConversionFailure(ConversionResult::kFailed, "the copy differs: " + what);
}

bool same_bytes(const Query& a, const Query& b, int column) {
  const int count = sqlite3_column_bytes(a.handle(), column);
  if (count != sqlite3_column_bytes(b.handle(), column)) return false;
  const void* const bytes_a = sqlite3_column_blob(a.handle(), column);
  const void* const bytes_b = sqlite3_column_blob(b.handle(), column);
  return count == 0 || std::memcmp(bytes_a, bytes_b, static_cast<std::size_t>(count)) == 0;
}

bool same_real(const Query& a, const Query& b, int column) {
  const double real_a = sqlite3_column_double(a.handle(), column);
  const double real_b = sqlite3_column_double(b.handle(), column);
  return real_a == real_b && std::signbit(real_a) == std::signbit(real_b);  // SQLite stores no NaN
}

bool same_value(const Query& a, const Query& b, int column) {
  const int type = sqlite3_column_type(a.handle(), column);
  if (type != sqlite3_column_type(b.handle(), column)) return false;
  switch (type) {
    case SQLITE_NULL:
      return true;
    case SQLITE_INTEGER:
      return sqlite3_column_int64(a.handle(), column) == sqlite3_column_int64(b.handle(), column);
    case SQLITE_FLOAT:
      return same_real(a, b, column);
    default:
      return same_bytes(a, b, column);
  }
}

bool same_row(const Query& a, const Query& b) {
  for (int i = 0; i < a.columns(); ++i) {
    if (!same_value(a, b, i)) return false;
  }
  return true;
}

// Both queries must return the same rows in the same order.
void require_same(const Database& original, const Database& copy, const std::string& sql,
                  const std::string& what) {
  Query a(original, sql);
  Query b(copy, sql);
  bool has_row = a.row();
  if (a.columns() != b.columns()) fail(what);
  for (; has_row; has_row = a.row()) {
    if (!b.row() || !same_row(a, b)) fail(what);
  }
  if (b.row()) fail(what);
}

void require_same_tables(const Database& original, const Database& copy,
                         const std::vector<ContentTable>& tables) {
  for (const ContentTable& table : tables) {
    require_same(original, copy, select_rows(table), "rows of table " + table.name);
  }
}

}  // namespace

// Statistics only help to plan queries; they are not compared.
void require_equal(const Database& original, const Database& copy) {
  require_same(original, copy,
               "select type,name,tbl_name,sql from sqlite_master where name not like "
               "'sqlite@_stat_' escape '@' order by type,name",
               "schema");
  for (const char* const name : {"encoding", "auto_vacuum", "application_id", "user_version"}) {
    require_same(original, copy, std::string("pragma ") + name, name);
  }
  require_same_tables(original, copy, ordinary_tables(original));
  require_same_tables(original, copy, table_if_any(original, "sqlite_sequence"));
  const std::string integrity = copy.value("pragma integrity_check");
  if (integrity != "ok") throw ConversionFailure(ConversionResult::kDamaged, integrity);
}

}  // namespace Corvan::encryption
