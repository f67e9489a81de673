#include "tools/verify/store_reader.h"

#include "tools/store/sqlite_errors.h"
#include "tools/ui/error.h"

namespace corvan_tool {

bool StoreReader::accept(int rc) {
  if (rc == SQLITE_DONE) return true;
  if (!is_damage(rc)) throw ToolError(name_ + ": " + connection_.error());
  add_damage(connection_.error());
  return false;
}

void StoreReader::add_damage(const std::string& detail) {
  is_damaged_ = true;
  findings_.add(CORVAN_RULE("file-damaged"), "").stored = detail;
}

void StoreReader::take_result(const std::string& table, int rc) {
  if (rc == SQLITE_DONE) return;
  if (!is_damage(rc) && rc != SQLITE_ERROR) {
    throw ToolError(name_ + ": " + connection_.error());
  }
  // Later failures have the same cause.
  if (is_complete_) findings_.add(CORVAN_RULE("rows-unread"), table).stored = connection_.error();
  is_complete_ = false;
}

}  // namespace corvan_tool
