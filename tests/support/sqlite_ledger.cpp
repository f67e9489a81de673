// Stands between the store and SQLite: the linker redirects the calls to the __wrap_ functions,
// which reach the library's functions as __real_ functions. For Corvan::db_cached, this file stands
// between the store and the cache: definitions of CMakeLists.txt give the functions that prepare,
// finalise and close the names of the cache's functions.

#include "tests/support/sqlite_ledger.h"

#include <sqlite3.h>

#include <atomic>
#include <map>
#include <mutex>
#include <utility>

#include "tests/support/store_library.h"
#include "tests/support/uncounted.h"

namespace {

std::mutex mutex;  // guards what follows
std::vector<std::string> ledger;
corvan_test::FetchedTexts fetched;
corvan_test::StepCounts steps;
int last_open_flags = 0;
sqlite3* connection = nullptr;
// With kept statements: those that the store has finalised, with their texts. A statement that was
// not kept stays here. Its address can come back as that of a test's own statement.
std::map<sqlite3_stmt*, std::string> given_back;
std::atomic<corvan_test::PrepareWatcher> prepare_watcher{nullptr};

// Exists while a call of the store prepares, finalises or closes. What SQLite is called for
// meanwhile comes from the cache, and is not the store's.
class StoreCall {
 public:
  StoreCall() { ++depth; }
  StoreCall(const StoreCall&) = delete;
  StoreCall& operator=(const StoreCall&) = delete;
  ~StoreCall() { --depth; }

  static bool now() { return depth > 0; }

 private:
  static inline thread_local int depth = 0;
};

void note_prepared(sqlite3_stmt* stmt) {
  const std::lock_guard<std::mutex> lock(mutex);
  given_back.erase(stmt);
}

void note_finalized(sqlite3_stmt* stmt) {
  const corvan_test::Uncounted uncounted;
  const std::lock_guard<std::mutex> lock(mutex);
  if (corvan_test::statements_are_kept()) given_back[stmt] = sqlite3_sql(stmt);
  // Tests also finalise statements of their own connections.
  if (sqlite3_db_handle(stmt) != connection) return;
  // Starts counting again: a kept statement counts over all of its uses.
  steps.vm_steps += sqlite3_stmt_status(stmt, SQLITE_STMTSTATUS_VM_STEP, 1);
  steps.full_scan_steps += sqlite3_stmt_status(stmt, SQLITE_STMTSTATUS_FULLSCAN_STEP, 1);
  steps.sorts += sqlite3_stmt_status(stmt, SQLITE_STMTSTATUS_SORT, 1);
}

// False while SQLite opens a connection: a key is given to it then.
bool is_store_connection(sqlite3* db) {
  const std::lock_guard<std::mutex> lock(mutex);
  return db == connection;
}

void note(const char* sql) {
  const corvan_test::Uncounted uncounted;
  const std::lock_guard<std::mutex> lock(mutex);
  ledger.emplace_back(sql);
}

}  // namespace

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
int __real_sqlite3_open_v2(const char* file, sqlite3** db, int flags, const char* vfs);
int __real_sqlite3_close(sqlite3* db);
int __real_sqlite3_prepare_v2(sqlite3* db, const char* sql, int size, sqlite3_stmt** stmt,
                              const char** tail);
int __real_sqlite3_exec(sqlite3* db, const char* sql, sqlite3_callback callback, void* context,
                        char** error);
const char* __real_sqlite3_errmsg(sqlite3* db);
char* __real_sqlite3_expanded_sql(sqlite3_stmt* stmt);
int __real_sqlite3_finalize(sqlite3_stmt* stmt);

int __wrap_sqlite3_open_v2(const char* file, sqlite3** db, int flags, const char* vfs);
int __wrap_sqlite3_close(sqlite3* db);
int __wrap_sqlite3_prepare_v2(sqlite3* db, const char* sql, int size, sqlite3_stmt** stmt,
                              const char** tail);
int __wrap_sqlite3_exec(sqlite3* db, const char* sql, sqlite3_callback callback, void* context,
                        char** error);
const char* __wrap_sqlite3_errmsg(sqlite3* db);
char* __wrap_sqlite3_expanded_sql(sqlite3_stmt* stmt);
int __wrap_sqlite3_finalize(sqlite3_stmt* stmt);

int __wrap_sqlite3_open_v2(const char* file, sqlite3** db, int flags, const char* vfs) {
  const int rc = __real_sqlite3_open_v2(file, db, flags, vfs);
  if (const auto watcher = prepare_watcher.load()) watcher(file, rc, nullptr);
  const std::lock_guard<std::mutex> lock(mutex);
  connection = *db;
  last_open_flags = flags;
  return rc;
}

int __wrap_sqlite3_close(sqlite3* db) {
  const StoreCall call;
  const int rc = __real_sqlite3_close(db);
  const std::lock_guard<std::mutex> lock(mutex);
  if (rc == SQLITE_OK && db == connection) connection = nullptr;
  return rc;
}

int __wrap_sqlite3_prepare_v2(sqlite3* db, const char* sql, int size, sqlite3_stmt** stmt,
                              const char** tail) {
  note(sql);
  const StoreCall call;
  const int rc = __real_sqlite3_prepare_v2(db, sql, size, stmt, tail);
  if (*stmt != nullptr) note_prepared(*stmt);
  if (const auto watcher = prepare_watcher.load()) watcher(sql, rc, *stmt);
  return rc;
}

int __wrap_sqlite3_exec(sqlite3* db, const char* sql, sqlite3_callback callback, void* context,
                        char** error) {
  if (StoreCall::now() || !is_store_connection(db)) {
    return __real_sqlite3_exec(db, sql, callback, context, error);
  }
  note(sql);
  const int rc = __real_sqlite3_exec(db, sql, callback, context, error);
  if (const auto watcher = prepare_watcher.load()) watcher(sql, rc, nullptr);
  return rc;
}

const char* __wrap_sqlite3_errmsg(sqlite3* db) {
  const std::lock_guard<std::mutex> lock(mutex);
  ++fetched.errors;
  return __real_sqlite3_errmsg(db);
}

char* __wrap_sqlite3_expanded_sql(sqlite3_stmt* stmt) {
  const std::lock_guard<std::mutex> lock(mutex);
  ++fetched.expanded;
  return __real_sqlite3_expanded_sql(stmt);
}

int __wrap_sqlite3_finalize(sqlite3_stmt* stmt) {
  if (stmt != nullptr) note_finalized(stmt);
  const StoreCall call;
  return __real_sqlite3_finalize(stmt);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"

namespace corvan_test {

bool called_by_cache() {
  return StoreCall::now();
}

void watch_prepares(PrepareWatcher watcher) {
  prepare_watcher = watcher;
}

std::vector<std::string> take_ledger() {
  const std::lock_guard<std::mutex> lock(mutex);
  return std::exchange(ledger, {});
}

FetchedTexts take_fetched_texts() {
  const std::lock_guard<std::mutex> lock(mutex);
  return std::exchange(fetched, {});
}

StepCounts take_steps() {
  const std::lock_guard<std::mutex> lock(mutex);
  return std::exchange(steps, {});
}

int open_flags() {
  const std::lock_guard<std::mutex> lock(mutex);
  return last_open_flags;
}

sqlite3* store_connection() {
  const std::lock_guard<std::mutex> lock(mutex);
  return connection;
}

// Every statement that SQLite knows, except those that the cache keeps and that are not running.
int open_statements() {
  const std::lock_guard<std::mutex> lock(mutex);
  int count = 0;
  if (connection == nullptr) return count;
  for (sqlite3_stmt* stmt = sqlite3_next_stmt(connection, nullptr); stmt != nullptr;
       stmt = sqlite3_next_stmt(connection, stmt)) {
    const auto found = given_back.find(stmt);
    const bool idle = found != given_back.end() && found->second == sqlite3_sql(stmt);
    if (!idle || sqlite3_stmt_busy(stmt) != 0) ++count;
  }
  return count;
}

bool in_transaction() {
  const std::lock_guard<std::mutex> lock(mutex);
  return connection != nullptr && sqlite3_get_autocommit(connection) == 0;
}

}  // namespace corvan_test
