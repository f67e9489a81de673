// One transaction that changes a store's file, or leaves it as it was.

#ifndef TOOLS_STORE_TRANSACTION_H_
#define TOOLS_STORE_TRANSACTION_H_

#include <sqlite3.h>

#include <string>
#include <utility>

#include "tools/connection.h"
#include "tools/tool_error.h"

namespace corvan_tool {

// Nobody else writes while it is open. What is not committed is taken back when the object goes.
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
    std::string why = connection_.error();
    if (rc == SQLITE_BUSY) why = "in use by another process (" + why + ")";
    if (!what.empty()) why = what + ": " + why;
    why += "; nothing was changed";
    if (rc == SQLITE_BUSY) why += "; try again while the client rests";
    if (rc == SQLITE_CORRUPT || rc == SQLITE_NOTADB)
      why += "; see 'corvan check' and 'corvan salvage'";
    throw ToolError(name_ + ": " + why);
  }

  void commit() const { require(connection_.run("commit")); }

 private:
  const Connection connection_;
  const std::string name_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_TRANSACTION_H_
