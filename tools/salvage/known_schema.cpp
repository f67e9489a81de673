#include "tools/salvage/known_schema.h"

#include <algorithm>

#include "tools/store/new_store.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

char shape_of(const ColumnLayout& column) {
  if (column.is_row_id) return kRowIdShape;
  return column.type == "integer" ? kIntegerShape : kTextShape;
}

// In an index entry, an alias of the row id holds the row id itself.
char shape_in_index(const TableLayout& table, const std::string& name) {
  const auto column =
      std::find_if(table.columns.begin(), table.columns.end(),
                   [&name](const ColumnLayout& other) { return other.name == name; });
  const bool is_text = column != table.columns.end() && shape_of(*column) == kTextShape;
  return is_text ? kTextShape : kIntegerShape;
}

KnownIndex known_index(const TableLayout& table, const IndexLayout& layout, std::size_t place) {
  KnownIndex index;
  index.name = layout.name;
  index.sql = layout.sql;
  index.table = place;
  index.columns = layout.columns;
  index.has_all_rows = layout.has_all_rows;
  for (const std::string& column : layout.columns) index.shape += shape_in_index(table, column);
  index.shape += kIntegerShape;
  return index;
}

KnownTable known_table(const TableLayout& layout) {
  KnownTable table;
  table.name = layout.name;
  table.sql = layout.sql;
  for (const ColumnLayout& column : layout.columns) {
    table.shape += shape_of(column);
    if (!column.is_row_id) table.columns.push_back(column.name);
  }
  for (const IndexLayout& index : layout.indexes) {
    if (index.sql.empty()) table.unique = index.columns;
  }
  return table;
}

std::size_t place_of_table(const KnownSchema& schema, const std::string& name) {
  const auto found = std::find_if(schema.tables.begin(), schema.tables.end(),
                                  [&name](const KnownTable& table) { return table.name == name; });
  if (found == schema.tables.end()) throw ToolError("a new store's schema: no " + name);
  return static_cast<std::size_t>(found - schema.tables.begin());
}

void find_unique_shapes(std::vector<KnownIndex>& indexes) {
  for (KnownIndex& index : indexes) {
    index.has_unique_shape =
        std::none_of(indexes.begin(), indexes.end(), [&index](const KnownIndex& other) {
          return other.shape == index.shape && other.name != index.name;
        });
  }
}

bool is_of(const Value& value, char shape, Match match) {
  if (shape == kRowIdShape) return value.kind == Value::kNull;
  if (match == Match::kLoose) return true;
  return value.kind == (shape == kTextShape ? Value::kText : Value::kInteger);
}

}  // namespace

KnownSchema known_schema() {
  KnownSchema schema;
  for (const TableLayout& layout : new_store_layout()) {
    for (const IndexLayout& index : layout.indexes) {
      schema.indexes.push_back(known_index(layout, index, schema.tables.size()));
    }
    schema.tables.push_back(known_table(layout));
  }
  schema.messages = place_of_table(schema, "t_message");
  schema.sessions = place_of_table(schema, "t_session");
  schema.versions = place_of_table(schema, "t_version");
  schema.sequences = schema.tables.size();
  schema.tables.push_back({"sqlite_sequence", "", {"name", "seq"}, "ti", {}});
  find_unique_shapes(schema.indexes);
  return schema;
}

bool has_shape(const std::vector<Value>& values, const std::string& shape, Match match,
               std::size_t added) {
  return values.size() >= shape.size() && values.size() - shape.size() <= added &&
         std::equal(shape.begin(), shape.end(), values.begin(),
                    [match](char c, const Value& value) { return is_of(value, c, match); });
}

bool starts_with_shape(std::string_view page, const Cell& cell, const std::string& shape,
                       Match match, std::size_t added) {
  std::vector<Value> values;
  return parse_record(held_part(page, cell), cell.size, values) &&
         has_shape(values, shape, match, added);
}

}  // namespace corvan_tool
