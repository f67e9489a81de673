#include "tools/verify_repair.h"

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

#include "tools/connection.h"
#include "tools/open_store.h"
#include "tools/store_copy.h"
#include "tools/store_transaction.h"
#include "tools/text_table.h"
#include "tools/tool_error.h"
#include "tools/unfinished.h"
#include "tools/verify_report.h"

namespace corvan_tool {

namespace {

struct Change {
  const char* repair = nullptr;  // the word
  std::optional<ConversationKey> conversation;
  std::string name;  // the column or the index
  Json old_value;    // null for an index that was not there
  Json new_value;    // null for an index that is dropped
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
};

// Why a column is left.
constexpr const char* kNotJudgedText =
    "what it follows from is of another type than its column's, or the conversation has several "
    "rows; see 'corvan verify'";

// The changes that some words of --repair stand for, made on a file one by one.
class Repair {
 public:
  Repair(const StoreTransaction& transaction, const std::vector<std::string>& what)
      : transaction_(transaction), what_(what) {}

  Outcome run() {
    const Report report = look_at_all(transaction_.connection(), transaction_.name());
    if (report.damaged) {
      throw ToolError(transaction_.name() +
                      ": damaged; nothing was changed; 'corvan salvage' brings out what can be "
                      "read");
    }
    // Before the rows are changed: what is changed then goes through the right indexes.
    if (wants(kIndexes)) mend_indexes(report.indexes);
    if (needs_rows() && !report.complete) {
      throw ToolError(transaction_.name() +
                      ": its rows cannot be looked at; nothing was changed; "
                      "see 'corvan verify'");
    }
    for (const SessionRow& session : report.sessions) mend_session(session);
    if (wants(kSequence)) mend_sequence(report.findings);
    return std::move(outcome_);
  }

 private:
  bool wants(const std::string& word) const {
    return std::find(what_.begin(), what_.end(), word) != what_.end();
  }

  bool needs_rows() const {
    return std::any_of(what_.begin(), what_.end(),
                       [](const std::string& word) { return word != kIndexes; });
  }

  void require(int rc, const std::string& what = "") const { transaction_.require(rc, what); }

  void mend_indexes(const std::vector<IndexDifference>& differences) {
    for (const IndexDifference& difference : differences) {
      if (difference.kind == IndexDifference::kOther) continue;
      const std::string& name = difference.index.name;
      Change change = {kIndexes, std::nullopt, name, nullptr, nullptr};
      if (difference.kind == IndexDifference::kOlder) change.old_value = difference.index.sql;
      if (difference.kind == IndexDifference::kDiffers) change.old_value = difference.old_sql;
      if (!change.old_value.is_null()) {
        require(transaction_.connection().run("drop index " + quoted_name(name)), "index " + name);
      }
      if (difference.kind != IndexDifference::kOlder) {
        require(transaction_.connection().run(difference.index.sql), "index " + name);
        change.new_value = difference.index.sql;
      }
      outcome_.changes.push_back(std::move(change));
    }
  }

  void set(const char* word, const SessionRow& session, const std::string& column,
           int64_t old_value, int64_t new_value) {
    if (old_value == new_value) return;
    require(transaction_.connection().run("update t_session set " + column + "=? where rowid=?",
                                          new_value, session.rowid));
    outcome_.changes.push_back({word, session.key, column, old_value, new_value});
  }

  void mend_session(const SessionRow& session) {
    if (wants(kCounters)) mend_counters(session);
    if (wants(kLatest) && session.has_wrong_latest()) {
      mend_latest(session);
    } else if (wants(kTimes) && session.time_state() != TimeState::kRight) {
      set(kTimes, session, "session_time", session.session_time, session.right_time());
    }
    if (wants(kLatest) && !session.judges_latest) leave(kLatest, session, "latest_id");
    if (wants(kTimes) && !session.judges_time) leave(kTimes, session, "session_time");
  }

  void mend_counters(const SessionRow& session) {
    if (session.has_wrong_unread()) {
      set(kCounters, session, "unread_count", session.unread_count,
          session.unread.mended(session.unread_count));
    }
    if (session.has_wrong_mention()) {
      set(kCounters, session, "mention_count", session.mention_count,
          session.mention.mended(session.mention_count));
    }
    if (!session.judges_unread) leave(kCounters, session, "unread_count");
    if (!session.judges_mention) leave(kCounters, session, "mention_count");
  }

  void mend_latest(const SessionRow& session) {
    set(kLatest, session, "latest_id", session.latest_id, session.newest_id);
    // As delete_message does it: the time moves with a message, and stays without one.
    if (session.newest_id <= 0 || !session.is_number("session_time")) return;
    if (session.is_moved_by_draft(session.newest_time)) return;
    set(kLatest, session, "session_time", session.session_time, session.newest_time);
  }

  void leave(const char* word, const SessionRow& session, const std::string& column) {
    outcome_.left.push_back({word, session.key, column});
  }

  void mend_sequence(const std::vector<Finding>& findings) {
    const auto found = std::find_if(findings.begin(), findings.end(), [](const Finding& finding) {
      return finding.kind == &kind::kSequenceBehind;
    });
    if (found == findings.end()) return;
    const auto largest = found->derived.get<int64_t>();
    require(transaction_.connection().run("delete from sqlite_sequence where name='t_message'"));
    require(transaction_.connection().run(
        "insert into sqlite_sequence(name,seq) values('t_message',?)", largest));
    outcome_.changes.push_back({kSequence, std::nullopt, "seq", found->stored, largest});
  }

  const StoreTransaction& transaction_;
  const std::vector<std::string>& what_;
  Outcome outcome_;
};

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
void copy_committed(const std::string& file, const std::string& to) {
  const Connection from(file, SQLITE_OPEN_READONLY);
  const Connection target(to, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  sqlite3_backup* const copy = sqlite3_backup_init(target.handle(), "main", from.handle(), "main");
  if (copy != nullptr) sqlite3_backup_step(copy, -1);
  if (copy == nullptr || sqlite3_backup_finish(copy) != SQLITE_OK) {
    throw ToolError(to + ": the copy cannot be made (" + target.error() + "); nothing was changed");
  }
}

void print_outcome(const Outcome& outcome, const std::string& backup, bool dry_run) {
  const auto text_of = [](const Json& value) {
    return value.is_string() ? value.get<std::string>() : (value.is_null() ? "none" : value.dump());
  };
  TextTable table({{"REPAIR"}, {"CONVERSATION"}, {"WHAT"}, {"CHANGE"}});
  for (const Change& change : outcome.changes) {
    table.add({change.repair, change.conversation ? conversation_text(*change.conversation) : "",
               change.name, text_of(change.old_value) + " -> " + text_of(change.new_value)});
  }
  if (outcome.changes.empty()) {
    std::cout << (outcome.left.empty() ? "nothing to mend\n" : "nothing could be mended\n");
  } else {
    // Never cut to the terminal: it tells what was there.
    table.print(std::cout, 0);
    std::cout << (dry_run ? "would be changed: " : "changed: ") << outcome.changes.size();
    if (!dry_run) std::cout << "; the store as it was is in " << printable(backup);
    std::cout << '\n';
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
    json["changes"].push_back({{"repair", change.repair},
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

// Nothing stays behind on failure but, when it is the commit that fails, the backup.
Outcome repair_store(const RepairOptions& options, std::string& backup) {
  const std::string file = store_file(options.folder);
  require_store_in(options.folder, false);
  const StoreTransaction transaction(file, file, "begin immediate");
  Outcome outcome = Repair(transaction, options.what).run();
  if (outcome.changes.empty()) return outcome;

  backup = options.backup.empty() ? place_beside(options.folder) : options.backup;
  Unfinished folder = Unfinished::folder(backup);
  copy_committed(file, store_file(folder.path()));
  folder.keep();
  transaction.commit();
  return outcome;
}

Outcome try_repair(const RepairOptions& options) {
  const std::string name = store_file(options.folder);
  const StoreCopy copy(options.folder);
  const std::string copied = store_file(copy.folder());
  require_store(copied, name, false);
  const StoreTransaction transaction(copied, name, "begin immediate");
  return Repair(transaction, options.what).run();
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
  return outcome.left.empty() ? kOk : kNegative;
}

}  // namespace corvan_tool
