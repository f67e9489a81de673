// Work in a process that permissions bind.

#ifndef TESTS_ADDONS_SEARCH_WITHOUT_PRIVILEGES_H_
#define TESTS_ADDONS_SEARCH_WITHOUT_PRIVILEGES_H_

#include <functional>
#include <string>

namespace corvan_test {

// On Windows, runs in this process: a read-only file is read-only for every user. Elsewhere, runs
// in a child process without privileges. Returns the complaint of the work; empty if there is none.
std::string without_privileges(const std::function<std::string()>& work);

}  // namespace corvan_test

#endif  // TESTS_ADDONS_SEARCH_WITHOUT_PRIVILEGES_H_
