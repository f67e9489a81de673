// The new store that salvaged rows are written to.

#ifndef TOOLS_SALVAGE_RESCUE_RESCUED_STORE_H_
#define TOOLS_SALVAGE_RESCUE_RESCUED_STORE_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/salvage/coverage.h"
#include "tools/salvage/file/record.h"
#include "tools/salvage/known_schema.h"
#include "tools/salvage/rescue/doubt.h"
#include "tools/salvage/rescue/losses.h"
#include "tools/salvage/rescue/rescue_file.h"

namespace corvan_tool {

// A row found on a page.
struct FoundRow {
  std::int64_t id = 0;
  const std::vector<Value>* values = nullptr;  // of its table's shape
  Doubt doubt = Doubt::kNone;
  bool is_reached = false;  // its table's tree leads to the page
  bool is_in_log = false;   // the page is from the log
};

// Throws ToolError if a file cannot be written.
class RescuedStore {
 public:
  // Creates an empty store in `folder`. Errors call it `name`.
  RescuedStore(const KnownSchema& schema, const std::string& folder, const std::string& name);
  ~RescuedStore();
  RescuedStore(const RescuedStore&) = delete;
  RescuedStore& operator=(const RescuedStore&) = delete;

  // Adds a row. Rows of pages that a tree leads to must come before all others; otherwise the order
  // does not matter.
  void add(std::size_t table, const FoundRow& row);

  // Notes that an index or a page names a row id. If the row is never added, it counts as lost,
  // unless the tree was read where the row would be.
  void name(std::size_t table, std::int64_t row_id);
  // The same for an index entry, whose values are kept: a lost conversation can be made from them.
  void name(const KnownIndex& index, const std::vector<Value>& values);

  // Notes the largest message id assigned so far. If called several times, the largest one counts.
  void set_sequence(std::int64_t largest_id);

  // Settles doubtful rows, counts losses, makes rows from other data, and finishes the file.
  // Returns a result for each table. `is_bounded` is false if commits are lost, so that the number
  // of lost rows has no upper bound; lost_at_most is then not set.
  std::vector<TableResult> finish(const Coverage& coverage, bool with_doubtful, bool is_bounded);

  // After finish(): the largest message id assigned so far; nothing if there is none.
  std::optional<std::int64_t> sequence() const { return sequence_; }

 private:
  struct RowStatements;
  struct Statements {
    std::vector<std::unique_ptr<RowStatements>> tables;
    std::vector<std::unique_ptr<RowStatement>> indexes;  // null if only row ids are kept
  };

  void prepare_file();
  void prepare_statements();
  std::vector<const Value*> column_values(std::size_t table, const FoundRow& row) const;
  void add_doubtful(std::size_t table, const FoundRow& row, Doubt doubt);
  bool has_version(std::size_t table, std::int64_t id);
  void settle_conflict(std::size_t table, const FoundRow& row);
  std::int64_t find_conflicting(std::size_t table, const FoundRow& row);
  void make_rows(const Coverage& coverage);
  void write_sequence(std::int64_t largest_known_id);
  void close_file();

  const KnownSchema& schema_;
  std::unique_ptr<RescueFile> file_;           // null once the file is finished
  std::vector<std::string> index_statements_;  // indexes are created last, which is faster
  std::string version_;
  Statements statements_;
  std::vector<TableResult> results_;
  std::vector<bool> has_versions_;  // tables with rows of Doubt::kVersions
  std::optional<std::int64_t> sequence_;
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_RESCUE_RESCUED_STORE_H_
