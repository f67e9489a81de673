// Asks for secrets on the terminal.

#ifndef TOOLS_STORE_SECRET_TERMINAL_H_
#define TOOLS_STORE_SECRET_TERMINAL_H_

#include <termios.h>

#include <string>

namespace corvan_tool {

// The process's terminal, without echo as long as this object exists. Ctrl-C and Ctrl-\ are read as
// characters meanwhile, so that they cannot leave the terminal without echo.
class SecretTerminal {
 public:
  // Throws ToolError if the process has no terminal.
  SecretTerminal();
  SecretTerminal(const SecretTerminal&) = delete;
  SecretTerminal& operator=(const SecretTerminal&) = delete;
  ~SecretTerminal();

  // Writes the prompt, and reads a line into `answer` without its end. The capacity of `answer` is
  // its limit; characters that were erased are wiped. Throws ToolError if the line is longer, or if
  // the user cancels.
  void ask(const std::string& prompt, std::string& answer);

 private:
  bool read_character(char& character) const;
  void write(const std::string& text) const;

  const int fd_;
  struct termios before_ = {};
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_SECRET_TERMINAL_H_
