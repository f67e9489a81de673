// What differs between the two libraries of the store. Every test runs with Corvan::db and with
// Corvan::db_cached; a test whose expectation depends on the library reads it from here.

#ifndef TESTS_SUPPORT_STORE_LIBRARY_H_
#define TESTS_SUPPORT_STORE_LIBRARY_H_

struct sqlite3;

namespace corvan_test {

// Whether the program is linked with Corvan::db_cached. Then sqlite3_next_stmt() also returns idle
// statements.
bool statements_are_kept();

// Finalises the idle statements, which need no memory to be prepared.
void release_idle_statements();

// Closes a connection that the store has leaked, with the function that the store itself calls, so
// that the ledger notices.
int close_connection(sqlite3* db);

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_STORE_LIBRARY_H_
