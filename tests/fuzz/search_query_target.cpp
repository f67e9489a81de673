#include <algorithm>
#include <string>
#include <vector>

#include "addons/search/code_point.h"
#include "addons/search/query.h"
#include "tests/fuzz/targets.h"

namespace corvan_test {

namespace {

using Corvan::SearchRange;
using Corvan::search::Query;

// Whether a code point begins here, or a byte that is not valid UTF-8, or the text ends.
bool is_border(const std::string& text, std::size_t place) {
  std::size_t at = 0;
  char32_t point = 0;
  while (at < place)
    at += std::max<std::size_t>(1, Corvan::search::decode(text.substr(at, 4), point));
  return at == place;
}

std::string check_ranges(const std::vector<SearchRange>& ranges, const std::string& text) {
  std::size_t end = 0;
  for (const SearchRange& range : ranges) {
    if (range.begin < end || range.size == 0) return "Ranges overlap or are empty.";
    end = range.begin + range.size;
    if (end > text.size()) return "A range is outside the text.";
    if (!is_border(text, range.begin) || !is_border(text, end)) return "A range cuts a code point.";
  }
  return "";
}

std::string check_matching(const Query& query, const std::string& text) {
  const bool matches = query.matches(text);
  const std::vector<SearchRange> ranges = query.ranges(text);
  if (query.is_empty() && matches) return "An empty query matches.";
  if (matches == ranges.empty()) return "There are ranges without a match, or no ranges for one.";
  if (matches && !query.matches(text + "\nmore")) return "A longer text does not match.";
  if (matches && !query.matches("more\n" + text))
    return "A text with something before does not match.";
  return check_ranges(ranges, text);
}

// Each term is a part of the text that begins and ends between clusters.
std::string check_itself(const std::string& text) {
  const Query query(text);
  if (query.is_empty() != query.tokens().empty()) return "There are no tokens, or no terms.";
  if (query.matches(text) == query.is_empty()) return "A text is not found by itself.";
  return check_matching(query, text);
}

}  // namespace

std::string check_search_query(const uint8_t* data, std::size_t size) {
  const std::string input(reinterpret_cast<const char*>(data), size);
  const std::size_t end = std::min(input.find('\n'), size);
  const std::string query = input.substr(0, end);
  const std::string text = input.substr(std::min(end + 1, size));
  const std::string wrong = check_matching(Query(query), text);
  return wrong.empty() ? check_itself(text) : wrong;
}

}  // namespace corvan_test
