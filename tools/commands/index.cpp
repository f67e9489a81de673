#include <fmt/format.h>

#include <array>
#include <iostream>
#include <string>
#include <utility>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/index_update.h"
#include "tools/store/new_store.h"
#include "tools/store/schema.h"
#include "tools/store/snapshot.h"
#include "tools/store/store_files.h"
#include "tools/store/store_state.h"
#include "tools/store/transaction.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/output.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

struct IndexOptions {
  std::string folder;
  bool drop_others = false;
  bool dry_run = false;
  bool json = false;
};

// By IndexChange::Action.
constexpr std::array<const char*, 4> kIndexActions = {"created", "replaced", "dropped", "left"};

struct IndexOutcome {
  IndexPlan plan;
  double seconds = 0;
  std::string commit_failure;  // if the commit failed although the changes were made
};

// Commits the changes. Returns the error if the commit failed although they were made.
std::string commit_changes(StoreTransaction& transaction, const Schema& wanted, bool drop_others) {
  return transaction.commit([&](const Connection& again) {
    IndexPlan rest;
    return plan_indexes(again, wanted, drop_others, rest) == SQLITE_DONE && rest.is_empty();
  });
}

// Updates the indexes of `file` in one transaction, and commits it unless nothing changed or it is
// a dry run. `name` is the file's name in errors. Throws ToolError if a step fails; nothing is
// changed then.
IndexOutcome update_indexes(const std::string& file, const std::string& name,
                            const IndexOptions& options) {
  const Schema wanted = new_schema();
  const Stopwatch stopwatch;
  // Exclusive: outside WAL mode an immediate transaction would notice readers only at commit.
  StoreTransaction transaction(file, name, "begin exclusive");
  IndexOutcome outcome;
  transaction.require(
      plan_indexes(transaction.connection(), wanted, options.drop_others, outcome.plan));
  {
    const StatementProgress progress(transaction.connection().handle(),
                                     "million steps of creating indexes");
    apply_index_changes(transaction, outcome.plan.changes);
  }
  if (!outcome.plan.is_empty() && !options.dry_run) {
    outcome.commit_failure = commit_changes(transaction, wanted, options.drop_others);
  }
  outcome.seconds = stopwatch.seconds();
  return outcome;
}

void print_index_changes(const IndexPlan& plan, bool dry_run) {
  if (plan.changes.empty()) return;
  TextTable table({{dry_run ? "WOULD BE" : "DONE"},
                   {"INDEX"},
                   {"SECONDS", TextTable::kRight},
                   {"SIZE", TextTable::kRight},
                   {"STATEMENT"}});
  for (const IndexChange& change : plan.changes) {
    const bool replaces = change.action == IndexChange::kReplace;
    table.add({kIndexActions.at(change.action), change.index.name,
               change.creates() ? seconds_text(change.seconds) : "",
               change.bytes ? size_text(*change.bytes) : "",
               change.index.sql + (replaces ? "; was: " + change.old_sql : "")});
  }
  // Not cut to the terminal's width: the statement is needed to recreate a dropped index.
  table.print(std::cout, 0);
}

std::string index_summary(const IndexOutcome& outcome, bool dry_run) {
  const IndexPlan& plan = outcome.plan;
  std::string text = dry_run && !plan.is_empty() ? "would be: " : "";
  if (plan.is_empty()) {
    text += "nothing to do: ";
  } else {
    for (const auto action : {IndexChange::kCreate, IndexChange::kReplace, IndexChange::kDrop}) {
      text += fmt::format("{} {}, ", plan.count(action), kIndexActions.at(action));
    }
  }
  text += fmt::format("{} kept", plan.kept);
  const std::size_t left = plan.count(IndexChange::kLeave);
  if (left > 0) text += fmt::format(", {} left (--drop-others drops them)", left);
  return text + fmt::format("; {} s\n", seconds_text(outcome.seconds));
}

void print_index_json(const IndexOutcome& outcome, bool dry_run) {
  Json json = {{"dry_run", dry_run}};
  for (const char* name : kIndexActions) json[name] = Json::array();
  for (const IndexChange& change : outcome.plan.changes) {
    Json entry = {
        {"name", change.index.name}, {"table", change.index.table}, {"sql", change.index.sql}};
    if (change.action == IndexChange::kReplace) entry["old_sql"] = change.old_sql;
    if (change.creates()) {
      entry["seconds"] = change.seconds;
      entry["bytes"] = change.bytes ? Json(*change.bytes) : Json(nullptr);
    }
    json[kIndexActions.at(change.action)].push_back(std::move(entry));
  }
  json["kept"] = outcome.plan.kept;
  json["seconds"] = outcome.seconds;
  print_json(json);
}

constexpr const char* kIndexResult =
    "A store keeps the indexes that it was created with. 'index' creates the indexes of a new store\n"
    "that are missing, and replaces those whose statement differs. Other indexes on the store's\n"
    "tables are dropped if their names begin like the store's own, TABLE_...: they come from an\n"
    "older release. All remaining indexes were added by other programs: they are listed, and left\n"
    "unless --drop-others is given. Tables and messages do not change. All changes are made in one\n"
    "transaction, or none. A client may have the store open, but its saves fail meanwhile. A store\n"
    "that is locked for two seconds is an error.\n"
    "With --json: an object with dry_run; created, replaced, dropped, left: arrays of objects with\n"
    "name, table and sql, for created and replaced ones also seconds and bytes (null if\n"
    "unknown), for replaced ones also old_sql; kept (a number) and seconds.\n";

// Throws ToolError if the store cannot be read or written, is locked, or lacks a column that an
// index needs; the store is not changed then.
int run_index(const IndexOptions& options) {
  IndexOutcome outcome;
  if (options.dry_run) {
    const Snapshot store(options.folder);
    outcome = update_indexes(store.file(), store.name(), options);
  } else {
    require_store_in(options.folder, false);
    const std::string file = store_file(options.folder);
    outcome = update_indexes(file, file, options);
  }
  if (options.json) {
    print_index_json(outcome, options.dry_run);
  } else {
    print_index_changes(outcome.plan, options.dry_run);
    std::cout << index_summary(outcome, options.dry_run);
  }
  if (!outcome.commit_failure.empty()) throw ToolError(outcome.commit_failure);
  if (!options.dry_run && !outcome.plan.is_empty()) require_output("the indexes were changed");
  return kOk;
}

}  // namespace

void add_index(CommandLine& line) {
  auto [command, options] = line.add<IndexOptions>(
      "index", "Bring the store's indexes up to those of a new store", kIndexResult, run_index);
  command.flag("--drop-others", options.drop_others,
               "also drop indexes that are not named like the store's own");
  command.flag("--dry-run", options.dry_run,
               "only report what would be done, tried on a temporary copy");
}

}  // namespace corvan_tool
