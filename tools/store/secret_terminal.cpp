#include "tools/store/secret_terminal.h"

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

SecretTerminal::SecretTerminal() {
  if (!terminal_.is_there()) {
    throw ToolError("a passphrase can only be entered on a terminal; use --key-file");
  }
}

void SecretTerminal::ask(const std::string& prompt, std::string& answer) {
  terminal_.write(prompt);
  char character = '\0';
  while (terminal_.read(character) && !is_line_end(character) && character != kEndOfInput) {
    if (is_cancel(character)) {
      terminal_.write("\n");
      throw ToolError("cancelled: no passphrase was given");
    }
    edit(answer, character);
  }
  terminal_.write("\n");
}

}  // namespace corvan_tool
