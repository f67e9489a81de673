#include "tools/platform/terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>

namespace corvan_tool {

struct SilentTerminal::State {
  int file = -1;
  struct termios before = {};
};

bool is_output_on_terminal() {
  return isatty(STDOUT_FILENO) != 0;
}

bool is_error_on_terminal() {
  return isatty(STDERR_FILENO) != 0;
}

int columns_of_terminal() {
  winsize size = {};
  if (!is_output_on_terminal() || ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
}

SilentTerminal::SilentTerminal() {
  State state = {open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY), {}};
  if (state.file < 0 || tcgetattr(state.file, &state.before) != 0) {
    if (state.file >= 0) close(state.file);
    return;
  }
  struct termios silent = state.before;
  silent.c_lflag &= static_cast<tcflag_t>(~(ECHO | ECHONL | ICANON | ISIG));
  state_ = std::make_unique<State>(state);
  tcsetattr(state.file, TCSAFLUSH, &silent);
}

SilentTerminal::~SilentTerminal() {
  if (state_ == nullptr) return;
  tcsetattr(state_->file, TCSAFLUSH, &state_->before);
  close(state_->file);
}

bool SilentTerminal::read(char& byte) {
  ssize_t got = -1;
  do got = ::read(state_->file, &byte, 1);
  while (got < 0 && errno == EINTR);
  return got == 1;
}

void SilentTerminal::write(const std::string& text) {
  const ssize_t ignored = ::write(state_->file, text.data(), text.size());
  static_cast<void>(ignored);
}

}  // namespace corvan_tool
