// What the commands that change a store's own file have in common.

#ifndef TOOLS_STORE_TRANSACTION_H_
#define TOOLS_STORE_TRANSACTION_H_

#include <sqlite3.h>

#include <string>
#include <utility>

#include "tools/connection.h"
#include "tools/tool_error.h"

namespace corvan_tool {

// Why a statement on a store's own file has failed: SQLite's words, what became of the store, and
// what the user can do where that is known.
inline std::string failure_text(const Connection& connection, int rc, const std::string& outcome) {
  switch (rc & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return std::string("in use by another process (") + sqlite3_errstr(rc & 0xff) + "); " +
             outcome + "; try again while the client rests";
    case SQLITE_READONLY:
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
      return connection.error() + "; " + outcome + "; make the file and its folder writable";
    case SQLITE_FULL:
      return connection.error() + "; " + outcome +
             "; make room in the store's folder and in the one for temporary files "
             "(SQLITE_TMPDIR, TMPDIR)";
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return connection.error() + "; " + outcome + "; see 'corvan check' and 'corvan salvage'";
    default:
      return connection.error() + "; " + outcome;
  }
}

// One transaction that changes a store's file, or leaves it as it was. Nobody else writes while it
// is open. What is not committed is taken back when the object goes.
class StoreTransaction {
 public:
  // `name` is the file's name in errors; `begin` is the statement that begins it. Throws ToolError
  // when it cannot begin, for a lock that is held for two seconds say.
  StoreTransaction(const std::string& file, std::string name, const std::string& begin)
      : connection_(file), name_(std::move(name)) {
    // As the library does: no rests of messages where something was.
    require(connection_.run("pragma secure_delete=on"));
    require(connection_.run(begin));
  }

  const Connection& connection() const { return connection_; }
  const std::string& name() const { return name_; }

  // Throws ToolError unless `rc` is SQLITE_DONE; `what` was at work, when it is not empty.
  void require(int rc, const std::string& what = "") const {
    if (rc == SQLITE_DONE) return;
    throw ToolError(name_ + ": " + (what.empty() ? "" : what + ": ") +
                    failure_text(connection_, rc, "nothing was changed"));
  }

  void commit() const { require(connection_.run("commit")); }

 private:
  const Connection connection_;
  const std::string name_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_TRANSACTION_H_
