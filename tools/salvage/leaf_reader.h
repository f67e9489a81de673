// Adds the rows and index entries of leaf pages to the new store.

#ifndef TOOLS_SALVAGE_LEAF_READER_H_
#define TOOLS_SALVAGE_LEAF_READER_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "tools/salvage/coverage.h"
#include "tools/salvage/known_schema.h"
#include "tools/salvage/record_reader.h"
#include "tools/salvage/rescue/rescued_store.h"
#include "tools/salvage/tree_walk.h"

namespace corvan_tool {

class LeafReader {
 public:
  // The arguments must live longer.
  LeafReader(const DamagedFile& file, const KnownSchema& schema, RecordReader& records,
             Coverage& coverage, RescuedStore& store);

  // Reads the rows of a leaf that the table's tree leads to. Returns false if the leaf is not of
  // this table, or of another place in its tree.
  bool read_leaf(std::size_t table, const Leaf& leaf);

  // Reads the rows of a leaf that was recognised by its shape. `doubt` applies to all of them.
  void read_unreached_leaf(std::size_t table, const Leaf& leaf, Doubt doubt);

  // Reads the entries of a page of an index. Returns whether all could be read. If `index` is null,
  // only marks the overflow pages as taken.
  bool read_entries(const Page& page, std::string_view bytes, const KnownIndex* index);

 private:
  void add_rows(std::size_t table, const Leaf& leaf, Origin origin, Doubt doubt);
  void add_row(std::size_t table, const Leaf& leaf, const Cell& cell, Origin origin, Doubt doubt);
  bool read_row(std::size_t table, const Leaf& leaf, const Cell& cell, Origin origin);
  void lose_row(std::size_t table, const Cell& cell);
  void read_sequence(std::string_view record);

  const DamagedFile& file_;
  const KnownSchema& schema_;
  RecordReader& records_;
  Coverage& coverage_;
  RescuedStore& store_;
  // The row that read_row() read last.
  std::string record_;
  std::vector<Value> values_;
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_LEAF_READER_H_
