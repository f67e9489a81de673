// What the commands that change a store's own file have in common.

#ifndef TOOLS_STORE_TRANSACTION_H_
#define TOOLS_STORE_TRANSACTION_H_

#include <functional>
#include <memory>
#include <string>

#include "tools/store/connection.h"
#include "tools/store/sqlite_errors.h"

namespace corvan_tool {

// One transaction that changes a store's file, or leaves it as it was. Nobody else writes while it
// is open. What is not committed is taken back when the object goes.
class StoreTransaction {
 public:
  // `name` is the file's name in errors; `begin` is the statement that begins it. Throws ToolError
  // when it cannot begin, for a lock that is held for two seconds say.
  StoreTransaction(const std::string& file, std::string name, const std::string& begin);

  const Connection& connection() const { return *connection_; }
  const std::string& name() const { return name_; }

  // Throws ToolError unless `rc` is SQLITE_DONE; `what` was at work, when it is not empty.
  void require(int rc, const std::string& what = "") const;

  // Commits. Returns an empty text, or, if the commit failed but the changes are in the store all
  // the same, the error to end the command with. `is_made` must tell whether the changes are there;
  // it is called after a failure, with a new connection. Throws ToolError when the changes are not
  // there, or when that cannot be found out. There is no connection() afterwards.
  std::string commit(const std::function<bool(const Connection&)>& is_made);

 private:
  const std::string file_;
  const std::string name_;
  std::unique_ptr<const Connection> connection_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_TRANSACTION_H_
