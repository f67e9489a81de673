// Selects the conversations that an export contains.

#ifndef TOOLS_EXPORT_SELECTION_H_
#define TOOLS_EXPORT_SELECTION_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "db/cv_db_records.h"
#include "tools/store/snapshot.h"

namespace corvan_tool {

// A snapshot of a store, with the conversations that are selected.
class ExportSource {
 public:
  // Selects everything if there are no ids and no types. Throws ToolError if the store cannot be
  // read, if one of its tables lacks a column, or if an id names no conversation of these types.
  ExportSource(const std::string& folder, const std::vector<std::string>& session_ids,
               const std::vector<Corvan::SessionType>& types);

  const Snapshot& store() const { return store_; }

  // Whether only some conversations are selected.
  bool is_partial() const { return is_partial_; }

  // An SQL condition for t_session and t_message. It compares the bytes of ids, whatever collation
  // the columns have in this file.
  const std::string& condition() const { return condition_; }

  // The result of a query that returns one number. All functions from here on throw ToolError if
  // the store cannot be read.
  int64_t number(const std::string& sql) const;

  // The name of a table's row ids in SQL. Throws ToolError if they have none.
  std::string row_id(const std::string& table) const;

  // The number of selected rows, counted in the table itself: in a damaged store, an index may lack
  // rows.
  int64_t rows_of(const std::string& table) const;

  // Throws ToolError unless `found`, the number of rows found through an index, equals `all`, the
  // number of rows in the table.
  void require_all(const std::string& table, int64_t found, int64_t all) const;

 private:
  void require_columns() const;
  void require_conversation(const std::string& id) const;

  const Snapshot store_;
  const bool is_partial_;
  const std::string type_condition_;
  const std::string condition_;
};

// The value of a column that should hold a code.
struct Code {
  std::optional<int32_t> number;
  std::string text;  // the value, if it is not a whole number of 32 bits
};
Code code_at(const Row& row, int place);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_SELECTION_H_
