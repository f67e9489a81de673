#include "tools/verify/row_reader.h"

#include "tools/store/sqlite_errors.h"
#include "tools/ui/error.h"

namespace corvan_tool {

void RowReader::take_result(const std::string& table, int rc) {
  if (rc == SQLITE_DONE) return;
  if (!is_damage(rc) && rc != SQLITE_ERROR) {
    throw ToolError(name_ + ": " + connection_.error());
  }
  // The first failure explains the others.
  if (is_complete_) findings_.add(rule("rows-unread"), table).stored = connection_.error();
  is_complete_ = false;
}

}  // namespace corvan_tool
