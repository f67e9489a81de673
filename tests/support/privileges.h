#ifndef TESTS_SUPPORT_PRIVILEGES_H_
#define TESTS_SUPPORT_PRIVILEGES_H_

namespace corvan_test {

// Gives up the capabilities of root, for this process and all programs that it runs. The user stays
// the same, so file permissions apply to root as to any other owner. False if that is not possible.
// Call it in a child process: it cannot be undone.
bool drop_privileges();

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_PRIVILEGES_H_
