// Recovers what can still be read from a damaged store into a new one:
//
//  1. Open the file and its write-ahead log. Committed pages of the log replace the file's
//     pages.                                                           file/damaged_file, file/wal
//  2. Make an empty store for the rows.                                rescue/rescued_store
//  3. Mark the pages that the file lists as free.                      page_map
//  4. Read the file's schema: the roots of its trees.                  file_schema
//  5. Follow the tree of each table as far as it leads, and add its rows. Note the row ids that are
//     on unreadable pages.                                             tree_walk, leaf_reader
//  6. Follow the indexes of the tables that were not read whole. Their entries name rows, which
//     are lost if they are not found.                                  tree_walk, leaf_reader
//  7. Look at every page that nothing leads to. Recognise rows and entries by the number and types
//     of their columns.                                                page_scan
//  8. Do the same with pages of the log that belong to lost commits. Their rows are doubtful.
//  9. Settle doubtful rows, count what is lost, and make lost conversations from index entries and
//     messages.                                                        rescue/losses
// 10. Give the new store its name if any row was recovered.
//
// No number in the file is trusted. Memory, time and output are bounded by the bytes that exist.

#ifndef TOOLS_SALVAGE_SALVAGE_H_
#define TOOLS_SALVAGE_SALVAGE_H_

#include <cstddef>
#include <string>
#include <vector>

#include "tools/salvage/coverage.h"
#include "tools/salvage/file/damaged_file.h"
#include "tools/salvage/file_schema.h"
#include "tools/salvage/known_schema.h"
#include "tools/salvage/leaf_reader.h"
#include "tools/salvage/page_map.h"
#include "tools/salvage/page_scan.h"
#include "tools/salvage/record_reader.h"
#include "tools/salvage/report.h"
#include "tools/salvage/rescue/rescued_store.h"
#include "tools/salvage/tree_walk.h"
#include "tools/store/pending_output.h"
#include "tools/ui/progress.h"
#include "tools/ui/units.h"

namespace corvan_tool {

struct SalvageOptions {
  std::string damaged;    // a store's folder, or its file under any name
  std::string folder;     // the new store's
  bool doubtful = false;  // take doubtful rows as well
  bool without_log = false;
  bool json = false;
};

// One run of salvage.
class Salvage {
 public:
  // Throws ToolError if the file cannot be opened or the new store cannot be made.
  explicit Salvage(const SalvageOptions& options);

  // Throws ToolError if the file changes meanwhile, or the new store cannot be written.
  SalvageReport run();

 private:
  void follow_tables();
  void follow_table(const Tree& tree, std::vector<bool>& is_found);
  void miss_table(std::size_t table);
  void follow_indexes();
  void follow_index(const Tree& tree);
  void require_unchanged() const;
  SalvageReport finish();
  void keep(SalvageReport& report);

  const Stopwatch stopwatch_;
  const SalvageOptions options_;
  const std::string path_;  // the damaged file's
  const DamagedFile file_;
  const KnownSchema known_;
  PendingOutput made_;
  RescuedStore store_;

  PageMap pages_;
  Progress progress_;
  Coverage coverage_;
  RecordReader records_;
  LeafReader rows_;
  TreeWalk trees_;
  PageScan scan_;
  FileSchema schema_;
  std::vector<std::string> left_out_;  // what is not part of a message store: "table other"
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_SALVAGE_H_
