// The terminal. Text is UTF-8.

#ifndef TOOLS_PLATFORM_TERMINAL_H_
#define TOOLS_PLATFORM_TERMINAL_H_

#include <memory>
#include <string>

namespace corvan_tool {

bool is_output_on_terminal();
bool is_error_on_terminal();

// The width of the terminal that standard output goes to; 0 if it does not go to one.
int columns_of_terminal();

// The process's terminal, without echo as long as this object exists. Ctrl-C and Ctrl-\ are read as
// characters meanwhile, so that they cannot leave the terminal without echo.
class SilentTerminal {
 public:
  SilentTerminal();
  SilentTerminal(const SilentTerminal&) = delete;
  SilentTerminal& operator=(const SilentTerminal&) = delete;
  ~SilentTerminal();

  // False if the process has no terminal. Then the other functions must not be called.
  bool is_there() const { return state_ != nullptr; }

  // Reads one byte of what is typed. Returns false at the end of the input.
  bool read(char& byte);

  // A failure is ignored.
  void write(const std::string& text);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace corvan_tool

#endif  // TOOLS_PLATFORM_TERMINAL_H_
