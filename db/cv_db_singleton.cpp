#include "db/cv_db_singleton.h"

#include <sqlite3.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <iterator>
#include <new>
#include <ostream>
#include <string_view>
#include <type_traits>
#include <utility>

#include "base/cv_database.h"
#include "base/cv_utils.h"
#include "base/fatal_message.h"
#include "base/filesystem.h"
#include "base/log_message.h"
#include "base/timestamp.h"

// Defined under a leak checker. g++ defines no macro for -fsanitize=leak alone, so the build does.
#if !defined(CV_LEAK_CHECKED)
#if defined(__SANITIZE_ADDRESS__)
#define CV_LEAK_CHECKED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(leak_sanitizer)
#define CV_LEAK_CHECKED 1
#endif
#endif
#endif
#if defined(CV_LEAK_CHECKED)
#include <sanitizer/lsan_interface.h>
#endif

// Aborts the process with the condition's text and a note if the condition is false.
#define CV_CHECK(condition, note) \
  if (condition) {                \
  } else                          \
    cvrtc::FatalMessage(__FILE__, __LINE__).stream() << "Check failed: " #condition "\n# " note

namespace Corvan {

// Gives the helpers below access to prepare().
struct CvDbPreparing {
  static sqlite3_stmt* prepare(CvDbSingleton& store, const char* sql, int32_t& success) {
    return store.prepare(sql, success);
  }
};

namespace {

using cvrtc::LogMessage;

// A statement's text, usually a literal; it is not copied.
class Sql {
 public:
  Sql(const char* text) : text_(text) {}
  Sql(const std::string& text) : text_(text.c_str()) {}
  const char* c_str() const { return text_; }

 private:
  const char* text_;
};

constexpr int32_t kNoConnection = -1;

// The `type` of get_maxtime() and get_max_message_id().
enum MessageChoice : int32_t { kSentState = 0, kReceived = 1, kAny = 2 };

// The `profile` bits of set_session_time().
constexpr uint32_t kProfileHistory = 1;
constexpr uint32_t kProfileInsertOnly = 2;
constexpr uint32_t kProfileCustomizedTime = 4;

// Messages of this kind do not become their conversation's newest one if they are late.
constexpr const char* kNotificationName = "CV:QbNtf";

// Writes a field of a log line. A field that is expensive to compute is passed as a function.
template <typename Field>
void put(std::ostream& out, const Field& field) {
  if constexpr (std::is_invocable_v<const Field&>) {
    out << field();
  } else {
    out << field;
  }
}

// Writes one log line: signature, ": " and the fields. Fields are not computed if the logger does
// not accept the severity. If memory runs out, the line is lost and the caller continues.
template <typename... Fields>
void log(cvrtc::LoggingSeverity severity, const char* signature, const Fields&... fields) {
  if (!LogMessage::Loggable(severity)) return;
  try {
    LogMessage message(severity);
    message.stream() << signature << ": ";
    (put(message.stream(), fields), ...);
  } catch (const std::bad_alloc&) {
  }
}

// Logs an SQLite failure that is not fatal.
void warn(CvDbSingleton& store, const char* signature, const char* tag, int32_t code) {
  log(cvrtc::LS_WARNING, signature, tag, code, ";;;", [&store] { return store.get_error(); });
}

// The current row's column up to its first zero byte, valid until the next step; NULL reads as "".
const char* column_text(sqlite3_stmt* stmt, int32_t index) {
  const unsigned char* text = sqlite3_column_text(stmt, index);
  return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

// The statement's text with the bound values; empty if SQLite is out of memory. SQLite's buffer for
// it is never released.
std::string expanded_sql(sqlite3_stmt* stmt) {
  const char* text = sqlite3_expanded_sql(stmt);
#if defined(CV_LEAK_CHECKED)
  __lsan_ignore_object(text);
#endif
  return text == nullptr ? "" : text;
}

// Counters and times can hold any value in rows that something else wrote, so sums wrap around.
int32_t wrapping_sum(int32_t a, int32_t b) {
  return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}
int64_t wrapping_sum(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

// Appends `item` to a list of items separated by commas.
void append_item(std::string& list, const std::string& item) {
  if (!list.empty()) list += ",";
  list += item;
}

void append_item(std::string& list, int64_t number) {
  std::array<char, 20> digits;
  char* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  if (!list.empty()) list += ',';
  list.append(digits.data(), end);
}

std::string decimal(int64_t number) {
  std::string text;
  CvDbSingleton::number_to_string(text, number);
  return text;
}

// The condition on messages in get_maxtime() and get_max_message_id().
const char* choice_clause(int32_t type) {
  if (type == kReceived) return " and direction=1";
  if (type == kSentState) return " and sent_status=0";
  return "";
}

// One prepared statement, finalised by the destructor at the latest. Bound texts are not copied:
// they must outlive the object, unchanged.
class Statement {
 public:
  Statement(CvDbSingleton& store, Sql sql)
      : store_(store), stmt_(CvDbPreparing::prepare(store, sql.c_str(), prepare_code_)) {}
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  ~Statement() { finalize(); }

  bool prepared() const { return prepare_code_ == SQLITE_OK; }
  int32_t prepare_code() const { return prepare_code_; }

  // Binds each value to the next parameter, starting with the first.
  template <typename... Values>
  void bind(const Values&... values) {
    (CvDbSingleton::bind(stmt_, ++bound_, values), ...);
  }

  // Steps once; true if there is a row.
  bool row() { return step() == SQLITE_ROW; }
  int32_t step() { return store_.step(stmt_, false); }

  // Steps once, finalises whatever the result, and returns the result.
  int32_t run() { return store_.step(std::exchange(stmt_, nullptr), true); }

  // Makes the statement ready for the next set of values.
  void reset() {
    store_.reset(stmt_);
    bound_ = 0;
  }

  void finalize() {
    if (stmt_ != nullptr) store_.finalize(std::exchange(stmt_, nullptr));
  }

  int32_t get_int(int32_t index) const { return CvDbSingleton::get_int(stmt_, index); }
  int64_t get_int64(int32_t index) const { return CvDbSingleton::get_int64(stmt_, index); }
  void get(int32_t index, int32_t& value) const { value = get_int(index); }
  void get(int32_t index, int64_t& value) const { value = get_int64(index); }
  const char* text(int32_t index) const { return column_text(stmt_, index); }
  sqlite3_stmt* handle() const { return stmt_; }

 private:
  CvDbSingleton& store_;
  int32_t prepare_code_ = SQLITE_OK;
  sqlite3_stmt* stmt_;
  int32_t bound_ = 0;
};

// A transaction that the destructor commits on every path.
class Transaction {
 public:
  explicit Transaction(CvDbSingleton& store) : store_(store) { store_.start_transaction(); }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;
  ~Transaction() {
    try {
      store_.commit_transaction();
    } catch (const std::bad_alloc&) {
      // Only closing a damaged file allocates memory here, and closing ends the transaction.
    }
  }

 private:
  CvDbSingleton& store_;
};

// Runs one statement with these values. Returns the step's code, or the prepare's if that fails.
template <typename... Values>
int32_t run(CvDbSingleton& store, Sql sql, const Values&... values) {
  Statement statement(store, sql);
  if (!statement.prepared()) return statement.prepare_code();
  statement.bind(values...);
  return statement.run();
}

// Runs a write. True if it ran to completion, even if it changed no row.
template <typename... Values>
bool write(CvDbSingleton& store, Sql sql, const Values&... values) {
  return run(store, sql, values...) == SQLITE_DONE;
}

// Whether a query returns a row.
template <typename... Values>
bool exists(CvDbSingleton& store, Sql sql, const Values&... values) {
  return run(store, sql, values...) == SQLITE_ROW;
}

// Reads the first column of a query's first row into `value`, which does not change if there is no
// row. False only if the statement cannot be prepared.
template <typename Integer, typename... Values>
bool read(CvDbSingleton& store, Integer& value, Sql sql, const Values&... values) {
  Statement query(store, sql);
  if (!query.prepared()) return false;
  query.bind(values...);
  if (query.row()) query.get(0, value);
  return true;
}

// Reserves space for a page, but at most kLargest records, if the vector is empty.
template <typename Record>
void reserve_page(std::vector<Record>& records, int32_t limit) {
  constexpr int32_t kLargest = 64;
  if (!records.empty() || limit <= 0) return;
  records.reserve(static_cast<std::size_t>(std::min(limit, kLargest)));
}

// Appends a record that `fill` fills in place, or nothing if memory runs out meanwhile.
template <typename Record, typename Fill>
void append_record(std::vector<Record>& records, const Fill& fill) {
  Record& record = records.emplace_back();
  try {
    fill(record);
  } catch (const std::bad_alloc&) {
    records.pop_back();
    throw;
  }
}

// Fills the latest message's fields, except its time. The columns from `first` on are content,
// object_name, sender, direction, read_status, sent_status, sent_time, server_uid.
void fill_message(Session& row, const Statement& query, int32_t first) {
  row.content_ = query.text(first);
  row.object_name_ = query.text(first + 1);
  row.sender_ = query.text(first + 2);
  row.is_recieve_ = query.get_int(first + 3);
  row.read_status_ = query.get_int(first + 4);
  row.sent_status_ = query.get_int(first + 5);
  row.server_uid_ = query.text(first + 7);
}

// Fills a list entry, which has its id and kind already, from a row; not the message's time.
void fill_entry(SessionInfo& entry, Session&& row) {
  entry.title_ = std::move(row.title_);
  entry.draft_ = std::move(row.draft_);
  entry.is_top_ = row.is_top_;
  entry.silence_ = row.silence_;
  entry.unread_count_ = row.unread_count_;
  entry.mention_count_ = row.mention_count_;
  entry.session_time = row.session_time_;
  entry.message_.session_id_ = entry.session_id_;
  entry.message_.session_type_ = static_cast<SessionType>(entry.session_type_);
  entry.message_.msg_id_ = row.latest_id_;
  entry.message_.is_receive_ = row.is_recieve_ != 0;
  entry.message_.content_ = std::move(row.content_);
  entry.message_.object_name_ = std::move(row.object_name_);
  entry.message_.sender_ = std::move(row.sender_);
  entry.message_.server_uid_ = std::move(row.server_uid_);
  entry.message_.read_status_ = row.read_status_;
  entry.message_.sent_status_ = row.sent_status_;
}

// Calls `take` with the query at each message with one of these ids. Columns 0 and 1 are the
// conversation's id and kind; fill_message() reads those from 2 on. False if the statement cannot
// be prepared.
template <typename Take>
bool for_each_message(CvDbSingleton& store, const std::string& msg_id, const Take& take) {
  Statement query(store,
                  "select session_id,session_type,content,object_name,sender,direction,read_status,"
                  "sent_status,sent_time,server_uid from t_message where id in(" +
                      msg_id + ")");
  if (!query.prepared()) return false;
  while (query.row()) take(query);
  return true;
}

// Finds rows by their conversation. Sorted by the hashes of the ids, because hashes compare faster
// than ids.
class RowIndex {
 public:
  explicit RowIndex(std::vector<Session>& rows) {
    entries_.reserve(rows.size());
    for (Session& row : rows) entries_.push_back({hash_of(row.session_id_), &row});
    std::sort(entries_.begin(), entries_.end(), before);
  }

  // Calls `take` with each row of the conversation.
  template <typename Take>
  void for_each(std::string_view session_id, int32_t session_type, const Take& take) const {
    const Entry wanted{hash_of(session_id), nullptr};
    auto entry = std::lower_bound(entries_.begin(), entries_.end(), wanted, before);
    for (; entry != entries_.end() && entry->hash == wanted.hash; ++entry) {
      Session& row = *entry->row;
      if (row.session_type_ == session_type && row.session_id_ == session_id) take(row);
    }
  }

 private:
  struct Entry {
    std::size_t hash;
    Session* row;
  };
  static std::size_t hash_of(std::string_view id) { return std::hash<std::string_view>()(id); }
  static bool before(const Entry& a, const Entry& b) { return a.hash < b.hash; }

  std::vector<Entry> entries_;
};

// Sorts a page whose rows come in runs of equal is_top_. Session's operator< is a strict order only
// within a run, so each run is sorted in its place.
void sort_page(std::vector<Session>& rows) {
  auto run_begin = rows.begin();
  while (run_begin != rows.end()) {
    const int32_t is_top = run_begin->is_top_;
    const auto run_end = std::find_if(
        run_begin, rows.end(), [is_top](const Session& row) { return row.is_top_ != is_top; });
    if (!std::is_sorted(run_begin, run_end)) std::stable_sort(run_begin, run_end);
    run_begin = run_end;
  }
}

}  // namespace

// ---- Lifecycle and opening ----------------------------------------------------------------------

CvDbSingleton* CvDbSingleton::instance_ = nullptr;

CvDbSingleton::~CvDbSingleton() {
  close_db();
}

CvDbSingleton* CvDbSingleton::get_instance() {
  if (instance_ == nullptr) instance_ = new CvDbSingleton;
  return instance_;
}

void CvDbSingleton::delete_instance() {
  delete instance_;
  instance_ = nullptr;
}

bool CvDbSingleton::init_open_db(const cvrtc::Pathname& db_path, const std::string& /*app_key*/,
                                 const std::string& user_id) {
  local_path_ = db_path;
  local_path_.SetFilename("corvan");
  cvrtc::Pathname dbpath = local_path_;
  dbpath.SetExtension(".db");
  // The store's file has no extension; one with ".db" only counts as a sign that the files exist.
  const bool exists_dec = is_file_exist(local_path_);
  const bool exists_enc = is_file_exist(dbpath);
  if (db_ != nullptr && user_id == user_id_ && (exists_dec || exists_enc)) {
    clear_sendstatus(true);
    return true;
  }

  user_id_ = user_id;
  if (open_db() != SQLITE_OK) return false;
  execute_none_query("pragma journal_mode=WAL");
  execute_none_query("pragma wal_autocheckpoint=5000");
  execute_none_query("pragma temp_store=2");

  const std::string databaseVersion = get_database_version();
  const Transaction transaction(*this);
  if (databaseVersion.empty()) {
    execute_none_query("pragma page_size=4096");
    for (const auto& [name, sql] : CvDatabase::table_index()) execute_none_query(sql);
    execute_none_query("pragma user_version=1");
  }
  if (get_pragma("pragma secure_delete") <= 0) execute_none_query("pragma secure_delete=ON");
  clear_sendstatus(true);
  return true;
}

void CvDbSingleton::close_db() {
  if (db_ == nullptr) return;
  if (sqlite3_close(db_) == SQLITE_BUSY) {
    sqlite3_interrupt(db_);
    sqlite3_close(db_);
  }
  db_ = nullptr;
}

std::string CvDbSingleton::get_database_version() {
  std::string version;
  if (is_table_exist("t_version")) {
    Statement query(*this, "select database_version from t_version");
    if (query.prepared() && query.row()) version = query.text(0);
  }
  return version;
}

bool CvDbSingleton::is_table_exist(const std::string& name) {
  return exists(*this, "select name from sqlite_master where type='table' and name='" + name + "'");
}

bool CvDbSingleton::check_integrity(std::string& result) {
  Statement query(*this, "pragma integrity_check;");
  if (!query.prepared()) {
    result = "not a database file";
    return false;
  }
  while (query.row()) {
    if (!result.empty()) result += "_";
    result += query.text(0);
    if (result == "ok") return true;
  }
  return false;
}

int32_t CvDbSingleton::is_db_unlocked(const std::string& /*password*/) {
  return sqlite3_exec(db_, "select type from sqlite_master;", nullptr, nullptr, nullptr);
}

void CvDbSingleton::createdb_copydata() {
  const Transaction transaction(*this);
  std::vector<std::string> schema;
  {
    Statement query(*this, "select type,tbl_name,sql from odb.sqlite_master");
    if (!query.prepared()) return;
    while (query.row()) {
      const std::string type = query.text(0);
      const std::string table = query.text(1);
      const std::string sql = query.text(2);
      const bool wanted = (type == "table" || type == "index") && table != "sqlite_sequence";
      if (wanted && !sql.empty()) schema.push_back(sql);
    }
  }
  for (const std::string& sql : schema) execute_none_query(sql);
  execute_none_query("insert or replace into t_sync select * from odb.t_sync;");
  execute_none_query("insert or replace into t_message select * from odb.t_message;");
  execute_none_query("insert or replace into t_session select * from odb.t_session;");
  const int32_t user_version = get_pragma("pragma odb.user_version");
  if (user_version > 0) execute_none_query("pragma user_version=" + decimal(user_version));
}

int32_t CvDbSingleton::open_db() {
  const std::string file_name = local_path_.pathname();
  local_path8_ = local_path_;
  const int32_t rc = open_db(file_name);
  if (rc != SQLITE_OK) close_db();  // SQLite hands out a connection even then
  return rc;
}

int32_t CvDbSingleton::open_db(const std::string& file_name) {
  return sqlite3_open_v2(file_name.c_str(), &db_,
                         SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX,
                         nullptr);
}

bool CvDbSingleton::is_file_exist(const cvrtc::Pathname& path_name) {
  return cvrtc::Filesystem::IsFile(path_name);
}

void CvDbSingleton::clear_sendstatus(bool /*exist_tmp_table*/) {
  execute_none_query("update t_message set sent_status=2 where sent_status=1");
}

// ---- Transactions and sync times ----------------------------------------------------------------

bool CvDbSingleton::start_transaction() {
  return run(*this, "begin transaction") == SQLITE_DONE;
}

bool CvDbSingleton::commit_transaction() {
  const int32_t rc = run(*this, "commit transaction");
  if (rc != SQLITE_DONE) run(*this, "rollback transaction");
  return rc == SQLITE_DONE;
}

bool CvDbSingleton::set_sync_time(int64_t sync_time, bool is_receive) {
  int64_t recv_time = 0;
  int64_t sent_time = 0;
  if (!get_sync_time(&recv_time, &sent_time)) {
    log(cvrtc::LS_WARNING, "bool Corvan::CvDbSingleton::set_sync_time(int64_t, bool)",
        "cv;;;get receive time;;;failed");
  }
  int64_t& mark = is_receive ? recv_time : sent_time;
  if (mark >= sync_time) return false;
  mark = sync_time;
  return write(*this, "replace into t_sync(user_id,receive_time,sent_time) values(?,?,?)", user_id_,
               recv_time, sent_time);
}

bool CvDbSingleton::get_sync_time(int64_t* recv_time, int64_t* sent_time) {
  Statement query(*this, "select receive_time,sent_time from t_sync where user_id=?");
  if (!query.prepared()) return false;
  query.bind(user_id_);
  const int32_t rc = query.step();
  if (rc == SQLITE_ROW) {
    *recv_time = query.get_int64(0);
    if (sent_time != nullptr) *sent_time = query.get_int64(1);
  }
  return rc == SQLITE_ROW || rc == SQLITE_DONE;
}

// ---- Saving messages ----------------------------------------------------------------------------

int64_t CvDbSingleton::save_message(const std::string& session_id, SessionType session_type,
                                    const std::string& object_name, const std::string& sender,
                                    const std::string& content, bool is_receive,
                                    int32_t sent_status, int32_t read_status, bool is_mention,
                                    int64_t sent_time, int64_t client_uid,
                                    const std::string& server_uid, bool history, bool insert_only,
                                    bool is_count) {
  static constexpr const char* kSignature =
      "int64_t Corvan::CvDbSingleton::save_message(const std::string &, Corvan::SessionType, "
      "const std::string &, const std::string &, const std::string &, bool, int32_t, int32_t, "
      "bool, int64_t, int64_t, const std::string &, bool, bool, bool)";

  const int64_t local_time = Timestamp();
  const bool use_customized_time = insert_only && sent_time > 0;
  if (sent_time < 1) sent_time = local_time;

  // The caller's read status is replaced by one derived from direction and kind of conversation.
  // Own messages are looked up under the signed-in user's id, whatever `sender` is.
  const std::string& send_user_id = is_receive ? sender : user_id_;
  read_status = is_receive ? 0 : 1;
  if (session_type == CV_CHATROOM) read_status = 1;

  if (is_message_exist(server_uid)) {
    log(cvrtc::LS_INFO, kSignature, "cv;;;save_msg;;;msg exists: ", server_uid);
    return -1;
  }
  if (!insert_only && !history) {
    int64_t old_id = 0;
    std::string old_uid;
    if (is_message_exist(client_uid, send_user_id, session_id, session_type, old_id, old_uid)) {
      if (old_uid.empty()) {
        set_send_time_for_dup_msg(old_id, sent_time, server_uid);
        return old_id;
      }
      log(cvrtc::LS_INFO, kSignature, "cv;;;save_msg;;;msg exists: ", client_uid);
      return -1;
    }
  }

  Statement insert(*this,
                   "insert into t_message(session_id,session_type,object_name,content,sender,"
                   "direction,sent_status,read_status,is_mention,sent_time,client_uid,server_uid) "
                   "values(?,?,?,?,?,?,?,?,?,?,?,?)");
  if (!insert.prepared()) return -1;
  insert.bind(session_id, session_type, object_name, content, sender, is_receive, sent_status,
              read_status, is_mention, sent_time, client_uid, server_uid);
  const int32_t rc = insert.run();
  if (rc != SQLITE_DONE) {
    log(cvrtc::LS_WARNING, kSignature, "cv;;;save_msg;;;step error: ", rc);
    return -1;
  }
  const int64_t msg_id = sqlite3_last_insert_rowid(db_);
  log(cvrtc::LS_SENSITIVE, kSignature, "cv;;;save_msg;;;rowid: ", msg_id);

  const int32_t unread = is_count ? 1 : 0;
  const int32_t mention = is_mention ? 1 : 0;
  if (is_session_exist(session_id, session_type)) {
    uint32_t profile = 0;
    if (history) profile |= kProfileHistory;
    if (insert_only) profile |= kProfileInsertOnly;
    if (use_customized_time) profile |= kProfileCustomizedTime;
    set_session_time(session_id, session_type, sent_time, object_name, msg_id, unread, mention,
                     profile);
  } else {
    add_session(session_id, session_type, sent_time, msg_id, "", unread, mention);
  }
  log(cvrtc::LS_INFO, kSignature, "cv;;;save_msg;;; msg_id: ", msg_id);
  return msg_id;
}

bool CvDbSingleton::save_message(const std::vector<std::unique_ptr<MessageResponse>>& msg) {
  Statement insert(*this,
                   "insert into t_message(session_id,session_type,object_name,sender,content,"
                   "direction,read_status,sent_status,sent_time,client_uid,server_uid) "
                   "values(?,?,?,?,?,?,?,?,?,?,?)");
  if (!insert.prepared()) return false;
  for (const std::unique_ptr<MessageResponse>& message : msg) {
    MessageResponse& m = *message;
    if (m.msg_id_ >= 0) continue;
    if (!m.is_store_) {
      m.msg_id_ = 0;
      continue;
    }
    insert.reset();
    insert.bind(m.session_id_, m.session_type_, m.object_name_, m.sender_, m.content_,
                m.is_receive_, m.read_status_, m.sent_status_, m.sent_time_, m.client_uid_,
                m.server_uid_);
    insert.step();
    m.msg_id_ = sqlite3_last_insert_rowid(db_);
  }
  return true;
}

bool CvDbSingleton::is_message_exist(const std::string& session_id, SessionType session_type,
                                     int64_t timestamp) {
  return exists(*this,
                "select 1 from t_message where session_id=? and session_type=? and sent_time>? "
                "and (direction=1 or (direction=0 and sent_status=3)) limit 1",
                session_id, session_type, timestamp);
}

bool CvDbSingleton::is_message_exist(const std::string& msg_uid,
                                     std::vector<std::string>& exist_uid) {
  Statement query(*this, "select server_uid from t_message where server_uid in(" + msg_uid + ")");
  if (!query.prepared()) return false;
  while (query.row()) exist_uid.emplace_back(query.text(0));
  return true;
}

bool CvDbSingleton::is_message_exist(std::vector<UpdateValue>& msg) {
  Statement query(*this,
                  "select id,server_uid from t_message where session_id=? and session_type=? "
                  "and client_uid=? and sender=? limit 1");
  if (!query.prepared()) return false;
  bool matched = false;
  for (UpdateValue& value : msg) {
    query.reset();
    query.bind(value.session_id_, value.session_type_, value.client_uid_, value.sender_);
    if (!query.row()) continue;
    value.msg_id_ = query.get_int(0);
    value.server_uid_old_ = query.text(1);
    matched = true;
  }
  return matched;
}

void CvDbSingleton::set_send_time_for_dup_msg(int64_t msg_id, int64_t sent_time,
                                              const std::string& msg_uid) {
  run(*this, "update t_message set sent_status=0,server_uid=?,sent_time=? where id=?", msg_uid,
      sent_time, msg_id);
}

void CvDbSingleton::set_send_time_for_dup_msg(const std::vector<UpdateValue>& msg) {
  Statement update(*this, "update t_message set sent_status=0,server_uid=?,sent_time=? where id=?");
  if (!update.prepared()) return;
  for (const UpdateValue& value : msg) {
    if (!value.server_uid_old_.empty() || value.msg_id_ <= 0) continue;
    update.reset();
    update.bind(value.server_uid_new_, value.sent_time_, value.msg_id_);
    update.step();
  }
}

bool CvDbSingleton::is_message_exist(const std::string& msg_uid) {
  if (msg_uid.empty()) return false;
  return exists(*this, "select 1 from t_message where server_uid=? limit 1", msg_uid);
}

bool CvDbSingleton::is_message_exist(int64_t client_uid, const std::string& sender_id,
                                     const std::string& session_id, int32_t session_type,
                                     int64_t& msg_id, std::string& msg_uid) {
  if (client_uid <= 0) return false;
  Statement query(*this,
                  "select id,server_uid from t_message where session_id=? and session_type=? "
                  "and client_uid=? and sender=? limit 1");
  if (!query.prepared()) return false;
  query.bind(session_id, session_type, client_uid, sender_id);
  if (!query.row()) return false;
  msg_id = query.get_int(0);
  msg_uid = query.text(1);
  return true;
}

// ---- Message state ------------------------------------------------------------------------------

void CvDbSingleton::set_send_time(int64_t msg_id, int64_t sent_time, const std::string& msg_uid,
                                  const std::string& session_id, SessionType session_type,
                                  int32_t fail_reason) {
  const Transaction transaction(*this);
  const int32_t flag = set_sendtime(msg_id, sent_time, msg_uid, fail_reason);
  if (flag == SQLITE_DONE && sent_time > 0) {
    set_sessiontime(sent_time, msg_id, session_id, session_type);
  }
}

bool CvDbSingleton::update_sent_status(int64_t msg_id, int32_t sentStatus) {
  return write(*this, "update t_message set sent_status=? where id=?", sentStatus, msg_id);
}

bool CvDbSingleton::set_read_status(int64_t msg_id, int32_t read_status) {
  const Transaction transaction(*this);
  std::string session_id;
  int32_t session_type = 0;
  bool is_unread = false;
  bool is_mention = false;
  int64_t sent_time = 0;
  if (!get_message_by_id(msg_id, session_id, session_type, is_unread, is_mention, sent_time)) {
    return false;
  }
  if (!common_message_int(msg_id, read_status,
                          "update t_message set read_status=?,is_mention=0 where id=?")) {
    return false;
  }
  const int32_t mention = is_mention ? 1 : 0;
  if (read_status >= 1 && is_unread) {
    set_unread_by_value(session_id, session_type, 1, mention);
  } else if (read_status == 0 && !is_unread) {
    set_unread_by_value(session_id, session_type, -1, mention);
  }
  return true;
}

bool CvDbSingleton::update_message_receipt_status(const std::string& session_id,
                                                  SessionType session_type, int64_t sent_time) {
  int64_t receipt_time = 0;
  get_receipttime(session_id, session_type, receipt_time);
  const bool forward = receipt_time < sent_time;

  std::string sql = "update t_message set sent_status=3 where session_id=? and session_type=? ";
  if (forward) sql += "and sent_time>? ";
  sql += "and sent_time<=? and direction=0 and sent_status=0";
  Statement update(*this, sql);
  if (!update.prepared()) return false;
  update.bind(session_id, session_type);
  if (forward) update.bind(receipt_time);
  update.bind(sent_time);
  const bool done = update.run() == SQLITE_DONE;
  if (done && forward) set_receipttime(session_id, session_type, sent_time);
  return done;
}

bool CvDbSingleton::set_message_content(int64_t msg_id, const std::string& content,
                                        const std::string& object_name) {
  std::string sql = "update t_message set content=?";
  if (!object_name.empty()) sql += ",object_name=?,is_mention=0";
  sql += " where id=?";
  Statement update(*this, sql);
  if (!update.prepared()) return false;
  update.bind(content);
  if (!object_name.empty()) update.bind(object_name);
  update.bind(msg_id);
  return update.run() == SQLITE_DONE;
}

void CvDbSingleton::get_client_uid(const std::string& session_id, SessionType session_type,
                                   int64_t& client_uid) {
  read(*this, client_uid,
       "select client_uid from t_message where session_id=? and session_type=? "
       "and sent_status=0 order by sent_time desc limit 1",
       session_id, session_type);
}

void CvDbSingleton::get_client_uid(int64_t msg_id, int64_t& client_uid) {
  static constexpr const char* kSignature =
      "void Corvan::CvDbSingleton::get_client_uid(int64_t, int64_t &)";

  log(cvrtc::LS_INFO, kSignature, "get_client_uid: begin,msg_id_: ", msg_id);
  Statement query(*this, "select client_uid from t_message where id=?");
  if (!query.prepared()) return;
  query.bind(msg_id);
  if (query.row()) {
    log(cvrtc::LS_INFO, kSignature, "get_client_uid: begin,SQLITE_ROW: ");
    client_uid = query.get_int64(0);
  }
  query.finalize();
  log(cvrtc::LS_INFO, kSignature, "get_client_uid: end,client_uid: ", client_uid);
}

int32_t CvDbSingleton::set_sendtime(int64_t msg_id, int64_t sent_time, const std::string& msg_uid,
                                    int32_t fail_reason) {
  std::string sql = "update t_message set sent_status=";
  sql += fail_reason != 0 ? "2" : "0";
  if (!msg_uid.empty()) sql += ",server_uid=?";
  if (sent_time > 0) sql += ",sent_time=?";
  sql += " where id=?";
  Statement update(*this, sql);
  if (!update.prepared()) return update.prepare_code();
  if (!msg_uid.empty()) update.bind(msg_uid);
  if (sent_time > 0) update.bind(sent_time);
  update.bind(msg_id);
  return update.run();
}

bool CvDbSingleton::common_message_int(int64_t msg_id, int32_t value, const std::string& sql) {
  return write(*this, sql, value, msg_id);
}

bool CvDbSingleton::common_message_text(int64_t msg_id, const std::string& value,
                                        const std::string& sql) {
  return write(*this, sql, value, msg_id);
}

// ---- Deleting and clearing messages -------------------------------------------------------------

bool CvDbSingleton::delete_message(const std::vector<int64_t>& msg_id_v) {
  std::string msg_id;
  for (const int64_t id : msg_id_v) {
    if (id >= 1) append_item(msg_id, id);
  }

  const Transaction transaction(*this);
  std::vector<Session> vec_msg;
  std::vector<Session> vec_con;
  const bool qryMsgs = load_distinct_session_with_unread(vec_msg, msg_id);
  const bool qryCons = load_session_with_latestid(vec_con, msg_id);
  if (!write(*this, "delete from t_message where id in(" + msg_id + ")")) return false;

  if (qryMsgs) {
    for (const Session& s : vec_msg) {
      if (s.unread_count_ <= 0) continue;
      set_unread_by_value(s.session_id_, s.session_type_, s.unread_count_, s.mention_count_);
    }
  }
  if (qryCons) {
    for (const Session& s : vec_con) {
      int64_t latest_id = -1;
      int64_t latest_time = 0;
      if (get_message_latestid(s.session_id_, s.session_type_, latest_id, latest_time)) {
        set_message_latestid(s.session_id_, s.session_type_, latest_id, latest_time);
      }
    }
  }
  return true;
}

void CvDbSingleton::delete_message(const std::string& session_id, SessionType session_type,
                                   const std::vector<std::string>& msg) {
  std::string msg_uid;
  for (const std::string& uid : msg) append_item(msg_uid, "'" + uid + "'");
  if (!write(*this, "delete from t_message where server_uid in(" + msg_uid + ")")) return;
  int64_t latest_id = -1;
  int64_t latest_time = 0;
  if (get_message_latestid(session_id, session_type, latest_id, latest_time)) {
    set_message_latestid(session_id, session_type, latest_id, latest_time);
  }
}

bool CvDbSingleton::clear_message(const std::string& session_id, SessionType session_type,
                                  bool clean) {
  bool rc = delete_message(session_id, session_type);
  set_message_latestid(session_id, session_type, -1, 0);
  if (clean) rc = execute_none_query("VACUUM") == SQLITE_DONE;
  return rc;
}

bool CvDbSingleton::clear_message_by_timestamp(int64_t sent_time, bool clean) {
  Statement statement(*this, "delete from t_message where sent_time<?");
  if (!statement.prepared()) return false;
  statement.bind(sent_time);
  const int32_t rc = statement.run();
  if (clean) execute_none_query("VACUUM");
  return rc == SQLITE_DONE;
}

bool CvDbSingleton::delete_message(const std::string& session_id, int32_t session_type) {
  return write(*this, "delete from t_message where session_id=? and session_type=?", session_id,
               session_type);
}

// ---- Message queries ----------------------------------------------------------------------------

bool CvDbSingleton::get_message_by_id(MessageResponse& msg) {
  return query_message(msg, false);
}

bool CvDbSingleton::get_message_by_uid(MessageResponse& msg) {
  return query_message(msg, true);
}

bool CvDbSingleton::get_history_message_by_object_name(const std::string& session_id,
                                                       SessionType session_type,
                                                       const std::vector<std::string>& object_name,
                                                       int64_t messageId, int32_t count,
                                                       std::vector<MessageResponse>& msg,
                                                       bool desc) {
  static constexpr const char* kSignature =
      "bool Corvan::CvDbSingleton::get_history_message_by_object_name(const std::string &, "
      "Corvan::SessionType, const std::vector<std::string> &, int64_t, int32_t, "
      "std::vector<Corvan::MessageResponse> &, bool)";

  int64_t search_time = 0;
  if (messageId != 0) {
    search_time = get_send_time(messageId);
  } else {
    get_maxtime(search_time, session_type, session_id, kAny);
    search_time = wrapping_sum(search_time, int64_t{1});  // so that the newest message is before it
  }

  std::string names;
  for (const std::string& name : object_name) {
    if (!name.empty()) append_item(names, "'" + name + "'");
  }
  std::string sql =
      "select id,content,direction,read_status,sent_time,object_name,sent_status,sender,server_uid "
      "from t_message where session_id=? and session_type=? and sent_time";
  sql += desc ? "<?" : ">?";
  if (!names.empty()) sql += " and object_name in(" + names + ")";
  sql += " order by sent_time ";
  sql += desc ? "desc" : "asc";
  sql += " limit ?";
  log(cvrtc::LS_INFO, kSignature, "get_history_message_by_object_name: ", sql);

  // A copy, because `session_id` may be part of `msg`, which grows while the text is bound.
  const std::string id = session_id;  // NOLINT(performance-unnecessary-copy-initialization)
  Statement query(*this, sql);
  if (!query.prepared()) return false;
  query.bind(id, session_type, search_time, count);
  log(cvrtc::LS_INFO, kSignature, "session_id: ", id, "session_type: ", session_type,
      "search_time: ", search_time, "sqlStr: ", [&query] { return expanded_sql(query.handle()); });
  reserve_page(msg, count);
  while (query.row()) {
    append_record(msg, [&](MessageResponse& p) {
      p.msg_id_ = query.get_int(0);
      p.content_ = query.text(1);
      p.is_receive_ = query.get_int(2) != 0;
      p.read_status_ = query.get_int(3);
      p.sent_time_ = query.get_int64(4);
      p.object_name_ = query.text(5);
      p.sent_status_ = query.get_int(6);
      p.sender_ = query.text(7);
      p.server_uid_ = query.text(8);
      p.session_id_ = id;
      p.session_type_ = session_type;
      log(cvrtc::LS_INFO, kSignature, "step(stmt): SQLITE_ROW msg_id_=", p.msg_id_, "p.is_receive_",
          p.is_receive_);
    });
  }
  return !msg.empty();
}

bool CvDbSingleton::get_history_message_by_time(const std::string& session_id,
                                                SessionType session_type,
                                                const std::string& object_name, int64_t search_time,
                                                int32_t count, std::vector<MessageResponse>& msg,
                                                bool desc) {
  std::vector<std::string> names;
  if (!object_name.empty()) names.push_back(object_name);
  return get_history_message_by_object_name(session_id, session_type, names, search_time, count,
                                            msg, desc);
}

bool CvDbSingleton::get_mention_message(const std::string& session_id, SessionType session_type,
                                        std::vector<MessageResponse>& msg) {
  // A copy, because `session_id` may be part of `msg`, which grows while the text is bound.
  const std::string id = session_id;  // NOLINT(performance-unnecessary-copy-initialization)
  Statement query(*this,
                  "select id,content,read_status,sent_time,object_name,sender,server_uid "
                  "from t_message where session_id=? and session_type=? and is_mention=1 "
                  "and direction=2 order by sent_time desc limit 10");
  if (!query.prepared()) return false;
  query.bind(id, session_type);
  while (query.row()) {
    MessageResponse p;
    p.msg_id_ = query.get_int(0);
    p.content_ = query.text(1);
    p.is_receive_ = true;
    p.read_status_ = query.get_int(2);
    p.sent_time_ = query.get_int64(3);
    p.object_name_ = query.text(4);
    p.sent_status_ = 0;
    p.sender_ = query.text(5);
    p.server_uid_ = query.text(6);
    p.session_id_ = id;
    p.session_type_ = session_type;
    msg.insert(msg.begin(), std::move(p));
  }
  return !msg.empty();
}

bool CvDbSingleton::get_matched_message(const std::string& session_id, SessionType session_type,
                                        int64_t sent_time, int32_t left_count, int32_t right_count,
                                        std::vector<MessageResponse>& msg) {
  std::vector<MessageResponse> left_msg;
  std::vector<MessageResponse> right_msg;
  {
    const Transaction transaction(*this);
    int64_t search_time = sent_time;
    if (get_history_message_by_time(session_id, session_type, "", search_time, left_count, left_msg,
                                    true)) {
      search_time = left_msg[0].sent_time_;
    } else {
      search_time = wrapping_sum(search_time, int64_t{-1});
    }
    get_history_message_by_time(session_id, session_type, "", search_time,
                                wrapping_sum(right_count, 1), right_msg, false);
  }
  std::move(left_msg.begin(), left_msg.end(), std::back_inserter(msg));
  msg.insert(msg.begin(), std::make_move_iterator(right_msg.rbegin()),
             std::make_move_iterator(right_msg.rend()));
  return !msg.empty();
}

void CvDbSingleton::get_max_time(int64_t& sent_time, SessionType session_type,
                                 const std::string& session_id, int32_t type) {
  get_maxtime(sent_time, session_type, session_id, type);
}

int64_t CvDbSingleton::get_max_message_id(SessionType session_type, const std::string& session_id,
                                          int32_t type) {
  int64_t msg_id = -1;
  std::string sql = "select id from t_message where session_id=? and session_type=?";
  sql += choice_clause(type);
  sql += " order by id desc limit 1";
  read(*this, msg_id, sql, session_id, session_type);
  return msg_id;
}

bool CvDbSingleton::query_message(MessageResponse& msg, bool by_uid) {
  static constexpr const char* kSignature =
      "bool Corvan::CvDbSingleton::query_message(Corvan::MessageResponse &, bool)";

  std::string sql =
      "select session_id,session_type,content,direction,read_status,sent_time,object_name,"
      "sent_status,sender,";
  sql += by_uid ? "id from t_message where server_uid=?" : "server_uid from t_message where id=?";
  Statement query(*this, sql);
  if (!query.prepared()) return false;
  if (by_uid) {
    query.bind(msg.server_uid_);
  } else {
    query.bind(msg.msg_id_);
  }
  if (!query.row()) {
    log(cvrtc::LS_INFO, kSignature, "query_message: no message", msg.msg_id_);
    return false;
  }
  msg.session_id_ = query.text(0);
  msg.session_type_ = static_cast<SessionType>(query.get_int(1));
  msg.content_ = query.text(2);
  msg.is_receive_ = query.get_int(3) != 0;
  msg.read_status_ = query.get_int(4);
  msg.sent_time_ = query.get_int64(5);
  msg.object_name_ = query.text(6);
  msg.sent_status_ = query.get_int(7);
  msg.sender_ = query.text(8);
  if (by_uid) {
    msg.msg_id_ = query.get_int(9);
  } else {
    msg.server_uid_ = query.text(9);
  }
  log(cvrtc::LS_INFO, kSignature, "query_message: ", msg.msg_id_, "server_uid_:", msg.server_uid_);
  return true;
}

bool CvDbSingleton::get_message_by_id(int64_t msg_id, std::string& session_id,
                                      int32_t& session_type, bool& is_unread, bool& is_mention,
                                      int64_t& sent_time) {
  Statement query(*this,
                  "select session_id,session_type,read_status,is_mention,sent_time from t_message "
                  "where id=?");
  if (!query.prepared()) return false;
  query.bind(msg_id);
  if (!query.row()) return false;
  session_id = query.text(0);
  session_type = query.get_int(1);
  is_unread = query.get_int(2) == 0;
  is_mention = query.get_int(3) == 1;
  sent_time = query.get_int64(4);
  return true;
}

void CvDbSingleton::get_maxtime(int64_t& sent_time, SessionType session_type,
                                const std::string& session_id, int32_t type) {
  std::string sql = "select sent_time from t_message where session_id=? and session_type=?";
  sql += choice_clause(type);
  sql += " order by sent_time desc limit 1";
  read(*this, sent_time, sql, session_id, session_type);
}

// ---- Read state and send time -------------------------------------------------------------------

int64_t CvDbSingleton::get_send_time(int64_t msg_id) {
  if (msg_id < 1) return 0;
  int64_t t = 0;
  read(*this, t, "select sent_time from t_message where id=?", msg_id);
  return t;
}

bool CvDbSingleton::update_message_status(const std::string& session_id, int32_t session_type) {
  int64_t read_time = 0;
  get_readtime(session_id, session_type, read_time);
  return write(*this,
               "update t_message set read_status=(case read_status when 0 then 1 else read_status "
               "end),is_mention=0 where session_id=? and session_type=? and sent_time>? "
               "and direction=1",
               session_id, session_type, read_time);
}

void CvDbSingleton::get_readtime(const std::string& session_id, int32_t session_type,
                                 int64_t& read_time) {
  read(*this, read_time, "select read_time from t_session where session_id=? and session_type=?",
       session_id, session_type);
}

// ---- Conversation rows and settings -------------------------------------------------------------

bool CvDbSingleton::set_is_top(const std::string& session_id, SessionType session_type, bool is_top,
                               bool create) {
  if (is_session_exist(session_id, session_type)) {
    return write(*this, "update t_session set is_top=? where session_id=? and session_type=?",
                 is_top, session_id, session_type);
  }
  if (!is_top || !create) return true;
  Statement insert(*this,
                   "insert into t_session(is_top,session_time,session_id,session_type,silence,"
                   "unread_count,mention_count,latest_id) values(?,?,?,?,?,?,?,?)");
  if (!insert.prepared()) return false;
  insert.bind(is_top, Timestamp(), session_id, session_type, 0, 0, 0, -1);
  return insert.run() == SQLITE_DONE;
}

bool CvDbSingleton::set_message_draft(const std::string& session_id, SessionType session_type,
                                      const std::string& draft) {
  const std::size_t len = draft.size();
  if (is_session_exist(session_id, session_type)) {
    std::string sql = "update t_session set draft=?";
    if (len != 0) sql += ",session_time=?";
    sql += " where session_id=? and session_type=?";
    Statement update(*this, sql);
    if (!update.prepared()) return false;
    const int64_t curtime = Timestamp();
    update.bind(draft);
    if (len != 0) update.bind(curtime);
    update.bind(session_id, session_type);
    return update.run() == SQLITE_DONE;
  }
  if (len == 0) return true;
  // One more value than columns: SQLite rejects the statement, so a draft alone never creates a
  // conversation.
  Statement insert(*this,
                   "insert into t_session(draft,session_id,session_type,session_time,silence,"
                   "unread_count,mention_count,latest_id) values(?,?,?,?,?,?,?,?,?)");
  if (!insert.prepared()) return false;
  insert.bind(draft, session_id, session_type, Timestamp(), 0, 0, 0, -1);
  return insert.run() == SQLITE_DONE;
}

bool CvDbSingleton::get_message_draft(const std::string& session_id, SessionType session_type,
                                      std::string& draft) {
  // The schema's column is `draft`; with this name the statement cannot be prepared.
  Statement query(*this,
                  "select draft_message from t_session where session_id=? and session_type=?");
  if (!query.prepared()) return false;
  query.bind(session_id, session_type);
  if (!query.row()) return false;
  draft = query.text(0);
  return true;
}

bool CvDbSingleton::set_silence(const std::string& session_id, SessionType session_type,
                                int32_t status) {
  return write(*this, "update t_session set silence=? where session_id=? and session_type=?",
               status, session_id, session_type);
}

bool CvDbSingleton::get_silence(const std::string& session_id, SessionType session_type,
                                int32_t& status) {
  Statement query(*this, "select silence from t_session where session_id=? and session_type=?");
  if (!query.prepared()) return false;
  query.bind(session_id, session_type);
  if (!query.row()) return false;
  status = query.get_int(0);
  if (status == 1) status = 0;
  return true;
}

bool CvDbSingleton::remove_session(const std::string& session_id, SessionType session_type) {
  if (!delete_session(session_id, session_type)) return false;
  update_message_status(session_id, session_type);
  return true;
}

bool CvDbSingleton::clear_session(const std::vector<SessionType>& entry) {
  std::string list;
  join_type(entry, list);
  const Transaction transaction(*this);
  return execute_none_query("delete from t_session where session_type in(" + list + ")") ==
             SQLITE_DONE &&
         execute_none_query("delete from t_message where session_type in(" + list + ")") ==
             SQLITE_DONE;
}

bool CvDbSingleton::common_session_operation(const std::string& session_id, int32_t session_type,
                                             const std::string& sql) {
  return write(*this, sql, session_id, session_type);
}

bool CvDbSingleton::is_session_exist(const std::string& session_id, int32_t session_type) {
  return exists(*this, "select 1 from t_session where session_id=? and session_type=? limit 1",
                session_id, session_type);
}

bool CvDbSingleton::add_session(const std::string& session_id, SessionType session_type,
                                int64_t create_time, int64_t msg_id, const std::string& name,
                                int32_t count, int32_t mention) {
  Statement insert(*this,
                   "insert into t_session(session_id,session_type,session_time,title,silence,"
                   "unread_count,mention_count,latest_id) values(?,?,?,?,?,?,?,?)");
  if (!insert.prepared()) return false;
  if (create_time == 0) create_time = Timestamp();
  insert.bind(session_id, session_type, create_time, name, 0, count, mention, msg_id);
  return insert.run() == SQLITE_DONE;
}

void CvDbSingleton::set_session_time(const std::string& session_id, SessionType session_type,
                                     int64_t sent_time, const std::string& object_name,
                                     int64_t msg_id, int32_t unread, int32_t mention,
                                     uint32_t profile) {
  int64_t session_time = 0;
  int64_t latest_id = -1;
  int32_t latestunread = 0;
  int32_t latestmention = 0;
  get_sessiontime(session_id, session_type, session_time, latest_id, latestunread, latestmention);

  // A message that is newer than the conversation always moves it.
  if (sent_time <= session_time) {
    const bool has_latest = latest_id > 0;
    if ((profile & kProfileHistory) != 0 && has_latest) return;
    if ((profile & kProfileInsertOnly) != 0) {
      if ((profile & kProfileCustomizedTime) != 0 && has_latest) msg_id = latest_id;
      sent_time = session_time;
    }
    if (object_name == kNotificationName && has_latest) msg_id = latest_id;
  }
  run(*this,
      "update t_session set session_time=?,unread_count=?,mention_count=?,latest_id=? "
      "where session_id=? and session_type=?",
      sent_time, wrapping_sum(unread, latestunread), wrapping_sum(mention, latestmention), msg_id,
      session_id, session_type);
}

void CvDbSingleton::set_sessiontime(int64_t sent_time, int64_t msg_id,
                                    const std::string& session_id, SessionType session_type) {
  int64_t session_time = 0;
  int64_t latest_id = -1;
  int32_t unread = 0;
  int32_t mention = 0;
  get_sessiontime(session_id, session_type, session_time, latest_id, unread, mention);
  // Unlike in set_session_time(), a newest message of id 0 counts here.
  if (sent_time <= session_time && latest_id >= 0) return;
  run(*this,
      "update t_session set session_time=?,latest_id=? where session_id=? and session_type=?",
      sent_time, msg_id, session_id, session_type);
}

void CvDbSingleton::get_sessiontime(const std::string& session_id, int32_t session_type,
                                    int64_t& time, int64_t& msg_id, int32_t& unread,
                                    int32_t& mention) {
  Statement query(*this,
                  "select session_time,latest_id,unread_count,mention_count from t_session "
                  "where session_id=? and session_type=?");
  if (!query.prepared()) return;
  query.bind(session_id, session_type);
  if (!query.row()) return;
  time = query.get_int64(0);
  msg_id = query.get_int(1);
  unread = query.get_int(2);
  mention = query.get_int(3);
}

bool CvDbSingleton::delete_session(const std::string& session_id, int32_t session_type) {
  return write(*this, "delete from t_session where session_id=? and session_type=?", session_id,
               session_type);
}

// ---- Conversation list --------------------------------------------------------------------------

bool CvDbSingleton::get_session_list_by_page(const std::vector<SessionType>& entry,
                                             int64_t sent_time, int32_t limit,
                                             std::vector<SessionInfo>& session) {
  static bool is_top = false;  // whether the last row of the page before was pinned
  if (sent_time == 0) is_top = false;

  std::string session_type;
  join_type(entry, session_type);
  std::vector<Session> rows;
  if (!load_session(rows, session_type, sent_time, limit, is_top)) return false;

  std::string msg_id;
  for (const Session& row : rows) append_item(msg_id, row.latest_id_);

  // A message goes to the row of its own conversation, whichever row has its id as the latest one.
  // If a row gets several messages, the last one counts.
  const RowIndex index(rows);
  for_each_message(*this, msg_id, [&index](const Statement& query) {
    index.for_each(query.text(0), query.get_int(1), [&query](Session& row) {
      fill_message(row, query, 2);
      if (row.draft_.empty()) row.session_time_ = query.get_int64(8);
    });
  });

  sort_page(rows);
  reserve_page(session, limit);
  for (Session& row : rows) {
    append_record(session, [&row](SessionInfo& info) {
      info.session_id_ = std::move(row.session_id_);
      info.session_type_ = row.session_type_;
      fill_entry(info, std::move(row));
    });
  }
  is_top = rows.back().is_top_ != 0;
  return true;
}

bool CvDbSingleton::get_session(SessionInfo& session) {
  Session conv;
  if (!load_session(conv, session.session_id_, session.session_type_)) return false;
  if (conv.latest_id_ != 0) load_message(conv);
  session.message_.sent_time_ = conv.session_time_;
  fill_entry(session, std::move(conv));
  return true;
}

bool CvDbSingleton::load_session(std::vector<Session>& session, std::string& session_type,
                                 int64_t timestamp, int32_t limit, bool is_top) {
  std::string sql =
      "select session_id,session_type,title,draft,is_top,session_time,unread_count,mention_count,"
      "silence,latest_id from t_session where session_type in(" +
      session_type + ")";
  if (is_top) {
    sql += " and ((session_time<? and is_top=1) or is_top=0)";
  } else if (timestamp > 0) {
    sql += " and session_time<? and is_top=0";
  }
  sql += " order by is_top desc,session_time desc limit ?";
  Statement query(*this, sql);
  if (!query.prepared()) return false;
  if (timestamp > 0) query.bind(timestamp);
  query.bind(limit);
  reserve_page(session, limit);
  while (query.row()) {
    append_record(session, [&query](Session& row) {
      row.session_id_ = query.text(0);
      row.session_type_ = query.get_int(1);
      row.title_ = query.text(2);
      row.draft_ = query.text(3);
      row.is_top_ = query.get_int(4);
      row.session_time_ = query.get_int64(5);
      row.unread_count_ = query.get_int(6);
      row.mention_count_ = query.get_int(7);
      row.silence_ = query.get_int(8);
      row.latest_id_ = query.get_int(9);
    });
  }
  return !session.empty();
}

bool CvDbSingleton::load_session(Session& conv, const std::string& session_id,
                                 int32_t session_type) {
  Statement query(*this,
                  "select title,draft,is_top,session_time,unread_count,mention_count,silence,"
                  "latest_id from t_session where session_id=? and session_type=?");
  if (!query.prepared()) return false;
  query.bind(session_id, session_type);
  if (!query.row()) return false;
  conv.title_ = query.text(0);
  conv.draft_ = query.text(1);
  conv.is_top_ = query.get_int(2);
  conv.session_time_ = query.get_int64(3);
  conv.unread_count_ = query.get_int(4);
  conv.mention_count_ = query.get_int(5);
  conv.silence_ = query.get_int(6);
  conv.latest_id_ = query.get_int(7);
  return true;
}

bool CvDbSingleton::load_message(std::vector<Session>& session, const std::string& msg_id) {
  return for_each_message(*this, msg_id, [&session](const Statement& query) {
    Session message;
    message.session_id_ = query.text(0);
    message.session_type_ = query.get_int(1);
    fill_message(message, query, 2);
    message.session_time_ = query.get_int64(8);
    session.push_back(std::move(message));
  });
}

bool CvDbSingleton::load_message(Session& conv) {
  Statement query(*this,
                  "select content,object_name,sender,direction,read_status,sent_status,sent_time,"
                  "server_uid from t_message where id=?");
  if (!query.prepared()) return false;
  query.bind(conv.latest_id_);
  if (!query.row()) return false;
  fill_message(conv, query, 0);
  conv.session_time_ = query.get_int64(6);
  return true;
}

bool CvDbSingleton::load_distinct_session_with_unread(std::vector<Session>& session,
                                                      const std::string& msg_id) {
  Statement query(*this,
                  "select session_id,session_type,read_status,is_mention,sent_time from t_message "
                  "where id in(" +
                      msg_id + ")");
  if (!query.prepared()) return false;
  while (query.row()) {
    Session row;
    row.session_id_ = query.text(0);
    row.session_type_ = query.get_int(1);
    row.unread_count_ = query.get_int(2) == 0 ? 1 : 0;
    row.mention_count_ = query.get_int(3) == 1 ? 1 : 0;
    row.session_time_ = query.get_int64(4);

    bool last_took_it = false;
    for (Session& element : session) {
      last_took_it =
          element.session_id_ == row.session_id_ && element.session_type_ == row.session_type_;
      if (!last_took_it) continue;
      element.unread_count_ = wrapping_sum(element.unread_count_, row.unread_count_);
      element.mention_count_ = wrapping_sum(element.mention_count_, row.mention_count_);
    }
    const bool marked = row.unread_count_ == 1 || row.mention_count_ == 1;
    if (!last_took_it && marked) session.push_back(std::move(row));
  }
  return !session.empty();
}

bool CvDbSingleton::load_session_with_latestid(std::vector<Session>& session,
                                               const std::string& msg_id) {
  Statement query(
      *this, "select session_id,session_type from t_session where latest_id in(" + msg_id + ")");
  if (!query.prepared()) return false;
  while (query.row()) {
    Session row;
    row.session_id_ = query.text(0);
    row.session_type_ = query.get_int(1);
    session.push_back(std::move(row));
  }
  return !session.empty();
}

bool CvDbSingleton::get_message_latestid(const std::string& session_id, int32_t session_type,
                                         int64_t& msg_id, int64_t& sent_time) {
  Statement query(*this,
                  "select id,sent_time from t_message where session_id=? and session_type=? "
                  "order by sent_time desc limit 1");
  if (!query.prepared()) return false;
  query.bind(session_id, session_type);
  const int32_t rc = query.step();
  if (rc == SQLITE_ROW) {
    msg_id = query.get_int(0);
    sent_time = query.get_int64(1);
  }
  return rc == SQLITE_ROW || rc == SQLITE_DONE;
}

bool CvDbSingleton::set_message_latestid(const std::string& session_id, int32_t session_type,
                                         int64_t msg_id, int64_t sent_time) {
  std::string sql = "update t_session set latest_id=?";
  if (msg_id > 0) sql += ",session_time=?";
  sql += " where session_id=? and session_type=?";
  Statement update(*this, sql);
  if (!update.prepared()) return false;
  update.bind(msg_id);
  if (msg_id > 0) update.bind(sent_time);
  update.bind(session_id, session_type);
  return update.run() == SQLITE_DONE;
}

// ---- Counters, read and receipt times -----------------------------------------------------------

bool CvDbSingleton::sync_unread(const std::string& session_id, int32_t session_type,
                                int64_t sendTime) {
  int32_t unread = 0;
  int32_t mention = 0;
  if (!get_unred_mention(session_id, session_type, sendTime, unread, mention)) return false;
  return write(*this,
               "update t_session set unread_count=?,mention_count=?,read_time=? "
               "where session_id=? and session_type=?",
               unread, mention, sendTime, session_id, session_type);
}

bool CvDbSingleton::clear_unread(const std::string& session_id, SessionType session_type) {
  const Transaction transaction(*this);
  int64_t read_time = 0;
  get_maxtime(read_time, session_type, session_id, kReceived);
  const bool ret = update_message_status(session_id, session_type);
  if (ret) set_unread_readtime(session_id, session_type, read_time);
  return ret;
}

void CvDbSingleton::get_receipt_time(const std::string& session_id, int32_t session_type,
                                     int64_t& receipt_time) {
  read(*this, receipt_time,
       "select receipt_time from t_session where session_id=? and session_type=?", session_id,
       session_type);
}

bool CvDbSingleton::get_total_unread_count(int32_t& unread) {
  return read(*this, unread, "select sum(unread_count) from t_session");
}

bool CvDbSingleton::get_unread_count(const std::string& session_id, SessionType session_type,
                                     int32_t& unread) {
  static constexpr const char* sql =
      "select unread_count from t_session where session_id=? and session_type=?";
  if (!read(*this, unread, sql, session_id, session_type)) return false;
  log(cvrtc::LS_INFO,
      "bool Corvan::CvDbSingleton::get_unread_count(const std::string &, Corvan::SessionType, "
      "int32_t &)",
      "get_unread_count: ", sql, unread);
  return true;
}

bool CvDbSingleton::get_message_count(const std::string& session_id, SessionType session_type,
                                      int32_t& unread) {
  return read(*this, unread,
              "select count(id) from t_message where session_id=? and session_type=?", session_id,
              session_type);
}

bool CvDbSingleton::get_cate_unread_count(const std::vector<SessionType>& entry, int32_t& unread,
                                          bool with_dnd) {
  std::string list;
  join_type(entry, list);
  std::string sql = "select sum(unread_count) from t_session";
  if (!with_dnd) sql += " where silence=0";
  if (!list.empty()) {
    sql += with_dnd ? " where" : " and";
    sql += " session_type in(" + list + ")";
  }
  return read(*this, unread, sql);
}

bool CvDbSingleton::get_unread_mention_count(const std::vector<SessionType>& entry, int32_t& unread,
                                             int32_t& mention) {
  std::string list;
  join_type(entry, list);
  std::string sql = "select sum(unread_count),sum(mention_count) from t_session";
  if (!list.empty()) sql += " where session_type in(" + list + ")";
  Statement query(*this, sql);
  if (!query.prepared()) return false;
  if (query.row()) {
    unread = query.get_int(0);
    mention = query.get_int(1);
  }
  return true;
}

bool CvDbSingleton::set_unread_by_value(const std::string& session_id, int32_t session_type,
                                        int32_t unread, int32_t mention) {
  if (unread == 0) return true;
  std::string sql = "update t_session set unread_count=unread_count";
  sql += unread >= 1 ? "-" + decimal(unread) : "+1";
  if (mention > 0) sql += ",mention_count=mention_count-" + decimal(mention);
  sql += " where session_id=? and session_type=?";
  return write(*this, sql, session_id, session_type);
}

bool CvDbSingleton::get_unred_mention(const std::string& session_id, int32_t session_type,
                                      int64_t sendTime, int32_t& unread, int32_t& mention) {
  Statement query(*this,
                  "select sum(case read_status when 0 then 1 else 0 end),sum(is_mention) "
                  "from t_message where session_id=? and session_type=? and sent_time>? "
                  "and read_status=0 and direction=2");
  if (!query.prepared()) return false;
  query.bind(session_id, session_type, sendTime);
  const int32_t rc = query.step();
  if (rc == SQLITE_ROW) {
    unread = query.get_int(0);
    mention = query.get_int(1);
  }
  return rc == SQLITE_ROW || rc == SQLITE_DONE;
}

void CvDbSingleton::set_unread_readtime(const std::string& session_id, int32_t session_type,
                                        int64_t read_time) {
  run(*this,
      "update t_session set unread_count=0,mention_count=0,read_time=? "
      "where session_id=? and session_type=?",
      read_time, session_id, session_type);
}

void CvDbSingleton::set_receipttime(const std::string& session_id, int32_t session_type,
                                    int64_t receipt_time) {
  run(*this, "update t_session set receipt_time=? where session_id=? and session_type=?",
      receipt_time, session_id, session_type);
}

void CvDbSingleton::get_receipttime(const std::string& session_id, int32_t session_type,
                                    int64_t& receipt_time) {
  get_receipt_time(session_id, session_type, receipt_time);
}

// ---- Statement layer ----------------------------------------------------------------------------

sqlite3_stmt* CvDbSingleton::prepare_sql(const std::string& query, int32_t& success) {
  return prepare(query.c_str(), success);
}

sqlite3_stmt* CvDbSingleton::prepare(const char* query, int32_t& success) {
  if (db_ == nullptr) {
    success = kNoConnection;
    return nullptr;
  }
  sqlite3_stmt* stmt = nullptr;
  success = sqlite3_prepare_v2(db_, query, -1, &stmt, nullptr);
  if (success == SQLITE_OK) return stmt;

  try {
    const std::string error = get_error();
    log(cvrtc::LS_ERROR,
        "sqlite3_stmt *Corvan::CvDbSingleton::prepare_sql(const std::string &, int32_t &)",
        "P-more-C;;;prepare_db;;;", success, ";;;", error);
  } catch (const std::bad_alloc&) {
    // The line is lost; the failure is still returned.
  }
  finalize(stmt);
  if (success == SQLITE_CORRUPT || success == SQLITE_NOTADB) {
    close_db();
    if (is_file_exist(local_path8_)) unlink(local_path8_.pathname().c_str());
  }
  return nullptr;
}

int32_t CvDbSingleton::bind(sqlite3_stmt* stmt, int32_t icol, int32_t value) {
  CV_CHECK(stmt != nullptr, "bind stmt nullptr");
  return sqlite3_bind_int(stmt, icol, value);
}

int32_t CvDbSingleton::bind(sqlite3_stmt* stmt, int32_t icol, int64_t value) {
  CV_CHECK(stmt != nullptr, "bind stmt nullptr");
  return sqlite3_bind_int64(stmt, icol, value);
}

int32_t CvDbSingleton::bind(sqlite3_stmt* stmt, int32_t icol, const std::string& value) {
  CV_CHECK(stmt != nullptr, "bind stmt nullptr");
  return sqlite3_bind_text(stmt, icol, value.c_str(), -1, SQLITE_STATIC);
}

int32_t CvDbSingleton::step(sqlite3_stmt* stmt, bool finaled) {
  CV_CHECK(stmt != nullptr, "step stmt nullptr");
  const int32_t rc = sqlite3_step(stmt);
  if (rc < SQLITE_ROW) {
    warn(*this, "int32_t Corvan::CvDbSingleton::step(sqlite3_stmt *, bool)", "P-more-C;;;step;;;",
         rc);
  }
  if (finaled) finalize(stmt);
  return rc;
}

void CvDbSingleton::reset(sqlite3_stmt* stmt) {
  CV_CHECK(stmt != nullptr, "reset stmt nullptr");
  const int32_t rc = sqlite3_reset(stmt);
  if (rc != SQLITE_OK) {
    warn(*this, "void Corvan::CvDbSingleton::reset(sqlite3_stmt *)", "P-more-C;;;reset;;;", rc);
  }
}

void CvDbSingleton::finalize(sqlite3_stmt* stmt) {
  const int32_t rc = sqlite3_finalize(stmt);
  if (rc != SQLITE_OK) {
    warn(*this, "void Corvan::CvDbSingleton::finalize(sqlite3_stmt *)", "P-more-C;;;finalize;;;",
         rc);
  }
}

int32_t CvDbSingleton::get_int(sqlite3_stmt* stmt, int32_t index) {
  CV_CHECK(stmt != nullptr, "get stmt nullptr");
  return sqlite3_column_int(stmt, index);
}

int64_t CvDbSingleton::get_int64(sqlite3_stmt* stmt, int32_t index) {
  CV_CHECK(stmt != nullptr, "get stmt nullptr");
  return sqlite3_column_int64(stmt, index);
}

const std::string CvDbSingleton::get_text(sqlite3_stmt* stmt, int32_t index) {
  CV_CHECK(stmt != nullptr, "get stmt nullptr");
  return column_text(stmt, index);
}

const std::string CvDbSingleton::get_error() {
  CV_CHECK(db_ != nullptr, "db nullptr");
  return sqlite3_errmsg(db_);
}

int32_t CvDbSingleton::execute_none_query(const std::string& sql) {
  return run(*this, sql);
}

int32_t CvDbSingleton::get_pragma(const std::string& pragma) {
  int32_t value = -1;
  read(*this, value, pragma);
  return value;
}

void CvDbSingleton::number_to_string(std::string& str, int64_t number) {
  str = std::to_string(number);
}

std::string CvDbSingleton::escape_char(const std::string& keyword, bool& flag) {
  std::string text = keyword;
  if (std::strchr(text.c_str(), '_') != nullptr) {
    CvUtils::string_replace(text, "_", "\\_");
    flag = true;
  }
  if (std::strchr(text.c_str(), '%') != nullptr) {
    CvUtils::string_replace(text, "%", "\\%");
    flag = true;
  }
  if (std::strchr(text.c_str(), '\'') != nullptr) CvUtils::string_replace(text, "'", "''");
  return text;
}

void CvDbSingleton::join_type(const std::vector<SessionType>& entry, std::string& type) {
  for (const SessionType kind : entry) {
    if (kind >= CV_PRIVATE && kind <= CV_SYSTEM) append_item(type, kind);
  }
}

}  // namespace Corvan
