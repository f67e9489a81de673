// The functions that the store's unit calls in place of SQLite's. They have the parameters and
// results of SQLite's functions.

#include <sqlite3.h>

#include <cstddef>
#include <string_view>

#include "addons/statement_cache/connections.h"
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
  if (sqlite3_errcode(db) != SQLITE_OK) sqlite3_exec(db, "", nullptr, nullptr, nullptr);
}

std::size_t bytes_of(sqlite3_stmt* stmt) {
  return static_cast<std::size_t>(sqlite3_stmt_status(stmt, SQLITE_STMTSTATUS_MEMUSED, 0));
}

// Whether SQLite has prepared the statement again since the last call, as it does after a change of
// the schema.
bool prepared_again(sqlite3_stmt* stmt) {
  return sqlite3_stmt_status(stmt, SQLITE_STMTSTATUS_REPREPARE, 1) > 0;
}

// Finalises a statement that is not to be kept. `as_before` is false if statements that were
// prepared before might now be refused or do something else: then those that are idle go as well.
void drop(sqlite3* db, sqlite3_stmt* stmt, bool as_before) {
  forget(db, stmt);
  sqlite3_finalize(stmt);
  if (!as_before) finalize_idle(db);
}

// Keeps a statement that has been reset, if its text allows it.
void keep(sqlite3* db, sqlite3_stmt* stmt) {
  const TextKind kind = kind_of(sqlite3_sql(stmt));
  if (kind == TextKind::kKept && add(db, stmt, bytes_of(stmt))) return;
  drop(db, stmt, kind != TextKind::kOther);
}

}  // namespace

int corvan_cached_prepare_v2(sqlite3* db, const char* sql, int size, sqlite3_stmt** stmt,
                             const char** tail) {
  if (db == nullptr || sql == nullptr || size >= 0 || stmt == nullptr) {
    return sqlite3_prepare_v2(db, sql, size, stmt, tail);
  }
  const std::string_view text(sql);
  *stmt = take(db, text);
  if (*stmt == nullptr) {
    const unsigned flags = kind_of(text) == TextKind::kKept ? SQLITE_PREPARE_PERSISTENT : 0;
    return sqlite3_prepare_v3(db, sql, size, flags, stmt, tail);
  }
  if (tail != nullptr) *tail = sql + text.size();
  clear_error(db);
  return SQLITE_OK;
}

int corvan_cached_finalize(sqlite3_stmt* stmt) {
  if (stmt == nullptr) return SQLITE_OK;
  sqlite3* const db = sqlite3_db_handle(stmt);
  const int rc = sqlite3_reset(stmt);
  if (rc != SQLITE_OK || prepared_again(stmt)) {
    drop(db, stmt, false);
    return rc;
  }
  // The values would otherwise point to the caller's texts.
  sqlite3_clear_bindings(stmt);
  switch (give_back(db, stmt)) {
    case KeptStatements::Returned::kIdle:
      return SQLITE_OK;
    case KeptStatements::Returned::kAlreadyIdle:
      return SQLITE_MISUSE;
    case KeptStatements::Returned::kUnknown:
      break;
  }
  keep(db, stmt);
  return SQLITE_OK;
}

int corvan_cached_close(sqlite3* db) {
  if (db != nullptr) close(db);
  return sqlite3_close(db);
}
