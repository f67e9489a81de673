// Sees the store's steps: the linker sends sqlite3_step() to the __wrap_ function.

#include "tests/faults/disk_history.h"

#include <sqlite3.h>

#include <stdexcept>

#include "tests/faults/disk_images.h"
#include "tests/support/rows.h"

namespace {

corvan_test::Recording* watching = nullptr;

}  // namespace

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
int __real_sqlite3_step(sqlite3_stmt* stmt);
int __wrap_sqlite3_step(sqlite3_stmt* stmt);

int __wrap_sqlite3_step(sqlite3_stmt* stmt) {
  const int rc = __real_sqlite3_step(stmt);
  const bool committed = rc == SQLITE_DONE && sqlite3_get_autocommit(sqlite3_db_handle(stmt)) != 0;
  if (watching != nullptr && committed) watching->after_step();
  return rc;
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"

namespace corvan_test {
namespace {

StoreState state_of(const DiskImage& image) {
  if (image.empty()) return new_store_state();
  const TemporaryFolder folder;
  write_folder(folder.path(), image);
  const std::string file = folder.file("corvan");
  const bool empty = rows(file, "select count(*) from sqlite_master") == StoreState{"0"};
  try {
    return empty ? new_store_state() : rows(file, kStoreState);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(std::string("committed was what is no whole store: ") + error.what());
  }
}

StoreState make_new_store() {
  const TemporaryFolder folder;
  if (!open_store(folder.path())) throw std::runtime_error("cannot create a store");
  Corvan::CvDbSingleton::delete_instance();
  return rows(folder.file("corvan"), kStoreState);
}

}  // namespace

const char* const kStoreState =
    "select type,name,tbl_name,sql from sqlite_master order by name;"
    "pragma user_version;"
    "select 'version',database_version from t_version;"
    "select 'sequence',name,seq from sqlite_sequence order by name;"
    "select 'sync',user_id,receive_time,sent_time from t_sync order by user_id;"
    "select 'session',session_id,session_type,title,draft,is_top,session_time,unread_count,"
    "mention_count,silence,latest_id,read_time,receipt_time from t_session "
    "order by session_id,session_type;"
    "select 'message',id,session_id,session_type,object_name,content,sender,direction,"
    "case sent_status when 1 then 2 else sent_status end,read_status,is_mention,sent_time,"
    "client_uid,server_uid from t_message order by id;";

const StoreState& new_store_state() {
  static const StoreState state = make_new_store();
  return state;
}

bool open_store(const std::string& folder) {
  return Corvan::CvDbSingleton::get_instance()->init_open_db(cvrtc::Pathname(folder), "", "me");
}

// ---- History ------------------------------------------------------------------------------------

std::pair<std::size_t, std::size_t> History::allowed(std::size_t event) const {
  std::size_t first = 0;
  for (const Acknowledged& mark : acknowledged) {
    if (mark.event <= event) first = mark.state;
  }
  std::size_t last = 0;
  while (last + 1 < states.size() && states[last].event < event) ++last;
  return {first, last};
}

// ---- Recording ----------------------------------------------------------------------------------

Recording::Recording(const DiskImage& start, DiskRecorder::Syncs syncs) {
  write_folder(folder_.path(), start);
  recorder_ = std::make_unique<DiskRecorder>(start, syncs);
  commits_ = {0};
  acknowledge();
  watching = this;
}

Recording::~Recording() {
  watching = nullptr;
  Corvan::CvDbSingleton::delete_instance();
}

void Recording::open() {
  if (!open_store(folder_.path())) throw std::runtime_error("cannot open the store");
  acknowledge();
}

void Recording::after_step() {
  const std::size_t events = recorder_->record().events.size();
  if (events != commits_.back()) commits_.push_back(events);
}

void Recording::acknowledge() {
  acknowledged_.push_back({recorder_->record().events.size(), commits_.size() - 1});
}

History Recording::finish() {
  watching = nullptr;
  recorder_->end();
  const DiskImage left = read_folder(folder_.path());
  store().close_db();

  History history = {recorder_->record(), {}, acknowledged_};
  recorder_.reset();
  Disk disk(history.record);
  for (const std::size_t commit : commits_) {
    while (disk.events() < commit) disk.advance();
    history.states.push_back({commit, state_of(disk.image(disk.all_kept()))});
  }
  while (!disk.at_end()) disk.advance();
  if (disk.image(disk.all_kept()) != left) throw std::runtime_error("the record is not complete");
  return history;
}

}  // namespace corvan_test
