// Prints everything in a store, one row or result per line.

#ifndef TESTS_EXCHANGE_PRINT_H_
#define TESTS_EXCHANGE_PRINT_H_

#include <ostream>
#include <string>

#include "db/cv_db_singleton.h"

struct sqlite3;

namespace exchange {

// The schema, the file's settings and every row of every table. Throws std::runtime_error with
// SQLite's text if a statement fails.
void print_rows(sqlite3* db, std::ostream& out);

// What the store's operations read: each conversation with its counters, settings and history.
void print_operations(Corvan::CvDbSingleton& store, std::ostream& out);

}  // namespace exchange

#endif  // TESTS_EXCHANGE_PRINT_H_
