// Statements of the tests themselves, which the ledger does not record.

#ifndef TESTS_SUPPORT_UNRECORDED_H_
#define TESTS_SUPPORT_UNRECORDED_H_

#include <sqlite3.h>

#if SQLITE_VERSION_NUMBER < 3020000
#include <dlfcn.h>
#endif

namespace corvan_test {

// As sqlite3_prepare_v2(), calls of which the linker redirects to the ledger.
inline int prepare_unrecorded(sqlite3* db, const char* sql, sqlite3_stmt** stmt,
                              const char** tail = nullptr) {
#if SQLITE_VERSION_NUMBER >= 3020000
  return sqlite3_prepare_v3(db, sql, -1, 0, stmt, tail);
#else
  // An old SQLite has to be a shared library: dlsym() finds its function, not the ledger's.
  using Prepare = int (*)(sqlite3*, const char*, int, sqlite3_stmt**, const char**);
  static const auto prepare = reinterpret_cast<Prepare>(dlsym(RTLD_DEFAULT, "sqlite3_prepare_v2"));
  return prepare == nullptr ? SQLITE_MISUSE : prepare(db, sql, -1, stmt, tail);
#endif
}

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_UNRECORDED_H_
