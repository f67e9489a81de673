#include "tools/import_store.h"

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <limits>
#include <system_error>

#include "tools/connection.h"
#include "tools/failed_commit.h"
#include "tools/import.h"
#include "tools/output_place.h"
#include "tools/store_copy.h"
#include "tools/store_transaction.h"
#include "tools/tool_error.h"

namespace corvan_tool {

namespace {

// Of the folders that will be made none may have the name of a store's file.
void require_no_store_files_above(const std::string& folder) {
  namespace fs = std::filesystem;
  std::error_code ignored;
  for (fs::path path = folder; !path.empty() && !fs::exists(path, ignored);
       path = path.parent_path()) {
    if (path.has_filename()) require_no_store_file(path.string());
  }
}

void prepare_folder(const std::string& folder) {
  require_no_store_files_above(folder);
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (std::filesystem::exists(folder) && !std::filesystem::is_directory(folder)) {
    throw ToolError(folder + ": is no folder; name the store's");
  }
  if (error) throw ToolError(folder + ": " + error.message());
  require_regular_files(folder);
  require_no_lone_log(folder);
  const std::string file = store_file(folder);
  if (!std::filesystem::exists(file, error)) return;
  require_store_in(folder, true);
  // The library waits for no lock when it opens a store.
  // cppcheck-suppress unreadVariable; it throws when there is a lock
  const StoreTransaction writable(file, file, "begin immediate");
}

// SQLite reports a full disk, too, when it has no id left for a new row.
bool are_ids_used_up(const std::string& file) {
  const Connection connection(file, SQLITE_OPEN_READONLY);
  int64_t largest = 0;
  const auto read = [&largest](sqlite3_stmt* row) {
    largest = std::max<int64_t>(largest, sqlite3_column_int64(row, 0));
  };
  connection.each_row("select max(id) from t_message", read);
  connection.each_row("select seq from sqlite_sequence where name='t_message'", read);
  return largest == std::numeric_limits<int64_t>::max();
}

constexpr const char* kIdsUsedUp =
    "no id is left for a new message: 9223372036854775807, the largest one, was given; 'corvan "
    "export' the store as JSON Lines, give that message and the line \"sequence\" smaller numbers, "
    "and 'corvan restore' it";

}  // namespace

class ImportStore::LookUp {
 public:
  explicit LookUp(Corvan::CvDbSingleton& store) : store_(store) {
    int32_t rc = 0;
    query_ = store.prepare_sql(
        "select session_id,session_type,sender,client_uid,server_uid from t_message where id=?",
        rc);
  }
  LookUp(const LookUp&) = delete;
  LookUp& operator=(const LookUp&) = delete;
  ~LookUp() {
    if (query_ != nullptr) store_.finalize(query_);
  }

  // Null if there is no such row.
  sqlite3_stmt* row(int64_t id) const {
    if (query_ == nullptr) return nullptr;
    store_.reset(query_);
    Corvan::CvDbSingleton::bind(query_, 1, id);
    return store_.step(query_, false) == SQLITE_ROW ? query_ : nullptr;
  }

 private:
  Corvan::CvDbSingleton& store_;
  sqlite3_stmt* query_;
};

void ImportCounts::add(const ImportCounts& other) {
  stored += other.stored;
  completed += other.completed;
  refused += other.refused;
  bad += other.bad;
}

ImportStore::ImportStore(const ImportOptions& options)
    : options_(options), file_(store_file(options.folder)) {
  prepare_folder(options.folder);
  store_.emplace(options.folder, options.user);
  if (!store().failure().empty()) throw ToolError(file_ + ": " + store().failure());
  store()->execute_none_query("pragma busy_timeout=2000");  // as every other connection of the tool
  read_newest_id();
}

std::vector<std::size_t> ImportStore::save(const std::vector<ImportEntry>& batch,
                                           ImportCounts& counts) {
  const int64_t newest_id = newest_id_;
  if (!store()->start_transaction()) fail_to_save(batch, 0);
  ImportCounts saved;
  std::vector<std::size_t> dropped = save_each(batch, saved);
  if (!dropped.empty()) {
    roll_back(newest_id);
    return dropped;
  }
  if (!store()->commit_transaction()) fail_to_commit(batch, saved, counts);
  counts.add(saved);
  return dropped;
}

void ImportStore::read_newest_id() {
  int32_t rc = 0;
  sqlite3_stmt* const query = store()->prepare_sql("select max(id) from t_message", rc);
  if (rc != 0) throw ToolError("the store cannot be read: " + store().failure());
  store()->step(query, false);
  newest_id_ = Corvan::CvDbSingleton::get_int64(query, 0);
  store()->finalize(query);
}

// When a trigger drops an insert or an update, the save still returns an id: that of a row that was
// inserted before, into whatever table. A later insert may delete a row, too.
std::vector<std::size_t> ImportStore::save_each(const std::vector<ImportEntry>& batch,
                                                ImportCounts& counts) {
  std::vector<std::size_t> dropped;
  const LookUp look_up(*Corvan::CvDbSingleton::get_instance());
  saved_.clear();
  for (std::size_t i = 0; i < batch.size(); ++i) {
    const int64_t id = save_one(batch[i].message);
    if (!store().failure().empty()) fail_to_save(batch, i);
    if (id < 0) {
      ++counts.refused;
      continue;
    }
    // The store's ids only grow, so an older one is that of a message that was there before.
    const Saved saved = {i, id, id <= newest_id_};
    if (!is_there(look_up, batch[i].message, saved)) {
      dropped.push_back(i);
      continue;
    }
    ++(saved.completed ? counts.completed : counts.stored);
    newest_id_ = std::max(newest_id_, id);
    saved_.push_back(saved);
  }
  for (const Saved& saved : saved_) {
    if (!is_there(look_up, batch[saved.entry].message, saved)) dropped.push_back(saved.entry);
  }
  std::sort(dropped.begin(), dropped.end());
  return dropped;
}

int64_t ImportStore::save_one(const ImportMessage& m) {
  return store()->save_message(m.session_id, m.session_type, m.object_name, m.sender, m.content,
                               m.is_receive, m.sent_status, 0, m.is_mention, m.sent_time,
                               m.client_uid, m.server_uid, options_.history, options_.insert_only,
                               m.is_receive);
}

// Whether the store looks for an earlier message of the same client uid.
bool ImportStore::may_complete(const ImportMessage& message) const {
  return message.client_uid > 0 && !options_.history && !options_.insert_only;
}

bool ImportStore::is_there(const LookUp& look_up, const ImportMessage& message,
                           const Saved& saved) const {
  sqlite3_stmt* const row = look_up.row(saved.id);
  if (row == nullptr || !saved.completed) return row != nullptr;
  const std::string& sender = message.is_receive ? message.sender : options_.user;
  return may_complete(message) && text_at(row, 0) == message.session_id &&
         sqlite3_column_int(row, 1) == message.session_type && text_at(row, 2) == sender &&
         sqlite3_column_int64(row, 3) == message.client_uid &&
         (message.server_uid.empty() || text_at(row, 4) == message.server_uid);
}

void ImportStore::roll_back(int64_t newest_id) {
  store()->execute_none_query("rollback transaction");
  newest_id_ = newest_id;
}

void ImportStore::fail_to_save(const std::vector<ImportEntry>& batch, std::size_t entry) {
  store()->execute_none_query("rollback transaction");
  throw ToolError(file_ + ": " + failure() + "; nothing was stored from " + batch.front().place +
                  " on (at " + batch[entry].place + ")");
}

void ImportStore::fail_to_commit(const std::vector<ImportEntry>& batch, const ImportCounts& saved,
                                 ImportCounts& counts) {
  const bool is_certain = store().failure() != sqlite3_errstr(SQLITE_IOERR);
  const std::string why = file_ + ": " + failure();
  store_.reset();
  const auto is_there = [&](const Connection& connection) {
    return is_batch_there(connection, batch);
  };
  switch (is_certain ? CommitOutcome::kNothing : settle_failed_commit(file_, is_there)) {
    case CommitOutcome::kNothing:
      throw ToolError(why + "; nothing was stored from " + batch.front().place + " on");
    case CommitOutcome::kEverything:
      counts.add(saved);
      throw ToolError(why + "; all lines up to " + batch.back().place +
                      " are stored; import those after it");
    case CommitOutcome::kUnknown:
      break;
  }
  throw ToolError(why + "; nothing was stored after " + batch.back().place +
                  "; whether the lines from " + batch.front().place +
                  " to there were stored shows when the store can be written again; look for them "
                  "before you import them again, unless they have server uids");
}

// Looks for one row, since a transaction is stored whole: a new one if there is any.
bool ImportStore::is_batch_there(const Connection& connection,
                                 const std::vector<ImportEntry>& batch) const {
  if (saved_.empty()) return false;
  const auto last_new = std::find_if(saved_.rbegin(), saved_.rend(),
                                     [](const Saved& saved) { return !saved.completed; });
  const Saved& saved = last_new == saved_.rend() ? saved_.back() : *last_new;
  const ImportMessage& message = batch[saved.entry].message;
  bool found = false;
  const int rc = connection.each_row(
      "select 1 from t_message where id=? and session_id=? and (?=0 or server_uid=?)",
      [&found](sqlite3_stmt* /*row*/) { found = true; }, saved.id, message.session_id,
      static_cast<int64_t>(saved.completed), message.server_uid);
  if (rc != SQLITE_DONE) throw ToolError(connection.error());
  return found;
}

std::string ImportStore::failure() {
  const std::string& text = store().failure();
  const bool is_full = text == sqlite3_errstr(SQLITE_FULL);
  return is_full && are_ids_used_up(file_) ? kIdsUsedUp : text;
}

}  // namespace corvan_tool
