#include "tools/verify/schema_checks.h"

#include <fmt/format.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "tools/store/new_store.h"
#include "tools/store/schema.h"

namespace corvan_tool {

namespace {

using Parts = std::vector<std::string>;

// The parts that are not among the others. Both lists are sorted.
Parts without(const Parts& parts, const Parts& others) {
  Parts rest;
  std::set_difference(parts.begin(), parts.end(), others.begin(), others.end(),
                      std::back_inserter(rest));
  return rest;
}

// The name in a part "column NAME TYPE ..." of read_parts(); empty for other parts. The names of a
// new store's columns contain no blanks.
std::string column_name(const std::string& part) {
  std::istringstream words(part);
  std::string kind;
  std::string name;
  words >> kind >> name;
  return kind == "column" ? name : "";
}

bool has_columns(StoreReader& store, const Table& wanted) {
  Parts present;
  if (!store.accept(read_columns(store.connection(), wanted.name, present))) return true;
  return std::all_of(wanted.parts.begin(), wanted.parts.end(), [&](const std::string& part) {
    const std::string name = column_name(part);
    return name.empty() || std::find(present.begin(), present.end(), name) != present.end();
  });
}

// Returns whether the table has all columns.
bool compare_parts(StoreReader& store, const Table& wanted, Table found) {
  if (!store.accept(read_parts(store.connection(), found))) return true;
  const Parts missing = without(wanted.parts, found.parts);
  const Parts extra = without(found.parts, wanted.parts);
  Finding& finding = store.findings().add(CORVAN_RULE("table-differs"), wanted.name);
  if (missing.empty() && extra.empty()) {
    finding.stored = found.sql;
    finding.derived = wanted.sql;
  } else {
    finding.stored = extra;
    finding.derived = missing;
  }
  return has_columns(store, wanted);
}

bool compare_tables(StoreReader& store, const Schema& wanted, const Schema& present) {
  bool has_all_columns = true;
  for (const Table& table : wanted.tables) {
    const Table* const found = present.table(table.name);
    if (found == nullptr) continue;  // a file that lacks a table is not accepted as a store
    if (is_same_statement(found->sql, table.sql)) continue;
    has_all_columns = compare_parts(store, table, *found) && has_all_columns;
  }
  for (const Table& table : present.tables) {
    if (wanted.table(table.name) == nullptr)
      store.findings().add(CORVAN_RULE("table-extra"), table.name);
  }
  return has_all_columns;
}

void add_index_finding(StoreReader& store, const IndexDifference& difference) {
  const Index& index = difference.index;
  const auto add = [&](const Rule& rule) -> Finding& {
    return store.findings().add(rule, index.name);
  };
  switch (difference.kind) {
    case IndexDifference::kMissing:
      add(CORVAN_RULE("index-missing")).set_repair(nullptr, index.sql);
      break;
    case IndexDifference::kDiffers:
      add(CORVAN_RULE("index-differs")).set_repair(difference.old_sql, index.sql);
      break;
    case IndexDifference::kOlder:
      add(CORVAN_RULE("index-older")).set_repair(index.sql, nullptr);
      break;
    case IndexDifference::kOther:
      add(CORVAN_RULE("index-extra")).stored = index.sql;
      break;
  }
}

void compare_indexes(StoreReader& store, const Schema& wanted, const Schema& present) {
  std::size_t kept = 0;
  for (const IndexDifference& difference : index_differences(wanted, present, kept)) {
    add_index_finding(store, difference);
  }
}

void find_triggers_and_views(StoreReader& store) {
  store.accept(store.connection().each_row(
      "select type,name,sql from sqlite_master where type in('trigger','view') order by name",
      [&store](const Row& row) {
        const std::string name = fmt::format("{} {}", row.text(0), row.text(1));
        store.findings().add(CORVAN_RULE("schema-extra"), name).stored = row.text(2);
      }));
}

// Reads the largest ids that SQLite has assigned to messages: one, unless something is wrong.
int read_sequence(const Connection& connection, std::vector<Json>& values) {
  return connection.each_row(
      fmt::format("select seq from sqlite_sequence where name={}", kNameOfMessages),
      [&values](const Row& row) {
        const bool is_number = row.type(0) == SQLITE_INTEGER;
        values.push_back(is_number ? Json(row.int64(0)) : Json(row.text(0)));
      });
}

}  // namespace

bool check_schema(StoreReader& store) {
  bool has_all_columns = true;
  Schema present;
  if (store.accept(read_schema(store.connection(), present))) {
    const Schema wanted = new_schema();
    has_all_columns = compare_tables(store, wanted, present);
    compare_indexes(store, wanted, present);
  }
  find_triggers_and_views(store);
  return has_all_columns;
}

void check_sequence(StoreReader& store, int64_t largest_id) {
  std::vector<Json> stored;
  // Without sqlite_sequence, t_message lacks AUTOINCREMENT: the finding "table-differs".
  if (read_sequence(store.connection(), stored) != SQLITE_DONE) return;
  if (stored.empty() && largest_id == 0) return;
  int64_t largest_used = largest_id;
  for (const Json& value : stored) {
    if (value.is_number()) largest_used = std::max(largest_used, value.get<int64_t>());
  }
  if (stored.size() == 1 && stored[0] == largest_used) return;
  Json value;
  if (stored.size() == 1) value = stored[0];
  if (stored.size() > 1) value = stored;
  store.findings()
      .add(CORVAN_RULE("sequence-behind"), "sqlite_sequence")
      .set_repair(value, largest_used);
}

}  // namespace corvan_tool
