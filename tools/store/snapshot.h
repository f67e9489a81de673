// A store's copy for commands that look with statements of their own.

#ifndef TOOLS_STORE_SNAPSHOT_H_
#define TOOLS_STORE_SNAPSHOT_H_

#include <sqlite3.h>

#include <string>

#include "tools/store/connection.h"
#include "tools/store/library_store.h"
#include "tools/store/sqlite_errors.h"
#include "tools/store/store_copy.h"
#include "tools/ui/error.h"

namespace corvan_tool {

// Nothing that opening with the library does is done to the copy: nothing is marked, nothing
// deleted.
class Snapshot {
 public:
  // Throws ToolError when there is no readable store in `folder`.
  explicit Snapshot(const std::string& folder)
      : name_(store_file(folder)),
        copy_(folder),
        connection_((require_store(file(), name_, false), file())) {}

  // The store's own file, for texts.
  const std::string& name() const { return name_; }
  // The copy's.
  std::string file() const { return store_file(copy_.folder()); }
  const Connection& connection() const { return connection_; }
  const StoreSizes& sizes() const { return copy_.sizes(); }

  // As Connection::each_row. Throws ToolError when a row cannot be read.
  template <typename Read, typename... Arguments>
  void each_row(const std::string& sql, const Read& read, const Arguments&... arguments) const {
    require(connection_.each_row(sql, read, arguments...));
  }

  // Throws ToolError unless `rc`, of a statement on the connection, is SQLITE_DONE.
  void require(int rc) const {
    if (rc != SQLITE_DONE) throw ToolError(name_ + ": " + connection_.error() + advice_after(rc));
  }

 private:
  const std::string name_;
  const StoreCopy copy_;
  const Connection connection_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_SNAPSHOT_H_
