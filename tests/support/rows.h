#ifndef TESTS_SUPPORT_ROWS_H_
#define TESTS_SUPPORT_ROWS_H_

#include <string>
#include <vector>

namespace corvan_test {

using Rows = std::vector<std::string>;

// The rows of a query, read through a separate connection to the file, which sees only what is
// committed. A row is its columns joined by "|"; SQL NULL reads "NULL". Throws std::runtime_error
// with SQLite's text if the statement fails.
Rows rows(const std::string& file, const std::string& sql);

// Runs a statement that changes the file, through a separate connection.
void plant(const std::string& file, const std::string& sql);

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_ROWS_H_
