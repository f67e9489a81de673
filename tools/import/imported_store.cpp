#include "tools/import/imported_store.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <system_error>

#include "tools/store/connection.h"
#include "tools/store/failed_commit.h"
#include "tools/store/output_place.h"
#include "tools/store/schema.h"
#include "tools/store/store_files.h"
#include "tools/store/store_state.h"
#include "tools/store/transaction.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

// No folder that is created may have the name of a store's file.
void require_no_store_files_above(const std::string& folder) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  // The parent of a root is the root itself.
  for (fs::path path = fs::u8path(folder); path.has_relative_path() && !fs::exists(path, ignored);
       path = path.parent_path()) {
    if (path.has_filename()) require_no_store_file(path.u8string());
  }
}

void prepare_folder(const std::string& folder) {
  require_no_store_files_above(folder);
  std::error_code error;
  const std::filesystem::path path = std::filesystem::u8path(folder);
  std::filesystem::create_directories(path, error);
  if (std::filesystem::exists(path) && !std::filesystem::is_directory(path)) {
    throw ToolError(folder + ": is not a folder; name the store's folder");
  }
  if (error) throw ToolError(folder + ": " + error.message());
  require_regular_files(store_file(folder));
  require_no_lone_log(folder);
  const std::string file = store_file(folder);
  if (!std::filesystem::exists(std::filesystem::u8path(file), error)) return;
  require_store_in(folder, true);
  // Fails if the store stays locked: the library does not wait for locks when it opens a store.
  // cppcheck-suppress unreadVariable; the constructor throws
  const StoreTransaction writable(file, file, "begin immediate");
}

// Whether the largest possible id is in use. SQLite then reports a full disk for each new row.
bool are_ids_used_up(const std::string& file) {
  const Connection connection(file, SQLITE_OPEN_READONLY);
  int64_t largest = 0;
  const auto read = [&largest](const Row& row) {
    largest = std::max<int64_t>(largest, row.int64(0));
  };
  connection.each_row("select max(id) from t_message", read);
  connection.each_row(fmt::format("select seq from sqlite_sequence where name={}", kNameOfMessages),
                      read);
  return largest == std::numeric_limits<int64_t>::max();
}

constexpr const char* kIdsUsedUp =
    "no id is left for a new message: 9223372036854775807 is the largest one; 'corvan export' the "
    "store as JSON Lines, reduce the largest ids of messages, each \"latest_id\" that names one of "
    "them and the number in the line \"sequence\", and 'corvan restore' it";

// Whether a commit that failed with this text has stored nothing. The library reports no code.
bool has_stored_nothing(const std::string& failure) {
  return failure == sqlite3_errstr(SQLITE_BUSY) || failure == sqlite3_errstr(SQLITE_FULL);
}

}  // namespace

void ImportCounts::add(const ImportCounts& other) {
  stored += other.stored;
  completed += other.completed;
  refused += other.refused;
}

ImportedStore::ImportedStore(const ImportOptions& options)
    : options_(options), file_(store_file(options.folder)) {
  prepare_folder(options.folder);
  store_.emplace(options.folder, options.user);
  if (has_failed()) throw ToolError(file_ + ": " + store().failure());
  store()->execute_none_query("pragma busy_timeout=2000");  // as every other connection of the tool
  read_newest_id();
}

std::vector<std::size_t> ImportedStore::save(const ImportBatch& batch, ImportCounts& counts) {
  newest_before_ = newest_id_;
  if (!store()->start_transaction()) fail_without(batch, 0);
  ImportCounts saved;
  std::vector<std::size_t> dropped = save_all(batch, saved, counts);
  if (!dropped.empty()) {
    store()->execute_none_query("rollback transaction");
    newest_id_ = newest_before_;
    return dropped;
  }
  if (!store()->commit_transaction()) fail_to_commit(batch, saved, counts);
  counts.add(saved);
  return dropped;
}

void ImportedStore::read_newest_id() {
  int32_t rc = 0;
  sqlite3_stmt* const query = store()->prepare_sql("select max(id) from t_message", rc);
  if (rc != 0) throw ToolError("the store cannot be read: " + store().failure());
  store()->step(query, false);
  newest_id_ = Corvan::CvDbSingleton::get_int64(query, 0);
  store()->finalize(query);
}

int64_t ImportedStore::save_one(const ImportMessage& m) {
  return store()->save_message(m.session_id, m.session_type, m.object_name, m.sender, m.content,
                               m.is_receive, m.sent_status, 0, m.is_mention, m.sent_time,
                               m.client_uid, m.server_uid, options_.history, options_.insert_only,
                               m.is_receive);
}

// Whether the library looks for an earlier message with the same client uid.
bool ImportedStore::may_complete(const ImportMessage& message) const {
  return message.client_uid > 0 && !options_.history && !options_.insert_only;
}

// Returns the positions of the entries that are missing, in order.
std::vector<std::size_t> ImportedStore::save_all(const ImportBatch& batch, ImportCounts& saved,
                                                 ImportCounts& counts) {
  const SaveCheck check(*Corvan::CvDbSingleton::get_instance());
  std::vector<std::size_t> dropped = save_each(check, batch, saved, counts);
  if (dropped.empty()) read_rows(check);
  if (has_failed()) fail_without(batch, batch.size() - 1);
  return dropped;
}

std::vector<std::size_t> ImportedStore::save_each(const SaveCheck& check, const ImportBatch& batch,
                                                  ImportCounts& saved, ImportCounts& counts) {
  std::vector<std::size_t> dropped;
  saved_.clear();
  for (std::size_t i = 0; i < batch.size(); ++i) {
    if (!save_entry(check, batch, i, saved, counts)) dropped.push_back(i);
  }
  // A trigger may have deleted an earlier message when a later one was saved.
  for (const Saved& one : saved_) {
    if (!check.has(one.id, batch[one.entry].message)) dropped.push_back(one.entry);
  }
  std::sort(dropped.begin(), dropped.end());
  return dropped;
}

// Returns false if the message is missing after its save.
bool ImportedStore::save_entry(const SaveCheck& check, const ImportBatch& batch, std::size_t entry,
                               ImportCounts& saved, ImportCounts& counts) {
  const int64_t id = save_one(batch[entry].message);
  // Ids only grow, so a smaller one belongs to a message that was there before.
  const Saved one = {entry, id, id <= newest_id_};
  if (has_failed()) fail_to_save(check, batch, entry, id, counts);
  if (id < 0) {
    ++saved.refused;
    return true;
  }
  const bool is_kept = is_there(check, batch, one);
  if (has_failed()) fail_without(batch, entry);
  if (!is_kept) return false;
  ++(one.completed ? saved.completed : saved.stored);
  newest_id_ = std::max(newest_id_, id);
  saved_.push_back(one);
  return true;
}

// Call it right after the save. If a trigger drops the insert or the update, the save still returns
// an id: the one of the last row that was inserted into any table.
bool ImportedStore::is_there(const SaveCheck& check, const ImportBatch& batch,
                             const Saved& saved) const {
  const ImportMessage& message = batch[saved.entry].message;
  if (saved.completed && !(may_complete(message) && check.changed_a_row())) return false;
  return check.has(saved.id, message);
}

// Keeps rows that show later whether the transaction was committed: one new row, or, if there is
// none, all completed rows.
void ImportedStore::read_rows(const SaveCheck& check) {
  rows_.clear();
  const auto last_new = std::find_if(saved_.rbegin(), saved_.rend(),
                                     [](const Saved& saved) { return !saved.completed; });
  if (last_new != saved_.rend()) {
    rows_.push_back({last_new->id, check.text(last_new->id)});
    return;
  }
  for (const Saved& saved : saved_) rows_.push_back({saved.id, check.text(saved.id)});
}

bool ImportedStore::are_rows_there(const Connection& connection) const {
  return std::all_of(rows_.begin(), rows_.end(), [&connection](const StoredRow& row) {
    std::string text;
    const int rc = connection.each_row(
        kMessageRow, [&text](const Row& found) { text = row_text(found); }, row.id);
    if (rc != SQLITE_DONE) throw ToolError(connection.error());
    return text == row.text;
  });
}

// Closing the store rolls the transaction back.
void ImportedStore::fail_without(const ImportBatch& batch, std::size_t entry) {
  throw ToolError(fmt::format("{}: {}; nothing was stored from {} on (at {})", file_, failure(),
                              batch.front().place, batch[entry].place));
}

// After some failures, SQLite ends the transaction by itself. The statements of the save that
// follow are then committed one by one.
void ImportedStore::fail_to_save(const SaveCheck& check, const ImportBatch& batch,
                                 std::size_t entry, int64_t id, ImportCounts& counts) {
  const bool was_open = store()->execute_none_query("rollback transaction") == SQLITE_DONE;
  const Saved saved = {entry, id, id <= newest_before_};
  if (was_open || id < 0 || !is_there(check, batch, saved)) fail_without(batch, entry);
  ++(saved.completed ? counts.completed : counts.stored);
  throw ToolError(fmt::format(
      "{}: {}; of the lines from {} on, only {} is stored, perhaps without its conversation's "
      "counters",
      file_, failure(), batch.front().place, batch[entry].place));
}

void ImportedStore::fail_to_commit(const ImportBatch& batch, const ImportCounts& saved,
                                   ImportCounts& counts) {
  const bool is_certain = has_stored_nothing(store().failure());
  const std::string why = file_ + ": " + failure();
  const std::string& first = batch.front().place;
  const std::string& last = batch.back().place;
  store_.reset();
  const auto is_made = [this](const Connection& connection) { return are_rows_there(connection); };
  switch (is_certain ? CommitOutcome::kNothing : settle_failed_commit(file_, is_made)) {
    case CommitOutcome::kNothing:
      throw ToolError(fmt::format("{}; nothing was stored from {} on", why, first));
    case CommitOutcome::kEverything:
      counts.add(saved);
      throw ToolError(
          fmt::format("{}; all lines up to {} are stored; import the lines after it", why, last));
    case CommitOutcome::kUnknown:
      break;
  }
  throw ToolError(fmt::format(
      "{}; nothing was stored after {}; it is unknown whether the lines from {} to there were "
      "stored; when the store can be written again, look for them before you import them again, "
      "unless they have server uids",
      why, last, first));
}

std::string ImportedStore::failure() {
  const std::string& text = store().failure();
  if (text != sqlite3_errstr(SQLITE_FULL)) return text;
  const bool is_last = newest_id_ == std::numeric_limits<int64_t>::max();
  return is_last || are_ids_used_up(file_) ? kIdsUsedUp : text;
}

}  // namespace corvan_tool
