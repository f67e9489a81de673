#ifndef TESTS_ADDONS_STATEMENT_CACHE_OPEN_FILES_H_
#define TESTS_ADDONS_STATEMENT_CACHE_OPEN_FILES_H_

#include <string>
#include <vector>

namespace corvan_test {

// The files in the folder, whose path ends with "/", that this process has open.
std::vector<std::string> open_files(const std::string& folder);

}  // namespace corvan_test

#endif  // TESTS_ADDONS_STATEMENT_CACHE_OPEN_FILES_H_
