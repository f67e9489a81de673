#ifndef TESTS_SUPPORT_SQLITE_LEDGER_H_
#define TESTS_SUPPORT_SQLITE_LEDGER_H_

#include <string>
#include <vector>

namespace corvan_test {

// Every text that the store has handed to SQLite since the last call, in order, those that failed
// to prepare too.
std::vector<std::string> take_ledger();

// The number of statements that are prepared and not finalised on the store's connection; 0 when it
// is closed.
int open_statements();

// Whether the store's connection is inside a transaction.
bool in_transaction();

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_SQLITE_LEDGER_H_
