#include "tools/salvage/file_schema.h"

#include <sqlite3.h>

#include <algorithm>
#include <string_view>

#include "tools/salvage/file/record.h"
#include "tools/store/connection.h"
#include "tools/store/schema.h"

namespace corvan_tool {

namespace {

constexpr const char* kSchemaShape = "tttit";  // type, name, tbl_name, rootpage, sql

bool is_known(const std::string& name, const KnownSchema& known) {
  const auto has_name = [&name](const auto& one) { return one.name == name; };
  return name.rfind("sqlite_", 0) == 0 ||
         std::any_of(known.tables.begin(), known.tables.end(), has_name) ||
         std::any_of(known.indexes.begin(), known.indexes.end(), has_name);
}

void add_entry(const std::vector<Value>& values, PageNumber page_count, const KnownSchema& known,
               FileSchema& schema) {
  const std::string type(values[0].bytes);
  const std::string name(values[1].bytes);
  if (!is_known(name, known)) schema.foreign.push_back(type + " " + name);
  if (type != "index" && type != "table") return;
  const std::int64_t root = values[3].integer;
  const bool is_page = root > 0 && root <= page_count;
  schema.trees.push_back({is_page ? static_cast<PageNumber>(root) : 0, type == "index", name,
                          std::string(values[4].bytes)});
}

bool is_schema_row(const std::vector<Value>& values) {
  return has_shape(values, kSchemaShape, Match::kLoose) && values[3].kind == Value::kInteger;
}

}  // namespace

FileSchema read_file_schema(const DamagedFile& file, const KnownSchema& known,
                            RecordReader& records, TreeWalk& walk) {
  FileSchema schema;
  if (file.page_count() == 0) return schema;
  bool has_all_rows = true;
  const auto read = [&](const Leaf& leaf) {
    std::string record;
    std::vector<Value> values;
    for (const Cell& cell : leaf.page.cells) {
      const bool is_read = records.read(leaf.bytes, cell, Origin::kTree, record) &&
                           parse_record(record, record.size(), values) && is_schema_row(values);
      if (is_read) {
        add_entry(values, file.page_count(), known, schema);
      } else {
        has_all_rows = false;
      }
    }
    return true;
  };
  TableCoverage coverage;
  walk.follow_table({1, false, "the schema", ""}, coverage, read);
  schema.is_whole = coverage.is_whole && has_all_rows;
  return schema;
}

std::vector<std::string> columns_added(const KnownTable& known, const Tree& tree) {
  if (is_same_statement(known.sql, tree.sql)) return {};
  std::vector<std::string> columns = columns_made_by(tree.sql);
  const std::size_t count = std::min(known.shape.size(), columns.size());
  columns.erase(columns.begin(), columns.begin() + static_cast<std::ptrdiff_t>(count));
  return columns;
}

std::vector<std::string> columns_made_by(const std::string& sql) {
  // SQLite stores each statement with this beginning.
  constexpr std::string_view kBegin = "CREATE TABLE ";
  if (sql.compare(0, kBegin.size(), kBegin) != 0) return {};
  const Connection scratch(":memory:");
  sqlite3_set_authorizer(
      scratch.handle(),
      [](void*, int action, const char*, const char*, const char*, const char*) {
        return action == SQLITE_SELECT ? SQLITE_DENY : SQLITE_OK;
      },
      nullptr);
  if (scratch.run(sql) != SQLITE_DONE) return {};
  sqlite3_set_authorizer(scratch.handle(), nullptr, nullptr);
  std::vector<std::string> columns;
  scratch.each_row(
      "select c.name from sqlite_master as t,pragma_table_info(t.name) as c where t.type='table' "
      "and t.name not like 'sqlite\\_%' escape '\\' order by c.cid",
      [&columns](const Row& row) { columns.push_back(row.text(0)); });
  return columns;
}

}  // namespace corvan_tool
