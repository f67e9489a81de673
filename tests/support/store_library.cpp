// Compiled for each library of the store.

#include "tests/support/store_library.h"

#include <sqlite3.h>

#ifdef CORVAN_STATEMENTS_KEPT

#include "addons/statement_cache/statement_cache.h"

extern "C" int corvan_cached_close(sqlite3* db);

bool corvan_test::statements_are_kept() {
  return true;
}

void corvan_test::release_idle_statements() {
  Corvan::StatementCache::clear();
}

int corvan_test::close_connection(sqlite3* db) {
  return corvan_cached_close(db);
}

#else

bool corvan_test::statements_are_kept() {
  return false;
}

void corvan_test::release_idle_statements() {}

int corvan_test::close_connection(sqlite3* db) {
  return sqlite3_close(db);
}

#endif
