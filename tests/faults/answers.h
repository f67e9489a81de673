// Records SQLite's results for the statements of the store.

#ifndef TESTS_FAULTS_ANSWERS_H_
#define TESTS_FAULTS_ANSWERS_H_

#include <vector>

#include "tests/support/operations/answers.h"

namespace corvan_test {

// Records the store's statements from now on. A statement that is reset and runs again counts as
// another one.
void start_answers();
std::vector<Answer> take_answers();

}  // namespace corvan_test

#endif  // TESTS_FAULTS_ANSWERS_H_
