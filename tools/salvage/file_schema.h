// The schema of a damaged file, as far as it can be read.

#ifndef TOOLS_SALVAGE_FILE_SCHEMA_H_
#define TOOLS_SALVAGE_FILE_SCHEMA_H_

#include <string>
#include <vector>

#include "tools/salvage/known_schema.h"
#include "tools/salvage/record_reader.h"
#include "tools/salvage/tree_walk.h"

namespace corvan_tool {

struct FileSchema {
  std::vector<Tree> trees;
  // Tables, indexes, views and triggers that are not part of a store, as "table other".
  std::vector<std::string> foreign;
  bool is_whole = false;  // every row of the schema was read
};

FileSchema read_file_schema(const DamagedFile& file, const KnownSchema& known,
                            RecordReader& records, TreeWalk& walk);

// The columns of a file's table that follow those of a new store.
std::vector<std::string> columns_added(const KnownTable& known, const Tree& tree);

// The columns of the table that a statement of the file creates; none if it does not create a
// table. The statement is not trusted: no query in it is run.
std::vector<std::string> columns_made_by(const std::string& sql);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_FILE_SCHEMA_H_
