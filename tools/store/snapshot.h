// A snapshot of a store for commands that only read.

#ifndef TOOLS_STORE_SNAPSHOT_H_
#define TOOLS_STORE_SNAPSHOT_H_

#include <string>

#include "tools/store/connection.h"
#include "tools/store/store_copy.h"
#include "tools/store/store_files.h"

namespace corvan_tool {

// A temporary copy of a store, with an open connection to it. The copy is not opened through the
// library, which would change message states and delete a damaged file.
class Snapshot {
 public:
  enum Damage { kRefused, kAccepted };

  // Throws ToolError if there is no readable store in `folder`. A damaged one is accepted if
  // `damage` says so; then damage() is not empty.
  explicit Snapshot(const std::string& folder, Damage damage = kRefused);

  // The path of the original store's file, for texts.
  const std::string& name() const { return name_; }
  // The folder of the copied file. Ends with a slash.
  const std::string& folder() const { return copy_.folder(); }
  // The path of the copied file.
  std::string file() const { return store_file(copy_.folder()); }
  const StoreSizes& sizes() const { return copy_.sizes(); }
  const Connection& connection() const { return connection_; }

  // SQLite's text for the damage; empty for a store that can be opened.
  const std::string& damage() const { return damage_; }

  // As Connection::each_row(). Throws ToolError if a row cannot be read.
  template <typename Read, typename... Arguments>
  void each_row(const std::string& sql, const Read& read, const Arguments&... arguments) const {
    require(connection_.each_row(sql, read, arguments...));
  }

  // Throws ToolError unless `rc`, the result of a statement on the connection, is SQLITE_DONE.
  void require(int rc) const;

 private:
  std::string examine(Damage damage) const;

  const std::string name_;
  const StoreCopy copy_;
  const std::string damage_;
  const Connection connection_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_SNAPSHOT_H_
