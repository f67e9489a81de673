#include "tests/tools/terminal.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <stdexcept>

#include "tests/tools/program.h"

namespace corvan_test {

std::string written_to_terminal(int terminal, int other_end) {
  const std::string end = "<end>";
  if (write(other_end, end.data(), end.size()) != static_cast<ssize_t>(end.size())) {
    throw std::runtime_error("cannot write to a terminal");
  }
  std::string text;
  std::array<char, 4096> part{};
  while (text.size() < end.size() || text.substr(text.size() - end.size()) != end) {
    const ssize_t size = read(terminal, part.data(), part.size());
    if (size <= 0) throw std::runtime_error("cannot read from a terminal");
    text.append(part.data(), static_cast<std::size_t>(size));
  }
  text.resize(text.size() - end.size());
  return text;
}

std::optional<std::string> ToolTest::terminal_output(const Arguments& arguments,
                                                     unsigned short columns) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0) return std::nullopt;
  EXPECT_EQ(grantpt(terminal), 0);
  EXPECT_EQ(unlockpt(terminal), 0);
  const int out = open(ptsname(terminal), O_RDWR | O_NOCTTY | O_CLOEXEC);
  winsize window = {};
  window.ws_row = 24;
  window.ws_col = columns;
  EXPECT_EQ(ioctl(out, TIOCSWINSZ, &window), 0);
  const int keep = dup(out);  // closing the last end would discard the text
  EXPECT_EQ(wait(start(arguments, out)), 0);
  std::string text = written_to_terminal(terminal, keep);
  close(keep);
  close(terminal);
  return text;
}

}  // namespace corvan_test
