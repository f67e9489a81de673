// Pseudo-terminals, which only POSIX has.

#ifndef TESTS_TOOLS_TERMINAL_H_
#define TESTS_TOOLS_TERMINAL_H_

#include <string>

namespace corvan_test {

// All that was written to the other end of a pseudo-terminal. One read() can return less, because
// the kernel passes the text on in the background.
std::string written_to_terminal(int terminal, int other_end);

}  // namespace corvan_test

#endif  // TESTS_TOOLS_TERMINAL_H_
