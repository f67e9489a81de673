#include "tools/salvage/leaf_reader.h"

#include <algorithm>

#include "tools/salvage/file/record.h"

namespace corvan_tool {

LeafReader::LeafReader(const DamagedFile& file, const KnownSchema& schema, RecordReader& records,
                       Coverage& coverage, RescuedStore& store)
    : file_(file), schema_(schema), records_(records), coverage_(coverage), store_(store) {}

bool LeafReader::read_leaf(std::size_t table, const Leaf& leaf) {
  const auto belongs = [&](const Cell& cell) {
    return is_within(cell.key, leaf.keys) &&
           starts_with_shape(leaf.bytes, cell, schema_.tables[table].shape, Match::kLoose,
                             kAnyNumber);
  };
  const std::vector<Cell>& cells = leaf.page.cells;
  if (!cells.empty() && std::none_of(cells.begin(), cells.end(), belongs)) return false;
  add_rows(table, leaf, Origin::kTree, Doubt::kNone);
  return true;
}

void LeafReader::read_unreached_leaf(std::size_t table, const Leaf& leaf, Doubt doubt) {
  add_rows(table, leaf, Origin::kUnreached, doubt);
}

void LeafReader::add_rows(std::size_t table, const Leaf& leaf, Origin origin, Doubt doubt) {
  const std::vector<Cell>& cells = leaf.page.cells;
  if (table == schema_.sequences) {
    for (const Cell& cell : cells) read_sequence(held_part(leaf.bytes, cell));
    return;
  }
  const std::vector<bool> is_in_order = keys_in_order(cells);
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const bool is_misplaced = doubt == Doubt::kNone && !is_in_order[i];
    add_row(table, leaf, cells[i], origin, is_misplaced ? Doubt::kPlace : doubt);
  }
}

void LeafReader::add_row(std::size_t table, const Leaf& leaf, const Cell& cell, Origin origin,
                         Doubt doubt) {
  FoundRow row;
  row.id = cell.key;
  row.is_reached = origin == Origin::kTree;
  row.is_in_log = leaf.number != 0 && file_.is_in_log(leaf.number);
  row.doubt = doubt;
  // If the tree had been read at this id, it would have led to the row.
  if (doubt == Doubt::kNone && !row.is_reached && !coverage_.tables[table].missing.has(cell.key)) {
    row.doubt = Doubt::kUnreached;
  }
  if (!read_row(table, leaf, cell, origin)) {
    if (row.doubt == Doubt::kNone || row.is_reached) lose_row(table, cell);
    return;
  }
  row.values = &values_;
  if (row.doubt == Doubt::kNone) row.doubt = doubt_about(schema_.tables[table], row.id, values_);
  store_.add(table, row);
}

// Reads a row into values_, without columns that were added to the table.
bool LeafReader::read_row(std::size_t table, const Leaf& leaf, const Cell& cell, Origin origin) {
  const std::string& shape = schema_.tables[table].shape;
  const std::size_t added =
      origin == Origin::kTree ? kAnyNumber : coverage_.tables[table].added_columns;
  // The overflow pages of a lost commit's row may have changed since.
  const bool may_continue = leaf.number != 0;
  const bool is_read = (may_continue || cell.continuation == 0) &&
                       starts_with_shape(leaf.bytes, cell, shape, Match::kLoose, added) &&
                       records_.read(leaf.bytes, cell, origin, record_) &&
                       parse_record(record_, record_.size(), values_);
  if (is_read) values_.resize(shape.size());
  return is_read;
}

void LeafReader::lose_row(std::size_t table, const Cell& cell) {
  store_.name(table, cell.key);
  coverage_.tables[table].is_whole = false;
  if (cell.key > kAllIds.first) coverage_.tables[table].missing.add({cell.key - 1, cell.key});
}

void LeafReader::read_sequence(std::string_view record) {
  std::vector<Value> values;
  if (!parse_record(record, record.size(), values) ||
      !has_shape(values, schema_.tables[schema_.sequences].shape, Match::kExact)) {
    return;
  }
  const bool is_of_messages = values[0].bytes == schema_.tables[schema_.messages].name;
  if (is_of_messages && values[1].integer >= 0) store_.set_sequence(values[1].integer);
}

bool LeafReader::read_entries(const Page& page, std::string_view bytes, const KnownIndex* index) {
  bool all = true;
  std::string record;
  std::vector<Value> values;
  for (const Cell& cell : page.cells) {
    const bool is_read = records_.read(bytes, cell, Origin::kTree, record) &&
                         parse_record(record, record.size(), values);
    if (index == nullptr) continue;
    if (!is_read || values.size() != index->shape.size() || values.back().kind != Value::kInteger) {
      all = false;
    } else if (has_shape(values, index->shape, Match::kExact)) {
      store_.name(*index, values);
    } else {
      store_.name(index->table, values.back().integer);
    }
  }
  return all;
}

}  // namespace corvan_tool
