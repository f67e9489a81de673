// What an export takes from a store.

#ifndef TOOLS_EXPORT_SELECTION_H_
#define TOOLS_EXPORT_SELECTION_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "db/cv_db_records.h"
#include "tools/store/snapshot.h"

namespace corvan_tool {

// A copy of a store, and which of its conversations are wanted.
class ExportSource {
 public:
  // Without ids and kinds everything is wanted. Throws ToolError when the store cannot be read, one
  // of its tables lacks a column, or an id names no conversation of these kinds.
  ExportSource(const std::string& folder, const std::vector<std::string>& session_ids,
               const std::vector<Corvan::SessionType>& kinds);

  const Snapshot& store() const { return store_; }

  // Whether something is left out.
  bool is_partial() const { return is_partial_; }

  // An SQL condition on the columns session_id and session_type of either table. Ids are compared
  // by their bytes, whatever collation the file's columns have.
  const std::string& condition() const { return condition_; }

  // The only number that a query gives.
  int64_t number(const std::string& sql) const;

  // The name by which SQL reads a table's row ids. Throws ToolError when there is none.
  std::string row_id(const std::string& table) const;

  // The number of a table's rows that are wanted, counted in the table itself: an index of a
  // damaged store may lack some.
  int64_t rows_of(const std::string& table) const;

  // Throws ToolError unless `all` of these rows were found, each once.
  void require_all(const std::string& table, int64_t found, int64_t all) const;

 private:
  void require_columns() const;
  void require_conversations(const std::vector<std::string>& session_ids) const;

  const Snapshot store_;
  const bool is_partial_;
  std::string kind_condition_;
  std::string condition_;
};

// What a row holds in the place of a code.
struct Code {
  std::optional<int32_t> number;
  std::string text;  // of a value that is no whole number of 32 bits
};
Code code_at(sqlite3_stmt* row, int place);

// A text as SQL takes it.
std::string quoted_text(const std::string& text);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_SELECTION_H_
