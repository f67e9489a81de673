#include "tools/store/index_update.h"

#include <algorithm>
#include <utility>

#include "tools/store/connection.h"
#include "tools/store/transaction.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

IndexChange::Action action_for(const IndexDifference& difference, bool drop_others) {
  switch (difference.kind) {
    case IndexDifference::kMissing:
      return IndexChange::kCreate;
    case IndexDifference::kDiffers:
      return IndexChange::kReplace;
    case IndexDifference::kOlder:
      return IndexChange::kDrop;
    case IndexDifference::kOther:
      break;
  }
  return drop_others ? IndexChange::kDrop : IndexChange::kLeave;
}

void run(const StoreTransaction& transaction, const Index& index, const std::string& sql) {
  transaction.require(transaction.connection().run(sql), "index " + index.name);
}

void create(const StoreTransaction& transaction, IndexChange& change) {
  const Stopwatch stopwatch;
  run(transaction, change.index, change.index.sql);
  change.seconds = stopwatch.seconds();
  change.bytes = stored_bytes(transaction.connection(), change.index.name);
}

}  // namespace

std::size_t IndexPlan::count(IndexChange::Action action) const {
  return static_cast<std::size_t>(
      std::count_if(changes.begin(), changes.end(),
                    [action](const IndexChange& change) { return change.action == action; }));
}

bool IndexPlan::is_empty() const {
  return count(IndexChange::kLeave) == changes.size();
}

int plan_indexes(const Connection& connection, const Schema& wanted, bool drop_others,
                 IndexPlan& plan) {
  Schema present;
  const int rc = read_schema(connection, present);
  for (IndexDifference& difference : index_differences(wanted, present, plan.kept)) {
    IndexChange change;
    change.action = action_for(difference, drop_others);
    change.index = std::move(difference.index);
    change.old_sql = std::move(difference.old_sql);
    plan.changes.push_back(std::move(change));
  }
  return rc;
}

void apply_index_changes(const StoreTransaction& transaction, std::vector<IndexChange>& changes) {
  for (const IndexChange& change : changes) {
    if (change.drops()) {
      run(transaction, change.index, "drop index " + quoted_name(change.index.name));
    }
  }
  for (IndexChange& change : changes) {
    if (change.creates()) create(transaction, change);
  }
}

}  // namespace corvan_tool
