#include "tools/store/failed_commit.h"

#include <sqlite3.h>

#include "tools/store/connection.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

// Setting the version to its present value writes a page without changing any content.
int write_without_effect(const Connection& connection) {
  std::string version;
  const int rc = connection.each_row("pragma user_version",
                                     [&version](const Row& row) { version = row.text(0); });
  return rc == SQLITE_DONE ? connection.run("pragma user_version=" + version) : rc;
}

}  // namespace

bool may_have_stored(int code) {
  const int kind = code & 0xff;
  const bool is_certain = kind == SQLITE_BUSY || kind == SQLITE_LOCKED || kind == SQLITE_FULL ||
                          code == SQLITE_IOERR_WRITE;
  return !is_certain;
}

CommitOutcome settle_failed_commit(const std::string& file,
                                   const std::function<bool(const Connection&)>& is_there) {
  const Connection connection(file);
  if (connection.run("begin immediate") != SQLITE_DONE) return CommitOutcome::kUnknown;
  bool found = false;
  try {
    found = is_there(connection);
  } catch (const ToolError&) {
    return CommitOutcome::kUnknown;
  }
  if (write_without_effect(connection) != SQLITE_DONE) return CommitOutcome::kUnknown;
  if (connection.run("commit") != SQLITE_DONE) return CommitOutcome::kUnknown;
  return found ? CommitOutcome::kEverything : CommitOutcome::kNothing;
}

}  // namespace corvan_tool
