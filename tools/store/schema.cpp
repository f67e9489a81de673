#include "tools/store/schema.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>

#include "tools/store/connection.h"
#include "tools/ui/letter_case.h"

namespace corvan_tool {

namespace {

// The statement in lower case, without white space that separates no words.
std::string normal_form(const std::string& sql) {
  if (sql.find("--") != std::string::npos || sql.find("/*") != std::string::npos) return sql;
  const auto is_bracket = [](char c) { return c == '(' || c == ')' || c == ','; };
  std::string result;
  char quote = '\0';
  bool gap = false;
  for (const char c : sql) {
    if (quote == '\0' && (c == ' ' || (c >= '\t' && c <= '\r'))) {
      gap = true;
      continue;
    }
    if (gap && !result.empty() && !is_bracket(result.back()) && !is_bracket(c)) result += ' ';
    gap = false;
    result += quote == '\0' ? lower_case(c) : c;
    if (quote != '\0') {
      if (c == quote) quote = '\0';
    } else if (c == '\'' || c == '"' || c == '`') {
      quote = c;
    } else if (c == '[') {
      quote = ']';
    }
  }
  return result;
}

// Names of the store's own indexes begin with the name of their table.
bool has_store_name(const Index& index) {
  return index.name.rfind(index.table + "_", 0) == 0;
}

std::string column_part(const Row& row) {
  std::string part = "column " + lower_case(row.text(1) + " " + row.text(2));
  if (row.int32(3) != 0) part += " not null";
  if (!row.is_null(4)) part += " default " + row.text(4);
  if (row.int32(5) != 0) part += " primary key";
  if (row.int32(6) == 1) part += " hidden";
  if (row.int32(6) > 1) part += " generated";
  return part;
}

int read_column_parts(const Connection& connection, Table& table) {
  return connection.each_row("pragma table_xinfo(" + quoted_name(table.name) + ")",
                             [&table](const Row& row) { table.parts.push_back(column_part(row)); });
}

// Adds the keys, which SQLite lists as indexes that no statement created.
int read_key_parts(const Connection& connection, Table& table) {
  std::vector<std::string> keys;
  int rc = connection.each_row("pragma index_list(" + quoted_name(table.name) + ")",
                               [&keys](const Row& row) {
                                 if (row.text(3) != "c") keys.push_back(row.text(1));
                               });
  for (const std::string& key : keys) {
    std::vector<std::string> columns;
    if (rc == SQLITE_DONE) {
      rc = connection.each_row(
          "pragma index_info(" + quoted_name(key) + ")",
          [&columns](const Row& row) { columns.push_back(lower_case(row.text(2))); });
    }
    table.parts.push_back(fmt::format("key {}", fmt::join(columns, ",")));
  }
  return rc;
}

template <typename Named>
const Named* find_named(const std::vector<Named>& all, const std::string& name) {
  const auto found = std::find_if(all.begin(), all.end(), [&name](const Named& one) {
    return lower_case(one.name) == lower_case(name);
  });
  return found == all.end() ? nullptr : &*found;
}

}  // namespace

const Table* Schema::table(const std::string& name) const {
  return find_named(tables, name);
}

const Index* Schema::index(const std::string& name) const {
  return find_named(indexes, name);
}

int read_schema(const Connection& connection, Schema& schema) {
  return connection.each_row(
      "select type,name,tbl_name,sql from sqlite_master where type in('table','index') "
      "and sql is not null and name not like 'sqlite\\_%' escape '\\' order by name",
      [&schema](const Row& row) {
        if (row.text(0) == "table") {
          schema.tables.push_back({row.text(1), row.text(3), {}});
        } else {
          schema.indexes.push_back({row.text(1), row.text(2), row.text(3)});
        }
      });
}

int read_parts(const Connection& connection, Table& table) {
  int rc = read_column_parts(connection, table);
  if (rc == SQLITE_DONE) rc = read_key_parts(connection, table);
  std::sort(table.parts.begin(), table.parts.end());
  return rc;
}

int read_columns(const Connection& connection, const std::string& table,
                 std::vector<std::string>& names) {
  return connection.each_row(
      "pragma table_xinfo(" + quoted_name(table) + ")",
      [&names](const Row& row) { names.push_back(lower_case(row.text(1))); });
}

int find_row_id(const Connection& connection, const std::string& table, std::string& name) {
  name.clear();
  std::vector<std::string> columns;
  const int rc = read_columns(connection, table, columns);
  if (rc != SQLITE_DONE) return rc;
  for (const char* const one : {"rowid", "_rowid_", "oid"}) {
    if (std::find(columns.begin(), columns.end(), one) != columns.end()) continue;
    const int read =
        connection.run(fmt::format("select {} from {} limit 0", one, quoted_name(table)));
    if (read == SQLITE_DONE) name = one;
    // A WITHOUT ROWID table has none of the names.
    return read == SQLITE_ERROR ? SQLITE_DONE : read;
  }
  return SQLITE_DONE;
}

std::string no_row_id_text(const std::string& table) {
  return "table " + table +
         " has no row ids that SQL can name: it is WITHOUT ROWID, or has columns named rowid, "
         "_rowid_ and oid; in a copy of the store, rename one of these columns or recreate the table "
         "with row ids";
}

std::optional<int64_t> stored_bytes(const Connection& connection, const std::string& name) {
  std::optional<int64_t> bytes;
  connection.each_row(
      // Qualified, because the file may have a table named dbstat.
      "select sum(pgsize) from temp.dbstat('main') where name=?",
      [&bytes](const Row& row) { bytes = row.int64(0); }, name);
  return bytes;
}

bool is_same_statement(const std::string& one, const std::string& other) {
  return normal_form(one) == normal_form(other);
}

std::vector<IndexDifference> index_differences(const Schema& wanted, const Schema& present,
                                               std::size_t& kept) {
  kept = 0;
  std::vector<IndexDifference> result;
  for (const Index& index : wanted.indexes) {
    const Index* const found = present.index(index.name);
    if (found == nullptr) {
      result.push_back({IndexDifference::kMissing, index, ""});
    } else if (!is_same_statement(found->sql, index.sql)) {
      result.push_back({IndexDifference::kDiffers, index, found->sql});
    } else {
      ++kept;
    }
  }
  for (const Index& index : present.indexes) {
    if (wanted.table(index.table) == nullptr || wanted.index(index.name) != nullptr) continue;
    result.push_back(
        {has_store_name(index) ? IndexDifference::kOlder : IndexDifference::kOther, index, ""});
  }
  return result;
}

}  // namespace corvan_tool
