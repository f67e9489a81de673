// Asks for secrets on the terminal.

#ifndef TOOLS_STORE_SECRET_TERMINAL_H_
#define TOOLS_STORE_SECRET_TERMINAL_H_

#include <string>

#include "tools/platform/terminal.h"

namespace corvan_tool {

// The process's terminal, without echo as long as this object exists.
class SecretTerminal {
 public:
  // Throws ToolError if the process has no terminal.
  SecretTerminal();

  // Writes the prompt, and reads a line into `answer` without its end. The capacity of `answer` is
  // its limit; characters that were erased are wiped. Throws ToolError if the line is longer, or if
  // the user cancels.
  void ask(const std::string& prompt, std::string& answer);

 private:
  SilentTerminal terminal_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_SECRET_TERMINAL_H_
