#include "addons/encryption/content_tables.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace Corvan::encryption {

namespace {

// Lower case, of ASCII letters only, as SQLite compares names.
std::string folded(std::string name) {
  std::transform(name.begin(), name.end(), name.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return name;
}

// The name by which the row id can be reached: a column can have the same name. Empty if there is
// none, as in a table WITHOUT ROWID.
std::string row_id_name(const Database& database, const std::string& table,
                        const std::vector<std::string>& columns) {
  constexpr std::array<const char*, 3> kNames = {"rowid", "_rowid_", "oid"};
  const auto is_free = [&](const std::string& name) {
    return std::none_of(columns.begin(), columns.end(),
                        [&](const std::string& column) { return folded(column) == name; }) &&
           database.accepts("select " + name + " from " + identifier(table));
  };
  const auto* const found = std::find_if(kNames.begin(), kNames.end(), is_free);
  return found == kNames.end() ? std::string() : *found;
}

std::vector<std::string> column_names(const Database& database, const std::string& pragma,
                                      const std::string& table) {
  Query query(database, "pragma " + pragma + "(" + identifier(table) + ")");
  std::vector<std::string> names;
  while (query.row()) names.push_back(query.text(1));
  return names;
}

ContentTable described(const Database& database, const std::string& name) {
  // Generated columns have no values of their own: only table_xinfo, since SQLite 3.26, names them.
  const std::vector<std::string> names = column_names(database, "table_info", name);
  const std::vector<std::string> all = column_names(database, "table_xinfo", name);
  const std::string row_id = row_id_name(database, name, all.empty() ? names : all);
  ContentTable table{name, {}, row_id.empty() ? "" : " order by " + row_id};
  if (!row_id.empty()) table.columns.push_back(row_id);
  for (const std::string& column : names) table.columns.push_back(identifier(column));
  return table;
}

std::vector<ContentTable> described_all(const Database& database, const std::string& condition) {
  std::vector<ContentTable> tables;
  for (const std::string& name :
       database.values("select name from sqlite_master where type='table' and " + condition +
                       " order by rowid")) {
    tables.push_back(described(database, name));
  }
  return tables;
}

}  // namespace

std::vector<ContentTable> ordinary_tables(const Database& database) {
  return described_all(database, "rootpage>0 and substr(name,1,7) collate nocase<>'sqlite_'");
}

std::vector<ContentTable> table_if_any(const Database& database, const std::string& name) {
  return described_all(database, "name=" + literal(name));
}

std::string select_rows(const ContentTable& table) {
  const std::string columns = std::accumulate(
      table.columns.begin() + 1, table.columns.end(), table.columns.front(),
      [](const std::string& list, const std::string& column) { return list + "," + column; });
  return "select " + columns + " from " + identifier(table.name) + table.order;
}

}  // namespace Corvan::encryption
