#include "tools/store/key_source.h"

#include <fmt/format.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <string_view>

#include "addons/encryption/secret.h"
#include "tools/platform/files.h"
#include "tools/store/secret_terminal.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kDigits = 2 * Corvan::StoreKey::kSize;

bool standard_input_is_read = false;

// The text of a key file, wiped at the end. A longer file is refused.
class KeyText {
 public:
  KeyText() = default;
  KeyText(const KeyText&) = delete;
  KeyText& operator=(const KeyText&) = delete;
  ~KeyText() { Corvan::encryption::wipe(bytes_.data(), bytes_.size()); }

  // Reads to the end of the input. Throws ToolError if that fails.
  void read_from(int file, const std::string& name) {
    while (size_ < bytes_.size()) {
      const auto got = read_some(file, bytes_.data() + size_, bytes_.size() - size_);
      if (got < 0) throw ToolError(name + ": " + std::strerror(errno));
      if (got == 0) return;
      size_ += static_cast<std::size_t>(got);
    }
    throw ToolError(name + ": not a key: longer than 64 hexadecimal digits");
  }

  std::string_view trimmed() const {
    constexpr std::string_view kSpace = " \t\r\n\v\f";
    const std::string_view text(bytes_.data(), size_);
    const std::size_t first = text.find_first_not_of(kSpace);
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(kSpace) + 1 - first);
  }

 private:
  std::array<char, 1024> bytes_{};
  std::size_t size_ = 0;
};

// The value of a hexadecimal digit; 16 if it is none.
unsigned value_of(char digit) {
  if (digit >= '0' && digit <= '9') return static_cast<unsigned>(digit - '0');
  if (digit >= 'a' && digit <= 'f') return static_cast<unsigned>(digit - 'a') + 10;
  if (digit >= 'A' && digit <= 'F') return static_cast<unsigned>(digit - 'A') + 10;
  return 16;
}

void require_digits(std::string_view text, const std::string& name) {
  for (const char digit : text) {
    if (value_of(digit) == 16) {
      throw ToolError(name + ": not a key: it must hold 64 hexadecimal digits and nothing else");
    }
  }
  if (text.size() == kDigits) return;
  throw ToolError(fmt::format("{}: not a key: {} hexadecimal digits instead of {}", name,
                              text.size(), kDigits));
}

Corvan::StoreKey key_of(std::string_view digits) {
  Corvan::StoreKey::Bytes bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] =
        static_cast<unsigned char>(value_of(digits[2 * i]) << 4U | value_of(digits[2 * i + 1]));
  }
  return Corvan::StoreKey(bytes);
}

// Closes the file unless it is standard input.
class KeyFile {
 public:
  explicit KeyFile(const std::string& path)
      : file_(path == "-" ? kStandardInput : open_to_read(path)) {
    if (file_ < 0) throw ToolError(path + ": " + std::strerror(errno));
    if (file_ == kStandardInput) standard_input_is_read = true;
  }
  KeyFile(const KeyFile&) = delete;
  KeyFile& operator=(const KeyFile&) = delete;
  ~KeyFile() {
    if (file_ != kStandardInput) close_file(file_);
  }

  int descriptor() const { return file_; }

 private:
  const int file_;
};

// A passphrase, in one buffer that never grows.
class Passphrase {
 public:
  Passphrase() { text_.reserve(Corvan::StoreKey::kLongestPassphrase); }
  Passphrase(const Passphrase&) = delete;
  Passphrase& operator=(const Passphrase&) = delete;
  ~Passphrase() { Corvan::encryption::wipe(text_.data(), text_.size()); }

  std::string& text() { return text_; }

 private:
  std::string text_;
};

}  // namespace

Corvan::StoreKey read_key_file(const std::string& file) {
  if (file == "-" && has_read_standard_input()) {
    throw ToolError("standard input: was read for the other key; name a file for one of them");
  }
  const std::string name = file == "-" ? "standard input" : file;
  const KeyFile input(file);
  KeyText text;
  text.read_from(input.descriptor(), name);
  require_digits(text.trimmed(), name);
  return key_of(text.trimmed());
}

bool has_read_standard_input() {
  return standard_input_is_read;
}

Corvan::StoreKey ask_passphrase(const std::string& name, Asking asking) {
  SecretTerminal terminal;
  Passphrase first;
  terminal.ask("Enter the " + name + ": ", first.text());
  if (asking == Asking::kTwice) {
    Passphrase second;
    terminal.ask("Repeat the " + name + ": ", second.text());
    if (first.text() != second.text()) throw ToolError("the two passphrases differ");
  }
  auto key = Corvan::StoreKey::from_passphrase(first.text());
  if (!key.is_valid()) {
    throw ToolError(
        "the " + name +
        " cannot be used: it is empty, contains a zero byte, or begins with \"raw:\" or "
        "\"x'\"");
  }
  return key;
}

}  // namespace corvan_tool
