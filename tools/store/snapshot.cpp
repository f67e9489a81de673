#include "tools/store/snapshot.h"

#include "tools/store/sqlite_errors.h"
#include "tools/store/store_state.h"
#include "tools/ui/error.h"

namespace corvan_tool {

// The store is examined before the connection opens: SQLite moves the log of the copy into its file
// when the last connection closes.
Snapshot::Snapshot(const std::string& folder, Damage damage)
    : name_(store_file(folder)), copy_(folder), damage_(examine(damage)), connection_(file()) {}

void Snapshot::require(int rc) const {
  if (rc != SQLITE_DONE) throw ToolError(name_ + ": " + connection_.error() + advice_after(rc));
}

std::string Snapshot::examine(Damage damage) const {
  if (damage == kAccepted) return damage_of_store(file(), name_);
  require_store(file(), name_, false);
  return "";
}

}  // namespace corvan_tool
