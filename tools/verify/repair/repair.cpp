#include "tools/verify/repair/repair.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>

#include "tools/store/index_update.h"
#include "tools/store/pending_output.h"
#include "tools/store/schema.h"
#include "tools/store/snapshot.h"
#include "tools/store/store_files.h"
#include "tools/store/store_state.h"
#include "tools/store/transaction.h"
#include "tools/ui/error.h"
#include "tools/ui/output.h"
#include "tools/ui/progress.h"
#include "tools/verify/repair/backup.h"
#include "tools/verify/repair/plan.h"
#include "tools/verify/repair/report.h"

namespace corvan_tool {

namespace {

struct Repair {
  RepairPlan plan;
  std::string backup;          // the folder of the copy; empty if none was made
  std::string commit_failure;  // if the commit failed although the changes were made
};

// Throws ToolError if the file is damaged, or if rows that these words need cannot be read.
void require_repairable(const Report& report, const std::string& name,
                        const std::vector<std::string>& words) {
  if (report.damaged) {
    throw ToolError(name +
                    ": damaged; nothing was changed; 'corvan salvage' recovers what can be read");
  }
  const bool needs_rows = std::any_of(words.begin(), words.end(),
                                      [](const std::string& word) { return word != kIndexes; });
  if (needs_rows && !report.complete) {
    throw ToolError(name + ": its rows cannot be read; nothing was changed; see 'corvan verify'");
  }
}

// Throws ToolError if a conversation is to be changed but SQL cannot name its row.
void require_row_ids(const RepairPlan& plan, const std::string& name) {
  const bool changes_rows =
      std::any_of(plan.steps.begin(), plan.steps.end(),
                  [](const RepairStep& step) { return step.conversation.has_value(); });
  if (changes_rows && plan.session_row_id.empty()) {
    throw ToolError(name + ": nothing was changed; " + no_row_id_text("t_session"));
  }
}

// Throws ToolError if the store cannot be repaired.
RepairPlan check_and_plan(const Connection& connection, const std::string& name,
                          const std::vector<std::string>& words) {
  const Report report = check_store(connection, name);
  require_repairable(report, name, words);
  RepairPlan plan = plan_repair(report, words);
  require_row_ids(plan, name);
  return plan;
}

IndexChange index_change(const Change& change) {
  IndexChange result;
  result.index.name = change.name;
  if (change.new_value.is_null()) {
    result.action = IndexChange::kDrop;
  } else {
    result.action = change.old_value.is_null() ? IndexChange::kCreate : IndexChange::kReplace;
    result.index.sql = change.new_value;
  }
  return result;
}

void set_sequence(const StoreTransaction& transaction, int64_t largest_id) {
  const Connection& connection = transaction.connection();
  transaction.require(connection.run("delete from sqlite_sequence where lower(name)='t_message'"));
  transaction.require(connection.run(
      fmt::format("insert into sqlite_sequence(name,seq) values({},?)", kNameOfMessages),
      largest_id));
}

void set_column(const StoreTransaction& transaction, const RepairStep& step,
                const std::string& row_id) {
  const Connection& connection = transaction.connection();
  transaction.require(
      connection.run(fmt::format("update t_session set {}=? where {}=?", step.change.name, row_id),
                     step.change.new_value.get<int64_t>(), step.row));
  if (sqlite3_changes(connection.handle()) == 1) return;
  throw ToolError(
      fmt::format("{}: the row of {} is not found by its row id; nothing was changed; "
                  "see 'corvan check'",
                  transaction.name(), conversation_text(*step.conversation)));
}

// Indexes come first, so that changes of rows update the repaired ones.
void apply(const StoreTransaction& transaction, const RepairPlan& plan) {
  sqlite3* const db = transaction.connection().handle();
  // A trigger that someone added could change more than is reported.
  sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  const StatementProgress progress(db, "million steps of repairing");
  std::vector<IndexChange> indexes;
  for (const RepairStep& step : plan.steps) {
    if (step.rule->repair == kIndexes) indexes.push_back(index_change(step.change));
  }
  apply_index_changes(transaction, indexes);
  for (const RepairStep& step : plan.steps) {
    if (step.rule->repair == kSequence) {
      set_sequence(transaction, step.change.new_value.get<int64_t>());
    } else if (step.rule->repair != kIndexes) {
      set_column(transaction, step, plan.session_row_id);
    }
  }
}

// Returns the error to end the command with if the commit failed although the changes were made.
std::string commit(StoreTransaction& transaction, const std::vector<std::string>& words,
                   const std::string& backup) {
  try {
    return transaction.commit([&](const Connection& again) {
      return check_and_plan(again, transaction.name(), words).steps.empty();
    });
  } catch (const ToolError& error) {
    throw ToolError(fmt::format("{}; the original was copied to {}", error.what(), backup));
  }
}

// On failure nothing is left behind, except the backup if the commit failed.
Repair repair_store(const RepairOptions& options) {
  const std::string file = store_file(options.folder);
  require_store_in(options.folder, false);
  StoreTransaction transaction(file, file, "begin immediate");
  Repair repair;
  repair.plan = check_and_plan(transaction.connection(), file, options.what);
  if (repair.plan.steps.empty()) return repair;

  repair.backup = options.backup.empty() ? backup_place(options.folder) : options.backup;
  PendingOutput folder = PendingOutput::folder(repair.backup);
  // Before the first change: outside WAL mode, changes may lock the file to readers.
  Progress progress("pages copied");
  copy_committed(file, store_file(folder.path()), progress);
  apply(transaction, repair.plan);
  progress.advance(0);  // shown while the copy is written to the disk
  folder.keep();
  repair.commit_failure = commit(transaction, options.what, repair.backup);
  return repair;
}

Repair try_repair(const RepairOptions& options) {
  const Snapshot store(options.folder);
  const StoreTransaction transaction(store.file(), store.name(), "begin immediate");
  Repair repair;
  repair.plan = check_and_plan(transaction.connection(), store.name(), options.what);
  apply(transaction, repair.plan);
  return repair;
}

}  // namespace

int run_repair(const RepairOptions& options) {
  const Repair repair = options.dry_run ? try_repair(options) : repair_store(options);
  if (options.json) {
    print_repair_json(repair.plan, repair.backup, options.dry_run);
  } else {
    print_repair(repair.plan, repair.backup, options.dry_run);
  }
  if (!repair.commit_failure.empty()) throw ToolError(repair.commit_failure);
  if (!repair.backup.empty()) {
    require_output("the changes were made, and the original was copied to " + repair.backup);
  }
  return repair.plan.left.empty() ? kOk : kNegative;
}

}  // namespace corvan_tool
