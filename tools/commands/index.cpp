#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <optional>
#include <utility>
#include <vector>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/connection.h"
#include "tools/store/schema.h"
#include "tools/store/snapshot.h"
#include "tools/store/store_state.h"
#include "tools/store/transaction.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/output.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"

namespace corvan_tool {

namespace {

struct IndexOptions {
  std::string folder;
  bool drop_others = false;
  bool dry_run = false;
  bool json = false;
};

using Clock = std::chrono::steady_clock;

enum Action { kCreated, kReplaced, kDropped, kLeft, kActions };
constexpr std::array<const char*, kActions> kActionNames = {"created", "replaced", "dropped",
                                                            "left"};

struct IndexChange {
  Action action = kCreated;
  Index index;
  std::string old_sql;  // of one that was replaced
  double seconds = 0;   // here and below: of one that was made
  std::optional<int64_t> bytes;
};

struct Result {
  std::vector<IndexChange> changes;
  std::size_t kept = 0;
  double seconds = 0;
  std::string commit_failure;  // of a commit that failed although the changes are there

  std::size_t count(Action action) const {
    return static_cast<std::size_t>(
        std::count_if(changes.begin(), changes.end(),
                      [action](const IndexChange& change) { return change.action == action; }));
  }
  bool nothing_done() const { return count(kLeft) == changes.size(); }
};

Action action_of(const IndexDifference& difference, bool drop_others) {
  switch (difference.kind) {
    case IndexDifference::kMissing:
      return kCreated;
    case IndexDifference::kDiffers:
      return kReplaced;
    case IndexDifference::kOlder:
      return kDropped;
    case IndexDifference::kOther:
      break;
  }
  return drop_others ? kDropped : kLeft;
}

// One transaction that brings a file's indexes up to those of a new store. Throws ToolError when a
// step fails; what is not committed by then is taken back.
class Update {
 public:
  // `name` is the file's name in errors. Without a log it would, in a transaction that does not
  // exclude readers, be only the commit that meets a reader's lock.
  Update(const std::string& file, const std::string& name)
      : transaction_(file, name, "begin exclusive") {}

  // Commits unless there is nothing to do, or it is only tried.
  Result run(const Schema& schema, const IndexOptions& options) {
    Result result;
    transaction_.require(plan(connection(), schema, options, result));
    make(result);
    if (!result.nothing_done() && !options.dry_run) {
      result.commit_failure = transaction_.commit([&](const Connection& again) {
        Result left;
        return plan(again, schema, options, left) == SQLITE_DONE && left.nothing_done();
      });
    }
    result.seconds = seconds_since(start_);
    return result;
  }

 private:
  const Connection& connection() const { return transaction_.connection(); }

  static double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
  }

  // What is to be done to the file of this connection: SQLITE_DONE, or the code of the failure.
  static int plan(const Connection& connection, const Schema& schema, const IndexOptions& options,
                  Result& result) {
    Schema present;
    const int rc = read_schema(connection, present);
    for (const IndexDifference& difference : index_differences(schema, present, result.kept)) {
      IndexChange change;
      change.action = action_of(difference, options.drop_others);
      change.index = difference.index;
      change.old_sql = difference.old_sql;
      result.changes.push_back(std::move(change));
    }
    return rc;
  }

  // What is dropped makes room first.
  void make(Result& result) const {
    const StatementProgress progress(connection().handle(), "million steps of making indexes");
    for (const IndexChange& change : result.changes) {
      if (change.action == kDropped || change.action == kReplaced) drop(change.index);
    }
    for (IndexChange& change : result.changes) {
      if (change.action == kCreated || change.action == kReplaced) create(change);
    }
  }

  void drop(const Index& index) const {
    transaction_.require(connection().run("drop index " + quoted_name(index.name)),
                         "index " + index.name);
  }

  void create(IndexChange& change) const {
    const Clock::time_point start = Clock::now();
    transaction_.require(connection().run(change.index.sql), "index " + change.index.name);
    change.seconds = seconds_since(start);
    change.bytes = stored_bytes(connection(), change.index.name);
  }

  const Clock::time_point start_ = Clock::now();
  StoreTransaction transaction_;
};

void print_text(const Result& result, bool dry_run) {
  if (!result.changes.empty()) {
    TextTable table({{dry_run ? "WOULD BE" : "DONE"},
                     {"INDEX"},
                     {"SECONDS", TextTable::kRight},
                     {"SIZE", TextTable::kRight},
                     {"STATEMENT"}});
    for (const IndexChange& change : result.changes) {
      const bool made = change.action == kCreated || change.action == kReplaced;
      const std::string was = change.action == kReplaced ? "; was: " + change.old_sql : "";
      table.add({kActionNames.at(change.action), change.index.name,
                 made ? seconds_text(change.seconds) : "",
                 change.bytes ? size_text(*change.bytes) : "", change.index.sql + was});
    }
    // Never cut to the terminal: a statement is what brings a dropped index back.
    table.print(std::cout, 0);
  }
  if (result.nothing_done()) {
    std::cout << "nothing to do: " << result.kept << " kept";
  } else {
    if (dry_run) std::cout << "would be: ";
    for (const Action action : {kCreated, kReplaced, kDropped}) {
      std::cout << result.count(action) << ' ' << kActionNames.at(action) << ", ";
    }
    std::cout << result.kept << " kept";
  }
  const std::size_t left = result.count(kLeft);
  if (left > 0) std::cout << ", " << left << " left (--drop-others drops what is not the store's)";
  std::cout << "; " << seconds_text(result.seconds) << " s\n";
}

void print_result_json(const Result& result, bool dry_run) {
  Json json = {{"dry_run", dry_run}};
  for (const char* name : kActionNames) json[name] = Json::array();
  for (const IndexChange& change : result.changes) {
    Json entry = {
        {"name", change.index.name}, {"table", change.index.table}, {"sql", change.index.sql}};
    if (change.action == kReplaced) entry["old_sql"] = change.old_sql;
    if (change.action == kCreated || change.action == kReplaced) {
      entry["seconds"] = change.seconds;
      entry["bytes"] = change.bytes ? Json(*change.bytes) : Json(nullptr);
    }
    json[kActionNames.at(change.action)].push_back(std::move(entry));
  }
  json["kept"] = result.kept;
  json["seconds"] = result.seconds;
  print_json(json);
}

constexpr const char* kIndexResult =
    "A store keeps the indexes that it was made with. Those that a new store has are created where\n"
    "they are missing and replaced where their statement differs. Of the others on the store's\n"
    "tables, those named like the store's own, TABLE_..., are from an older set and are dropped;\n"
    "any other name is somebody's own index: it is named and left unless --drop-others is given.\n"
    "Tables and messages stay as they are. All is done in one transaction, or nothing. A client\n"
    "may have the store open, but what it saves meanwhile fails. A store that is locked for two\n"
    "seconds is an error.\n"
    "With --json: an object with dry_run; created, replaced, dropped, left: arrays of objects with\n"
    "name, table, sql, of created and replaced ones also seconds and bytes (null when unknown), of\n"
    "replaced ones also old_sql; kept (a number) and seconds.\n";

// Throws ToolError when the store cannot be read or written, is locked, or lacks a column that an
// index needs; it then stays as it was.
int run_index(const IndexOptions& options) {
  const std::string name = store_file(options.folder);
  const Schema schema = new_schema();
  Result result;
  if (options.dry_run) {
    const Snapshot store(options.folder);
    result = Update(store.file(), store.name()).run(schema, options);
  } else {
    require_store_in(options.folder, false);
    result = Update(name, name).run(schema, options);
  }
  if (options.json) {
    print_result_json(result, options.dry_run);
  } else {
    print_text(result, options.dry_run);
  }
  if (!result.commit_failure.empty()) throw ToolError(result.commit_failure);
  if (!options.dry_run && !result.nothing_done()) require_output("the indexes were changed");
  return kOk;
}

}  // namespace

void add_index(CommandLine& line) {
  auto [command, options] = line.add<IndexOptions>(
      "index", "Bring the store's indexes up to those of a new store", kIndexResult, run_index);
  command.flag("--drop-others", options.drop_others,
               "drop also indexes that are not named like the store's own");
  command.flag("--dry-run", options.dry_run,
               "only tell what would be done, tried on a temporary copy");
}

}  // namespace corvan_tool
