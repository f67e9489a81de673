#include "tools/salvage/recognise.h"

#include <algorithm>

namespace corvan_tool {

namespace {

bool is_of(const Value& value, char shape, Match match) {
  if (shape == kRowIdShape) return value.kind == Value::kNull;
  if (match == Match::kLoose) return true;
  return value.kind == (shape == kTextShape ? Value::kText : Value::kInteger);
}

}  // namespace

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

std::optional<std::size_t> table_of_page(const Page& page, std::string_view bytes,
                                         const KnownSchema& schema, const Coverage& coverage) {
  std::optional<std::size_t> best;
  std::ptrdiff_t most = 0;
  for (std::size_t table = 0; table < schema.tables.size(); ++table) {
    // Skip t_version: a single text column matches almost anything.
    if (table == schema.versions) continue;
    const std::ptrdiff_t count =
        std::count_if(page.cells.begin(), page.cells.end(), [&](const Cell& cell) {
          return starts_with_shape(bytes, cell, schema.tables[table].shape, Match::kExact,
                                   coverage.tables[table].added_columns);
        });
    if (count <= most) continue;
    most = count;
    best = table;
  }
  return best;
}

const KnownIndex* index_of_page(const Page& page, std::string_view bytes, const KnownSchema& schema,
                                const Coverage& coverage) {
  if (page.cells.empty()) return nullptr;
  const auto is_needed = [&](const KnownIndex& index) {
    return !coverage.index_is_whole[schema.place_of(index)] &&
           !coverage.tables[index.table].is_whole;
  };
  const auto found =
      std::find_if(schema.indexes.begin(), schema.indexes.end(), [&](const KnownIndex& index) {
        return index.has_unique_shape && is_needed(index) &&
               starts_with_shape(bytes, page.cells.front(), index.shape, Match::kExact, 0);
      });
  return found == schema.indexes.end() ? nullptr : &*found;
}

}  // namespace corvan_tool
