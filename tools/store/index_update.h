// Brings the indexes of a store up to those of a new store.

#ifndef TOOLS_STORE_INDEX_UPDATE_H_
#define TOOLS_STORE_INDEX_UPDATE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/store/schema.h"

namespace corvan_tool {

class Connection;
class StoreTransaction;

struct IndexChange {
  enum Action { kCreate, kReplace, kDrop, kLeave };
  Action action = kCreate;
  Index index;                   // kDrop and kLeave: as it is in the file, otherwise the new one
  std::string old_sql;           // kReplace: the statement in the file
  double seconds = 0;            // kCreate and kReplace, once applied
  std::optional<int64_t> bytes;  // likewise; nothing if unknown

  bool creates() const { return action == kCreate || action == kReplace; }
  bool drops() const { return action == kDrop || action == kReplace; }
};

struct IndexPlan {
  std::vector<IndexChange> changes;
  std::size_t kept = 0;  // indexes that are as in a new store

  std::size_t count(IndexChange::Action action) const;
  // Whether all changes are kLeave.
  bool is_empty() const;
};

// Plans the changes that make the file's indexes those of `wanted`. Indexes that are not named like
// the store's own are left unless `drop_others`. Returns SQLITE_DONE, or the code of the failure.
int plan_indexes(const Connection& connection, const Schema& wanted, bool drop_others,
                 IndexPlan& plan);

// Drops and creates the indexes, all drops first, because they free pages. Throws ToolError if a
// step fails.
void apply_index_changes(const StoreTransaction& transaction, std::vector<IndexChange>& changes);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_INDEX_UPDATE_H_
