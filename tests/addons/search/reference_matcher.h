// The rules of matching, written down once more and without regard to speed. Texts must not have
// clusters of more than 32 code points.

#ifndef TESTS_ADDONS_SEARCH_REFERENCE_MATCHER_H_
#define TESTS_ADDONS_SEARCH_REFERENCE_MATCHER_H_

#include <string>
#include <vector>

namespace corvan_test {

struct Unit {
  std::string text;  // folded
  bool is_word = false;
  bool is_separated = false;  // from the unit before
};

std::vector<Unit> units_of(const std::string& text);

// Whether the text has all terms of the query, and there are any.
bool reference_matches(const std::string& query, const std::string& text);

// Appends the code point in UTF-8.
void utf8_append(std::string& text, char32_t point);

// Offsets at which grapheme clusters begin, and the size of the text.
std::vector<std::size_t> cluster_borders(const std::string& text);

}  // namespace corvan_test

#endif  // TESTS_ADDONS_SEARCH_REFERENCE_MATCHER_H_
