// The end of a process that calls abort(), for EXPECT_EXIT.

#ifndef TESTS_BASE_ABORTED_H_
#define TESTS_BASE_ABORTED_H_

#include <string>

namespace corvan_test {

bool aborted(int status);

// A regular expression for all of standard error, of a process that wrote these lines to it and
// called abort(). The lines may have metacharacters.
std::string written_before_abort(const std::string& lines);

}  // namespace corvan_test

#endif  // TESTS_BASE_ABORTED_H_
