// Exit statuses and errors.

#ifndef TOOLS_UI_ERROR_H_
#define TOOLS_UI_ERROR_H_

#include <stdexcept>

namespace corvan_tool {

// The exit statuses of the tool.
enum ExitStatus : int {
  kOk = 0,
  kNegative = 1,  // a negative answer
  kFailure = 2,   // bad usage, bad input, or a store that cannot be read or written
};

// Ends a command with kFailure. The text is one line that names the file and the problem.
class ToolError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace corvan_tool

#endif  // TOOLS_UI_ERROR_H_
