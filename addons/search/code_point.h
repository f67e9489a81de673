// What the search knows about single code points. Unicode data comes from utf8proc, and from
// unspaced_characters.inc.

#ifndef ADDONS_SEARCH_CODE_POINT_H_
#define ADDONS_SEARCH_CODE_POINT_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Corvan::search {

enum class Kind : uint8_t {
  kSeparator,
  kWord,      // letters and numbers of scripts with spaces between words
  kUnspaced,  // characters that are searched one by one: of scripts without spaces, and symbols
  kMark,      // belongs to the word before it; ignored elsewhere
};

// Properties of a code point, packed into 32 bits.
class Traits {
 public:
  Traits() = default;
  Traits(char32_t folded, Kind kind, Kind own_kind, bool is_simple)
      : bits_(folded | static_cast<uint32_t>(kind) << 21U | static_cast<uint32_t>(own_kind) << 23U |
              static_cast<uint32_t>(is_simple) << 25U) {}

  // The code point can be in one grapheme cluster only with code points that are not simple, and
  // folds to exactly one code point, folded().
  bool is_simple() const { return (bits_ >> 25U) != 0; }
  // Whether these are the traits of a simple, unspaced code point that folds to itself.
  bool is_plain(char32_t own) const {
    return bits_ == Traits(own, Kind::kUnspaced, Kind::kUnspaced, true).bits_;
  }
  char32_t folded() const { return bits_ & 0x1FFFFFU; }
  Kind kind() const { return static_cast<Kind>(bits_ >> 21U & 3U); }      // of folded()
  Kind own_kind() const { return static_cast<Kind>(bits_ >> 23U & 3U); }  // of the code point

 private:
  uint32_t bits_ = 0;
};

constexpr std::size_t kTraitsPerBlock = 256;

// The first entry of each block; null until the block is needed first.
extern std::array<std::atomic<const Traits*>, 0x110000 / kTraitsPerBlock> traits_blocks;
const Traits* make_traits_block(std::size_t number);

// The code point must be below 0x110000. May throw std::bad_alloc.
inline Traits traits(char32_t code_point) {
  const std::size_t number = code_point / kTraitsPerBlock;
  const Traits* block = traits_blocks[number].load(std::memory_order_acquire);
  if (block == nullptr) block = make_traits_block(number);
  return block[code_point % kTraitsPerBlock];
}

// The Unicode version of the table of unspaced characters.
const char* unspaced_characters_version();

// As decode(), for any text.
std::size_t decode_checked(std::string_view text, char32_t& code_point);

// Decodes the first code point of the text. Returns its size in bytes; 0 if the text is empty or
// does not begin with valid UTF-8.
inline std::size_t decode(std::string_view text, char32_t& code_point) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const auto is_trail = [&](std::size_t i) { return (byte(i) & 0xC0U) == 0x80; };
  if (!text.empty() && byte(0) < 0x80) {
    code_point = byte(0);
    return 1;
  }
  // Most characters of three bytes. The first byte excludes surrogates and overlong forms.
  if (text.size() >= 3 && byte(0) > 0xE0 && byte(0) < 0xED && is_trail(1) && is_trail(2)) {
    code_point = (byte(0) & 0x0FU) << 12U | (byte(1) & 0x3FU) << 6U | (byte(2) & 0x3FU);
    return 3;
  }
  return decode_checked(text, code_point);
}

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_CODE_POINT_H_
