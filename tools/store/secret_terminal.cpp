#include "tools/store/secret_terminal.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

constexpr char kEndOfInput = '\x04';
constexpr char kClearLine = '\x15';

bool is_line_end(char character) {
  return character == '\n' || character == '\r';
}

bool is_cancel(char character) {
  return character == '\x03' || character == '\x1c';
}

bool is_erase(char character) {
  return character == '\b' || character == '\x7f';
}

// Wipes the last byte, then all bytes of its UTF-8 character.
void erase_last(std::string& text) {
  bool is_continuation = true;
  while (is_continuation && !text.empty()) {
    is_continuation = (static_cast<unsigned char>(text.back()) & 0xC0U) == 0x80;
    text.back() = '\0';
    text.pop_back();
  }
}

void add(std::string& text, char character) {
  if (text.size() == text.capacity()) throw ToolError("the passphrase is too long");
  text.push_back(character);
}

void edit(std::string& text, char character) {
  if (is_erase(character)) {
    erase_last(text);
  } else if (character == kClearLine) {
    while (!text.empty()) erase_last(text);
  } else {
    add(text, character);
  }
}

}  // namespace

SecretTerminal::SecretTerminal() : fd_(open("/dev/tty", O_RDWR | O_CLOEXEC | O_NOCTTY)) {
  if (fd_ < 0 || tcgetattr(fd_, &before_) != 0) {
    if (fd_ >= 0) close(fd_);
    throw ToolError("a passphrase can only be entered on a terminal; use --key-file");
  }
  struct termios silent = before_;
  silent.c_lflag &= static_cast<tcflag_t>(~(ECHO | ECHONL | ICANON | ISIG));
  tcsetattr(fd_, TCSAFLUSH, &silent);
}

SecretTerminal::~SecretTerminal() {
  tcsetattr(fd_, TCSAFLUSH, &before_);
  close(fd_);
}

bool SecretTerminal::read_character(char& character) const {
  ssize_t got = -1;
  do got = read(fd_, &character, 1);
  while (got < 0 && errno == EINTR);
  return got == 1;
}

void SecretTerminal::write(const std::string& text) const {
  const ssize_t ignored = ::write(fd_, text.data(), text.size());
  static_cast<void>(ignored);
}

void SecretTerminal::ask(const std::string& prompt, std::string& answer) {
  write(prompt);
  char character = '\0';
  while (read_character(character) && !is_line_end(character) && character != kEndOfInput) {
    if (is_cancel(character)) {
      write("\n");
      throw ToolError("cancelled: no passphrase was given");
    }
    edit(answer, character);
  }
  write("\n");
}

}  // namespace corvan_tool
