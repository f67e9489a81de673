// How much of a store's tables and indexes has been read.

#ifndef TOOLS_SALVAGE_COVERAGE_H_
#define TOOLS_SALVAGE_COVERAGE_H_

#include <cstddef>
#include <vector>

#include "tools/salvage/id_ranges.h"

namespace corvan_tool {

struct TableCoverage {
  bool is_whole = false;          // every page of the tree was read without a fault
  bool has_all_names = false;     // every page of an index that has all rows was read
  IdRanges missing;               // ids that were on unreadable pages
  std::size_t added_columns = 0;  // that the file's table has after those of a new store
};

// By the places of tables and indexes in KnownSchema.
struct Coverage {
  Coverage(std::size_t table_count, std::size_t index_count)
      : tables(table_count), index_is_whole(index_count, false) {}

  std::vector<TableCoverage> tables;
  std::vector<bool> index_is_whole;
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_COVERAGE_H_
