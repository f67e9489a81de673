// Work in a process that permissions bind.

#ifndef TESTS_ADDONS_SEARCH_WITHOUT_PRIVILEGES_H_
#define TESTS_ADDONS_SEARCH_WITHOUT_PRIVILEGES_H_

#include <functional>
#include <string>

namespace corvan_test {

// Runs the work as a user whom permissions bind: on Windows in this process, because there a
// read-only file is so for everybody, elsewhere in another one. Returns what the work returns, a
// complaint or an empty text.
std::string without_privileges(const std::function<std::string()>& work);

}  // namespace corvan_test

#endif  // TESTS_ADDONS_SEARCH_WITHOUT_PRIVILEGES_H_
