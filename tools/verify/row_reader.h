// Reading the rows of a store that may be damaged.

#ifndef TOOLS_VERIFY_ROW_READER_H_
#define TOOLS_VERIFY_ROW_READER_H_

#include <string>
#include <utility>

#include "tools/store/connection.h"
#include "tools/verify/findings.h"

namespace corvan_tool {

// The connection and the findings must live longer.
class RowReader {
 public:
  // `name` is the file's name in errors.
  RowReader(const Connection& connection, std::string name, Findings& findings)
      : connection_(connection), name_(std::move(name)), findings_(findings) {}

  // Calls `read` with each row of the query. If the rows of the table cannot all be read because of
  // damage or a missing column, that is the finding "rows-unread". Throws ToolError after any other
  // failure.
  template <typename Read>
  void each_row(const std::string& table, const std::string& sql, const Read& read) {
    take_result(table, connection_.each_row(sql, read));
  }

  // False after the first row that could not be read.
  bool is_complete() const { return is_complete_; }

  const Connection& connection() const { return connection_; }

 private:
  void take_result(const std::string& table, int rc);

  const Connection& connection_;
  const std::string name_;
  Findings& findings_;
  bool is_complete_ = true;
};

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_ROW_READER_H_
