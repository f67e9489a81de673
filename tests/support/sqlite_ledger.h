#ifndef TESTS_SUPPORT_SQLITE_LEDGER_H_
#define TESTS_SUPPORT_SQLITE_LEDGER_H_

#include <string>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace corvan_test {

// Every text that the store has passed to SQLite since the last call, in order, including texts
// that could not be prepared.
std::vector<std::string> take_ledger();

// Calls `watcher` after each text that is passed to SQLite, with the result code and the statement
// (null for sqlite3_exec()), and after each opening, with the file's name in place of a text. Null
// ends the calls.
using PrepareWatcher = void (*)(const char* sql, int code, sqlite3_stmt* stmt);
void watch_prepares(PrepareWatcher watcher);

// Whether the statement cache, and not the store, calls SQLite now.
bool called_by_cache();

// How often the store has fetched an expensive text since the last call.
struct FetchedTexts {
  int errors = 0;    // a connection's error text
  int expanded = 0;  // a statement's text with its values
};
FetchedTexts take_fetched_texts();

// The work of SQLite's virtual machine for the statements that the store has finalised since the
// last call. A step is one instruction, however deep the table or index is. Statements that SQLite
// runs by itself, as sqlite3_exec() and VACUUM do, are not counted.
struct StepCounts {
  int vm_steps = 0;
  int full_scan_steps = 0;  // from one row to the next in a full scan
  int sorts = 0;
};
StepCounts take_steps();

// The flags with which the store last opened a file.
int open_flags();

// The store's connection; null when it is closed.
sqlite3* store_connection();

// The number of statements that are prepared and not finalised on the store's connection; 0 when it
// is closed. A statement that the store has finalised and the cache keeps counts only if it is
// still running.
int open_statements();

// Whether the store's connection is inside a transaction.
bool in_transaction();

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_SQLITE_LEDGER_H_
