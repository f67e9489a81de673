#include "bench/search/text_parts.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace corvan_bench {

namespace {

bool is_word(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0;
}

bool is_ascii(char c) {
  return static_cast<unsigned char>(c) < 0x80;
}

// Bytes of the character at `at`, in valid UTF-8.
std::size_t character_size(std::string_view text, std::size_t at) {
  const auto first = static_cast<unsigned char>(text[at]);
  const std::size_t size = first < 0x80 ? 1 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  return std::min(size, text.size() - at);
}

// U+4E00 to U+9FFF.
bool is_chinese(std::string_view c) {
  return c.size() == 3 && c >= "\xE4\xB8\x80" && c <= "\xE9\xBF\xBF";
}

class Splitter {
 public:
  explicit Splitter(std::string_view text) : text_(text) {}

  TextParts split() {
    while (at_ < text_.size()) {
      if (is_word(text_[at_])) {
        take_word();
      } else {
        take_character();
      }
    }
    return std::move(parts_);
  }

 private:
  void take_word() {
    const std::size_t begin = at_;
    while (at_ < text_.size() && is_word(text_[at_])) ++at_;
    in_run_ = false;
    const bool joined =
        (begin > 0 && !is_ascii(text_[begin - 1])) || (at_ < text_.size() && !is_ascii(text_[at_]));
    if (!joined) parts_.words.push_back(text_.substr(begin, at_ - begin));
  }

  void take_character() {
    const std::string_view c = text_.substr(at_, character_size(text_, at_));
    at_ += c.size();
    if (!is_chinese(c)) {
      in_run_ = false;
      return;
    }
    if (!in_run_) parts_.chinese.emplace_back();
    in_run_ = true;
    parts_.chinese.back().push_back(c);
  }

  const std::string_view text_;
  std::size_t at_ = 0;
  bool in_run_ = false;  // the previous character belongs to the last run
  TextParts parts_;
};

}  // namespace

TextParts parts_of(std::string_view text) {
  return Splitter(text).split();
}

bool are_neighbours(std::string_view first, std::string_view second) {
  const char* const end = first.data() + first.size();
  return second.data() == end + 1 && *end == ' ';
}

std::string_view part_of_run(const std::vector<std::string_view>& run, std::size_t begin,
                             std::size_t count) {
  const char* const first = run[begin].data();
  const std::string_view last = run[begin + count - 1];
  return {first, static_cast<std::size_t>(last.data() + last.size() - first)};
}

}  // namespace corvan_bench
