// The files that the process has open.

#ifndef TESTS_ADDONS_STATEMENT_CACHE_OPEN_FILES_H_
#define TESTS_ADDONS_STATEMENT_CACHE_OPEN_FILES_H_

#include <string>
#include <vector>

namespace corvan_test {

// The paths of the folder's files that the process has open. The folder's path ends with "/".
std::vector<std::string> open_files_in(const std::string& folder);

}  // namespace corvan_test

#endif  // TESTS_ADDONS_STATEMENT_CACHE_OPEN_FILES_H_
