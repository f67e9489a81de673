// Stands between the cache and SQLite: the linker redirects the calls to the __wrap_ functions.

#include "tests/addons/statement_cache/prepare_count.h"

#include <sqlite3.h>

#include <atomic>

namespace {

std::atomic<int> prepares{0};

}  // namespace

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
int __real_sqlite3_prepare_v2(sqlite3* db, const char* sql, int size, sqlite3_stmt** stmt,
                              const char** tail);
int __real_sqlite3_prepare_v3(sqlite3* db, const char* sql, int size, unsigned flags,
                              sqlite3_stmt** stmt, const char** tail);
int __wrap_sqlite3_prepare_v2(sqlite3* db, const char* sql, int size, sqlite3_stmt** stmt,
                              const char** tail);
int __wrap_sqlite3_prepare_v3(sqlite3* db, const char* sql, int size, unsigned flags,
                              sqlite3_stmt** stmt, const char** tail);

int __wrap_sqlite3_prepare_v2(sqlite3* db, const char* sql, int size, sqlite3_stmt** stmt,
                              const char** tail) {
  ++prepares;
  return __real_sqlite3_prepare_v2(db, sql, size, stmt, tail);
}

int __wrap_sqlite3_prepare_v3(sqlite3* db, const char* sql, int size, unsigned flags,
                              sqlite3_stmt** stmt, const char** tail) {
  ++prepares;
  return __real_sqlite3_prepare_v3(db, sql, size, flags, stmt, tail);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"

int corvan_test::take_prepares() {
  return prepares.exchange(0);
}
