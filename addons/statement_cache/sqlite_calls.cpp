// The functions that the store's unit calls in place of SQLite's. They have the parameters and
// results of SQLite's functions.

#include <sqlite3.h>

#include <cstddef>
#include <string_view>

#include "addons/statement_cache/cache.h"
#include "addons/statement_cache/kept_text.h"

#if SQLITE_VERSION_NUMBER < 3020000
#error "Corvan::db_cached needs SQLite 3.20; set CORVAN_BUILD_ADDONS to OFF to build without it"
#endif

extern "C" {
int corvan_cached_prepare_v2(sqlite3* db, const char* sql, int size, sqlite3_stmt** stmt,
                             const char** tail);
int corvan_cached_finalize(sqlite3_stmt* stmt);
int corvan_cached_close(sqlite3* db);
}

namespace {

using namespace Corvan::statement_cache;

// Leaves the connection's error as SQLite does after it has prepared a statement: none.
void clear_error(sqlite3* db) {
  sqlite3_mutex* const mutex = sqlite3_db_mutex(db);
  sqlite3_mutex_enter(mutex);
  if (sqlite3_errcode(db) != SQLITE_OK) sqlite3_exec(db, "", nullptr, nullptr, nullptr);
  sqlite3_mutex_leave(mutex);
}

std::size_t bytes_of(sqlite3_stmt* stmt) {
  return static_cast<std::size_t>(sqlite3_stmt_status(stmt, SQLITE_STMTSTATUS_MEMUSED, 0));
}

// Whether SQLite has prepared the statement again since the last call, as it does after a change of
// the schema.
bool prepared_again(sqlite3_stmt* stmt) {
  return sqlite3_stmt_status(stmt, SQLITE_STMTSTATUS_REPREPARE, 1) > 0;
}

// Prepares a statement and keeps it. If `sql` goes on after the statement, it is not kept. Without
// the "query planner stability guarantee", newer releases of SQLite prepare a statement again
// whenever certain values are bound, such as one for "limit ?".
int prepare_kept(sqlite3* db, const char* sql, TextKind kind, sqlite3_stmt** stmt,
                 const char** tail) {
  sqlite3_db_config(db, SQLITE_DBCONFIG_ENABLE_QPSG, 1, nullptr);
  const char* end = nullptr;
  const int rc = sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, stmt, &end);
  if (tail != nullptr) *tail = end;
  if (rc == SQLITE_OK && *end == '\0') {
    const std::size_t hash = hash_of(sqlite3_sql(*stmt));
    keep(db, {*stmt, hash, bytes_of(*stmt), kind});
  }
  return rc;
}

// A statement of another kind, such as a pragma, may take effect while it is prepared.
int prepare_other(sqlite3* db, const char* sql, sqlite3_stmt** stmt, const char** tail) {
  const int rc = sqlite3_prepare_v2(db, sql, -1, stmt, tail);
  begin_other(db);
  if (*stmt == nullptr) end_other(db);
  return rc;
}

int prepare(sqlite3* db, const char* sql, TextKind kind, sqlite3_stmt** stmt, const char** tail) {
  switch (kind) {
    case TextKind::kKept:
    case TextKind::kBegin:
    case TextKind::kRollback:
      return prepare_kept(db, sql, kind, stmt, tail);
    case TextKind::kTooLong:
      return sqlite3_prepare_v2(db, sql, -1, stmt, tail);
    case TextKind::kOther:
      break;
  }
  return prepare_other(db, sql, stmt, tail);
}

int finalize_unkept(sqlite3* db, sqlite3_stmt* stmt) {
  const bool other = kind_of(sqlite3_sql(stmt)) == TextKind::kOther;
  const int rc = sqlite3_finalize(stmt);
  if (other) end_other(db);
  return rc;
}

}  // namespace

int corvan_cached_prepare_v2(sqlite3* db, const char* sql, int size, sqlite3_stmt** stmt,
                             const char** tail) {
  if (db == nullptr || sql == nullptr || size >= 0 || stmt == nullptr) {
    return sqlite3_prepare_v2(db, sql, size, stmt, tail);
  }
  const std::string_view text(sql);
  *stmt = text.size() <= kLongestKept ? take(db, text) : nullptr;
  if (*stmt == nullptr) return prepare(db, sql, kind_of(text), stmt, tail);
  if (tail != nullptr) *tail = sql + text.size();
  clear_error(db);
  return SQLITE_OK;
}

int corvan_cached_finalize(sqlite3_stmt* stmt) {
  if (stmt == nullptr) return SQLITE_OK;
  sqlite3* const db = sqlite3_db_handle(stmt);
  const int rc = sqlite3_reset(stmt);
  if (rc != SQLITE_OK || prepared_again(stmt)) {
    drop_all(db);
    finalize_unkept(db, stmt);
    return rc;
  }
  sqlite3_clear_bindings(stmt);  // they may point to texts of the caller
  const KeptStatements::Returned returned = give_back(db, stmt);
  if (returned == KeptStatements::Returned::kUnknown) return finalize_unkept(db, stmt);
  return returned == KeptStatements::Returned::kAlreadyIdle ? SQLITE_MISUSE : SQLITE_OK;
}

int corvan_cached_close(sqlite3* db) {
  if (db != nullptr) close(db);
  return sqlite3_close(db);
}
