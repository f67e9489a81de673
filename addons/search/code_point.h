// What the search knows about single code points. Unicode data comes from utf8proc, and from
// unspaced_characters.inc.

#ifndef ADDONS_SEARCH_CODE_POINT_H_
#define ADDONS_SEARCH_CODE_POINT_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace Corvan::search {

enum class Kind : uint8_t {
  kSeparator,
  kWord,      // letters, marks and numbers of scripts with spaces between words
  kUnspaced,  // characters that are searched one by one: of scripts without spaces, and symbols
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
  char32_t folded() const { return bits_ & 0x1FFFFFU; }
  Kind kind() const { return static_cast<Kind>(bits_ >> 21U & 3U); }      // of folded()
  Kind own_kind() const { return static_cast<Kind>(bits_ >> 23U & 3U); }  // of the code point

 private:
  uint32_t bits_ = 0;
};

// The code point must be valid: below 0x110000, and no surrogate.
Traits traits(char32_t code_point);

// The Unicode version of the table of unspaced characters.
const char* unspaced_characters_version();

// Decodes the first code point of the text, which must not be empty. Returns its size in bytes; 0
// if it is not valid UTF-8.
std::size_t decode(std::string_view text, char32_t& code_point);

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_CODE_POINT_H_
