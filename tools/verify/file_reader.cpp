#include "tools/verify/file_reader.h"

#include "tools/store/sqlite_errors.h"
#include "tools/ui/error.h"

namespace corvan_tool {

bool FileReader::accept(int rc) {
  if (rc == SQLITE_DONE) return true;
  if (!is_damage(rc)) throw ToolError(name_ + ": " + connection_.error());
  add_damage(connection_.error());
  return false;
}

void FileReader::add_damage(const std::string& detail) {
  is_damaged_ = true;
  findings_.add(rule("file-damaged"), "").stored = detail;
}

}  // namespace corvan_tool
