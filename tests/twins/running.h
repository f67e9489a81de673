#ifndef TESTS_TWINS_RUNNING_H_
#define TESTS_TWINS_RUNNING_H_

#include <string>
#include <vector>

namespace corvan_test {

// Runs a program and waits for its end. Returns its exit status.
int run_program(const std::string& program, const std::vector<std::string>& arguments);

}  // namespace corvan_test

#endif  // TESTS_TWINS_RUNNING_H_
