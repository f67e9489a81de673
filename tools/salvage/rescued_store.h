// The store that salvaged rows come into.

#ifndef TOOLS_SALVAGE_RESCUED_STORE_H_
#define TOOLS_SALVAGE_RESCUED_STORE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tools/salvage/id_ranges.h"
#include "tools/salvage/known_schema.h"
#include "tools/store/connection.h"
#include "tools/store/pending_output.h"

namespace corvan_tool {

// A row as a page has it.
struct FoundRow {
  std::int64_t id = 0;
  const std::vector<Value>* values = nullptr;  // of its table's shape
  Doubt doubt = Doubt::kNone;
  bool is_reached = false;  // the tree of its table leads to its page
  bool is_in_log = false;   // its page was taken from the log
};

// What is known about a table before its losses are counted.
struct TableState {
  bool is_whole = false;       // every page of its tree was read without a fault
  bool has_all_names = false;  // and every page of an index with all its rows
  IdRanges missing;            // ids that were on pages that cannot be read
};

// What came of a table's rows.
struct TableResult {
  std::int64_t recovered = 0;
  std::int64_t from_log = 0;  // of them, from pages in the log
  std::int64_t lost = 0;      // at least
  std::optional<std::int64_t> lost_at_most;
  std::array<std::int64_t, kDoubts> doubtful = {};
  std::int64_t taken = 0;  // doubtful rows that were taken all the same
  std::int64_t made = 0;   // rows made from what else is known

  std::int64_t all_doubtful() const;
};

// Rows are given to it in any order, those of reached pages before the others. Throws ToolError
// when a file cannot be written.
class SalvageStore {
 public:
  // Makes an empty store in `folder`, which is called `name` in errors.
  SalvageStore(const SalvageSchema& schema, const std::string& folder, std::string name);
  ~SalvageStore();

  void add(std::size_t table, const FoundRow& row);

  // An index or a page says that there was a row of this id. It is lost when none was added in the
  // end, unless the tree was read where it would be.
  void name(std::size_t table, std::int64_t row_id);
  // The same of an entry of an index.
  void name(const SalvageIndex& index, const std::vector<Value>& values);

  // The largest message id given so far, as the damaged file has it; several calls mean the
  // largest.
  void set_sequence(std::int64_t largest_id);

  // Settles what is doubtful, makes the rows that can be made, and finishes the file. `states` has
  // one entry a table, as the result. After a loss that has no bound the result has none either.
  std::vector<TableResult> finish(const std::vector<TableState>& states, bool with_doubtful,
                                  bool is_bounded);

  // After finish(): the largest message id given so far; nothing when there was none.
  std::optional<std::int64_t> sequence() const { return sequence_; }

 private:
  class Statement;
  struct Tables;

  [[noreturn]] void fail(const std::string& why) const;
  void run(const std::string& sql) const;
  std::int64_t number(const std::string& sql) const;
  void add_doubtful(std::size_t table, const FoundRow& row, Doubt doubt);
  void settle_conflict(std::size_t table, const FoundRow& row);
  void settle_doubtful(std::size_t table, const TableState& state);
  void forget_false_names(std::size_t table, const TableState& state) const;
  std::int64_t largest_named() const;
  std::int64_t count_lost(std::size_t table) const;
  void count(std::size_t table, const TableState& state, TableResult& result);
  std::optional<std::int64_t> lost_at_most(std::size_t table, const TableState& state) const;
  std::int64_t take_doubtful(std::size_t table);
  std::int64_t make_sessions(const TableState& state, std::int64_t& lost);
  std::int64_t known_largest_id() const;
  std::int64_t make_version();
  void write_sequence();
  void close_file();

  const SalvageSchema& schema_;
  const std::string name_;
  std::unique_ptr<Connection> connection_;
  std::vector<std::string> index_statements_;
  std::string version_;
  std::unique_ptr<Tables> tables_;
  std::vector<TableResult> results_;
  std::vector<bool> has_versions_;  // tables with rows of kVersions
  std::optional<std::int64_t> sequence_;
  bool is_bounded_ = true;  // as finish() was told
};

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_RESCUED_STORE_H_
