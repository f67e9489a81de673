#include "tools/verify/repair.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <optional>
#include <system_error>
#include <utility>

#include "tools/store/connection.h"
#include "tools/store/pending_output.h"
#include "tools/store/schema.h"
#include "tools/store/snapshot.h"
#include "tools/store/store_state.h"
#include "tools/store/transaction.h"
#include "tools/ui/error.h"
#include "tools/ui/output.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"
#include "tools/verify/report.h"

namespace corvan_tool {

namespace {

struct Change {
  const Kind* kind = nullptr;  // of the finding that it mends
  std::optional<ConversationKey> conversation;
  std::string name;         // the column, the index or the table
  Json old_value;           // null for an index that was not there
  Json new_value;           // null for an index that is dropped
  int64_t rowid = 0;        // of t_session, where it is a conversation's
  std::string row_id_name;  // the name in SQL of that
};

// What a word stands for and cannot mend.
struct Left {
  const char* repair = nullptr;
  ConversationKey conversation;
  std::string name;  // the column
};

struct Outcome {
  std::vector<Change> changes;
  std::vector<Left> left;
  std::string commit_failure;  // of a commit that failed although the changes are there
};

// Why a column is left.
constexpr const char* kNotJudgedText =
    "what it follows from is of another type than its column's, or the conversation has several "
    "rows; see 'corvan verify'";

// What some words of --repair stand for in a store.
class RepairPlan {
 public:
  RepairPlan(const Report& report, const std::vector<std::string>& what)
      : report_(report), what_(what) {}

  Outcome make() {
    // Before the rows are changed: what is changed then goes through the right indexes.
    take(kIndexes);
    for (const SessionRow& session : report_.sessions) mend_session(session);
    take(kSequence);
    return std::move(outcome_);
  }

 private:
  bool wants(const std::string& word) const {
    return std::find(what_.begin(), what_.end(), word) != what_.end();
  }

  // What the findings of the word tell by themselves.
  void take(const std::string& word) {
    if (!wants(word)) return;
    for (const Finding& finding : report_.findings) {
      if (!finding.mended || finding.kind->repair != word) continue;
      outcome_.changes.push_back(
          {finding.kind, std::nullopt, finding.name, finding.stored, finding.derived, 0, ""});
    }
  }

  void set(const Kind* kind, const SessionRow& session, const std::string& column,
           int64_t old_value, int64_t new_value) {
    if (old_value == new_value) return;
    outcome_.changes.push_back(
        {kind, session.key, column, old_value, new_value, session.rowid, report_.session_row_id});
  }

  void mend_session(const SessionRow& session) {
    if (wants(kCounters)) mend_counters(session);
    if (wants(kLatest) && session.latest_kind() != nullptr) {
      mend_latest(session);
    } else if (wants(kTimes) && session.time_kind() != nullptr) {
      set(session.time_kind(), session, "session_time", session.session_time, session.right_time());
    }
    if (wants(kLatest) && !session.judges_latest) leave(kLatest, session, "latest_id");
    if (wants(kTimes) && !session.judges_time) leave(kTimes, session, "session_time");
  }

  void mend_counters(const SessionRow& session) {
    const auto mend = [&](const Kind* kind, const char* column, int64_t stored,
                          const Recount& recount) {
      if (kind == nullptr || kind->repair == nullptr) return;
      set(kind, session, column, stored, recount.mended(stored));
    };
    mend(session.unread_kind(), "unread_count", session.unread_count, session.unread);
    mend(session.mention_kind(), "mention_count", session.mention_count, session.mention);
    if (!session.judges_unread) leave(kCounters, session, "unread_count");
    if (!session.judges_mention) leave(kCounters, session, "mention_count");
  }

  void mend_latest(const SessionRow& session) {
    const Kind* const kind = session.latest_kind();
    set(kind, session, "latest_id", session.latest_id, session.newest_id);
    // As delete_message does it: the time moves with a message, and stays without one.
    if (session.newest_id <= 0 || !session.is_number("session_time")) return;
    if (session.is_moved_by_draft(session.newest_time)) return;
    set(kind, session, "session_time", session.session_time, session.newest_time);
  }

  void leave(const char* word, const SessionRow& session, const std::string& column) {
    outcome_.left.push_back({word, session.key, column});
  }

  const Report& report_;
  const std::vector<std::string>& what_;
  Outcome outcome_;
};

// Conversations are changed by their row ids.
void require_row_ids(const std::string& name, const std::vector<Change>& changes) {
  for (const Change& change : changes) {
    if (!change.conversation || !change.row_id_name.empty()) continue;
    throw ToolError(name + ": nothing was changed; " + no_row_id_text("t_session"));
  }
}

Outcome make_plan(const Connection& connection, const std::string& name,
                  const std::vector<std::string>& what) {
  const Report report = look_at_all(connection, name);
  if (report.damaged) {
    throw ToolError(name +
                    ": damaged; nothing was changed; 'corvan salvage' brings out what can be "
                    "read");
  }
  const bool needs_rows = std::any_of(what.begin(), what.end(),
                                      [](const std::string& word) { return word != kIndexes; });
  if (needs_rows && !report.complete) {
    throw ToolError(name +
                    ": its rows cannot be looked at; nothing was changed; "
                    "see 'corvan verify'");
  }
  Outcome outcome = RepairPlan(report, what).make();
  require_row_ids(name, outcome.changes);
  return outcome;
}

void change_index(const StoreTransaction& transaction, const Change& change) {
  const Connection& connection = transaction.connection();
  const std::string what = "index " + change.name;
  if (!change.old_value.is_null()) {
    transaction.require(connection.run("drop index " + quoted_name(change.name)), what);
  }
  if (!change.new_value.is_null()) {
    transaction.require(connection.run(change.new_value.get<std::string>()), what);
  }
}

void make_change(const StoreTransaction& transaction, const Change& change) {
  const std::string word = change.kind->repair;
  if (word == kIndexes) {
    change_index(transaction, change);
    return;
  }
  const Connection& connection = transaction.connection();
  const auto value = change.new_value.get<int64_t>();
  if (word == kSequence) {
    transaction.require(
        connection.run("delete from sqlite_sequence where lower(name)='t_message'"));
    transaction.require(connection.run(
        std::string("insert into sqlite_sequence(name,seq) values(") + kNameOfMessages + ",?)",
        value));
    return;
  }
  transaction.require(connection.run(
      "update t_session set " + change.name + "=? where " + change.row_id_name + "=?", value,
      change.rowid));
  if (sqlite3_changes(connection.handle()) == 1) return;
  throw ToolError(transaction.name() + ": the row of " + conversation_text(*change.conversation) +
                  " is not found by its row id; nothing was changed; see 'corvan check'");
}

void make_changes(const StoreTransaction& transaction, const std::vector<Change>& changes) {
  sqlite3* const db = transaction.connection().handle();
  // What somebody's trigger would change is told nowhere.
  sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
  const StatementProgress progress(db, "million steps of mending");
  for (const Change& change : changes) make_change(transaction, change);
}

// A folder beside the store's that is not there yet.
std::string place_beside(const std::string& folder) {
  const std::time_t now = std::time(nullptr);
  std::tm utc = {};
  std::array<char, 32> text = {};
  if (gmtime_r(&now, &utc) == nullptr ||
      std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &utc) == 0) {
    throw ToolError(folder + ": the clock has no time; name a folder with --backup");
  }
  // The folder may be named as "." or "..".
  std::error_code error;
  const std::filesystem::path whole = std::filesystem::canonical(folder, error);
  if (error) throw ToolError(folder + ": " + error.message() + "; nothing was changed");
  const std::string place = whole.string() + ".before-repair-" + text.data();
  std::string free_place = place;
  for (int i = 2; std::filesystem::exists(free_place, error); ++i) {
    free_place = place + "-" + std::to_string(i);
  }
  return free_place;
}

// Copies what is committed in `file` to `to`. Through SQLite: to open and close the file past it
// would take away the locks that this process holds.
void copy_committed(const std::string& file, const std::string& to, Progress& progress) {
  constexpr int kPages = 1024;  // between two calls of progress
  const Connection from(file, SQLITE_OPEN_READONLY);
  const Connection target(to, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  sqlite3_backup* const copy = sqlite3_backup_init(target.handle(), "main", from.handle(), "main");
  int rc = copy == nullptr ? SQLITE_CANTOPEN : SQLITE_OK;
  while (rc == SQLITE_OK) {
    rc = sqlite3_backup_step(copy, kPages);
    progress.show(static_cast<std::uint64_t>(sqlite3_backup_pagecount(copy) -
                                             sqlite3_backup_remaining(copy)));
  }
  const std::string why = copy == nullptr ? target.error() : sqlite3_errstr(rc);
  sqlite3_backup_finish(copy);
  if (rc == SQLITE_DONE) return;
  const int kind = rc & 0xff;
  const bool of_place = kind == SQLITE_FULL || kind == SQLITE_IOERR || kind == SQLITE_CANTOPEN;
  throw ToolError(kept_name(to) + ": the copy cannot be made (" + why + "); nothing was changed" +
                  (of_place ? "; make room there, or name another folder with --backup" : ""));
}

void print_outcome(const Outcome& outcome, const std::string& backup, bool dry_run) {
  const auto text_of = [](const Json& value) {
    return value.is_string() ? value.get<std::string>() : (value.is_null() ? "none" : value.dump());
  };
  TextTable table({{"REPAIR"}, {"FINDING"}, {"CONVERSATION"}, {"WHAT"}, {"CHANGE"}});
  std::size_t notes = 0;
  for (const Change& change : outcome.changes) {
    if (change.kind->rank == Rank::kNote) ++notes;
    table.add({change.kind->repair, change.kind->code,
               change.conversation ? conversation_text(*change.conversation) : "", change.name,
               text_of(change.old_value) + " -> " + text_of(change.new_value)});
  }
  if (outcome.changes.empty()) {
    std::cout << (outcome.left.empty() ? "nothing to mend\n" : "nothing could be mended\n");
  } else {
    // Never cut to the terminal: it tells what was there.
    table.print(std::cout, 0);
    std::cout << (dry_run ? "would be changed: " : "changed: ") << outcome.changes.size();
    if (!dry_run) std::cout << "; the store as it was is in " << printable(backup);
    std::cout << '\n';
    if (notes > 0) {
      std::cout << "notes among them: " << notes
                << "; ordinary use can leave these, 'corvan verify' tells how\n";
    }
  }
  for (const Left& left : outcome.left) {
    std::cout << "left: " << left.repair << ' ' << printable(conversation_text(left.conversation))
              << ' ' << left.name << ": " << kNotJudgedText << '\n';
  }
}

void print_outcome_json(const Outcome& outcome, const std::string& backup, bool dry_run) {
  Json json = {{"dry_run", dry_run},
               {"backup", backup.empty() ? Json(nullptr) : Json(backup)},
               {"changes", Json::array()},
               {"left", Json::array()}};
  for (const Change& change : outcome.changes) {
    const auto& key = change.conversation;
    json["changes"].push_back({{"repair", change.kind->repair},
                               {"finding", change.kind->code},
                               {"session_id", key ? Json(key->id) : Json(nullptr)},
                               {"session_type", key ? Json(key->type) : Json(nullptr)},
                               {"name", change.name},
                               {"old", change.old_value},
                               {"new", change.new_value}});
  }
  for (const Left& left : outcome.left) {
    json["left"].push_back({{"repair", left.repair},
                            {"session_id", left.conversation.id},
                            {"session_type", left.conversation.type},
                            {"name", left.name},
                            {"reason", kNotJudgedText}});
  }
  print_json(json);
}

// Commits: the error to end the command with, if the commit failed but the changes are there.
std::string commit_repair(StoreTransaction& transaction, const std::vector<std::string>& what,
                          const std::string& backup) {
  try {
    return transaction.commit([&](const Connection& again) {
      return make_plan(again, transaction.name(), what).changes.empty();
    });
  } catch (const ToolError& error) {
    throw ToolError(error.what() + ("; the store as it was is in " + backup));
  }
}

// Nothing stays behind on failure but, when it is the commit that fails, the backup.
Outcome repair_store(const RepairOptions& options, std::string& backup) {
  const std::string file = store_file(options.folder);
  require_store_in(options.folder, false);
  StoreTransaction transaction(file, file, "begin immediate");
  Outcome outcome = make_plan(transaction.connection(), file, options.what);
  if (outcome.changes.empty()) return outcome;

  backup = options.backup.empty() ? place_beside(options.folder) : options.backup;
  Unfinished folder = Unfinished::folder(backup);
  Progress progress("pages copied");
  // Before the first change: without a log the file may be locked to readers from then on.
  copy_committed(file, store_file(folder.path()), progress);
  make_changes(transaction, outcome.changes);
  progress.advance(0);  // shown while the copy is put on the disk
  folder.keep();
  outcome.commit_failure = commit_repair(transaction, options.what, backup);
  return outcome;
}

Outcome try_repair(const RepairOptions& options) {
  const Snapshot store(options.folder);
  const StoreTransaction transaction(store.file(), store.name(), "begin immediate");
  Outcome outcome = make_plan(transaction.connection(), store.name(), options.what);
  make_changes(transaction, outcome.changes);
  return outcome;
}

}  // namespace

int run_repair(const RepairOptions& options) {
  std::string backup;
  const Outcome outcome = options.dry_run ? try_repair(options) : repair_store(options, backup);
  if (options.json) {
    print_outcome_json(outcome, backup, options.dry_run);
  } else {
    print_outcome(outcome, backup, options.dry_run);
  }
  if (!outcome.commit_failure.empty()) throw ToolError(outcome.commit_failure);
  if (!backup.empty()) {
    require_output("the changes were made, and the store as it was is in " + backup);
  }
  return outcome.left.empty() ? kOk : kNegative;
}

}  // namespace corvan_tool
