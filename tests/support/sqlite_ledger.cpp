// Stands between the store and SQLite: the linker redirects the calls to the __wrap_ functions,
// which reach the library's functions as __real_ functions.

#include "tests/support/sqlite_ledger.h"

#include <sqlite3.h>

#include <atomic>
#include <mutex>
#include <utility>

#include "tests/support/uncounted.h"

namespace {

std::mutex mutex;  // guards what follows
std::vector<std::string> ledger;
corvan_test::FetchedTexts fetched;
corvan_test::StepCounts steps;
int last_open_flags = 0;
sqlite3* connection = nullptr;
std::atomic<corvan_test::PrepareWatcher> prepare_watcher{nullptr};

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
  const int rc = __real_sqlite3_close(db);
  const std::lock_guard<std::mutex> lock(mutex);
  if (rc == SQLITE_OK && db == connection) connection = nullptr;
  return rc;
}

int __wrap_sqlite3_prepare_v2(sqlite3* db, const char* sql, int size, sqlite3_stmt** stmt,
                              const char** tail) {
  note(sql);
  const int rc = __real_sqlite3_prepare_v2(db, sql, size, stmt, tail);
  if (const auto watcher = prepare_watcher.load()) watcher(sql, rc, *stmt);
  return rc;
}

int __wrap_sqlite3_exec(sqlite3* db, const char* sql, sqlite3_callback callback, void* context,
                        char** error) {
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
  {
    const std::lock_guard<std::mutex> lock(mutex);
    // Tests also finalise statements of their own connections.
    if (stmt != nullptr && sqlite3_db_handle(stmt) == connection) {
      steps.vm_steps += sqlite3_stmt_status(stmt, SQLITE_STMTSTATUS_VM_STEP, 0);
      steps.full_scan_steps += sqlite3_stmt_status(stmt, SQLITE_STMTSTATUS_FULLSCAN_STEP, 0);
      steps.sorts += sqlite3_stmt_status(stmt, SQLITE_STMTSTATUS_SORT, 0);
    }
  }
  return __real_sqlite3_finalize(stmt);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"

namespace corvan_test {

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

int open_statements() {
  const std::lock_guard<std::mutex> lock(mutex);
  int count = 0;
  if (connection == nullptr) return count;
  for (sqlite3_stmt* stmt = sqlite3_next_stmt(connection, nullptr); stmt != nullptr;
       stmt = sqlite3_next_stmt(connection, stmt)) {
    ++count;
  }
  return count;
}

bool in_transaction() {
  const std::lock_guard<std::mutex> lock(mutex);
  return connection != nullptr && sqlite3_get_autocommit(connection) == 0;
}

}  // namespace corvan_test
