#ifndef TESTS_SUPPORT_SQLITE_LEDGER_H_
#define TESTS_SUPPORT_SQLITE_LEDGER_H_

#include <string>
#include <vector>

namespace corvan_test {

// Every text that the store has handed to SQLite since the last call, in order, those that failed
// to prepare too.
std::vector<std::string> take_ledger();

// How often the store has fetched a costly text since the last call.
struct FetchedTexts {
  int errors = 0;    // a connection's error text
  int expanded = 0;  // a statement's text with its values
};
FetchedTexts take_fetched_texts();

// The flags with which the store last opened a file.
int open_flags();

// The number of statements that are prepared and not finalised on the store's connection; 0 when it
// is closed.
int open_statements();

// Whether the store's connection is inside a transaction.
bool in_transaction();

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_SQLITE_LEDGER_H_
