// A transaction of a command that changes a store's own file.

#ifndef TOOLS_STORE_TRANSACTION_H_
#define TOOLS_STORE_TRANSACTION_H_

#include <functional>
#include <memory>
#include <string>

#include "tools/store/connection.h"

namespace corvan_tool {

// One transaction on a store's file. No other process can write while it is open. The destructor
// rolls back what was not committed.
class StoreTransaction {
 public:
  // `name` is the file's name in errors; `begin` is the statement that begins the transaction.
  // Throws ToolError if that fails, for example because another process holds a lock for two
  // seconds.
  StoreTransaction(const std::string& file, std::string name, const std::string& begin);

  const Connection& connection() const { return *connection_; }
  const std::string& name() const { return name_; }

  // Throws ToolError unless `rc` is SQLITE_DONE. `what`, if not empty, is named in the error.
  void require(int rc, const std::string& what = "") const;

  // Commits, and closes connection(). Returns an empty text, or, if the commit failed although the
  // changes are in the store, the text of the error with which the command must end. `is_made` is
  // called after a failure with a new connection; it returns whether the changes are there. Throws
  // ToolError if they are not there, or if that is unknown.
  std::string commit(const std::function<bool(const Connection&)>& is_made);

 private:
  const std::string file_;
  const std::string name_;
  std::unique_ptr<const Connection> connection_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_TRANSACTION_H_
