// Reads a store that may be damaged: failures become findings.

#ifndef TOOLS_VERIFY_STORE_READER_H_
#define TOOLS_VERIFY_STORE_READER_H_

#include <string>
#include <utility>

#include "tools/store/connection.h"
#include "tools/verify/findings.h"

namespace corvan_tool {

// Each function throws ToolError if SQLite fails for another reason than damage or a missing
// column.
class StoreReader {
 public:
  // `name` is the store's name in errors. The connection and the findings must live longer.
  StoreReader(const Connection& connection, std::string name, Findings& findings)
      : connection_(connection), name_(std::move(name)), findings_(findings) {}

  // For statements about the file and its schema. Returns whether `rc`, the result of a statement,
  // is SQLITE_DONE. Damage is the finding "file-damaged".
  bool accept(int rc);
  void add_damage(const std::string& detail);
  bool is_damaged() const { return is_damaged_; }

  // Calls `read` with each row of the query. If not all rows of the table can be read, that is the
  // finding "rows-unread".
  template <typename Read>
  void each_row(const std::string& table, const std::string& sql, const Read& read) {
    take_result(table, connection_.each_row(sql, read));
  }
  // False after the first row that could not be read.
  bool is_complete() const { return is_complete_; }

  const Connection& connection() const { return connection_; }
  Findings& findings() { return findings_; }

 private:
  void take_result(const std::string& table, int rc);

  const Connection& connection_;
  const std::string name_;
  Findings& findings_;
  bool is_damaged_ = false;
  bool is_complete_ = true;
};

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_STORE_READER_H_
