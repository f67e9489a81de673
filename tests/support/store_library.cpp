// Compiled for each library of the store.

#include "tests/support/store_library.h"

#ifdef CORVAN_STATEMENTS_KEPT

#include "addons/statement_cache/statement_cache.h"

bool corvan_test::statements_are_kept() {
  return true;
}

void corvan_test::release_idle_statements() {
  Corvan::StatementCache::clear();
}

#else

bool corvan_test::statements_are_kept() {
  return false;
}

void corvan_test::release_idle_statements() {}

#endif
