// Random texts and queries of characters that fold in unusual ways. The reference matcher agrees
// with Query, and the index finds what matches.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "addons/search/query.h"
#include "tests/addons/search/reference_matcher.h"
#include "tests/addons/search/token_table.h"
#include "tests/support/bounds.h"

namespace corvan_test {
namespace {

using Corvan::SearchRange;
using Corvan::search::Query;

const std::string kPieces[] = {
    "a",        "A",      "b",      "ab",     "ß",      "SS",     "é",      "e",      "\u0301",
    "e\u0301",  "\u0323", "ﬁ",      "ｆ",     "i",      "İ",      "ı",      "Σ",      "ς",
    "1",        "²",      "中",     "国",     "中国",   "々",     "カ",     "ｶ",      "ﾞ",
    "ガ",       "\u3099", "ー",     "한",     "\u1112", "\u1161", "\u11AB", "가",     "ก",
    "ำ",        "ํา",      "่",       "ไ",      "ລ",      "ຳ",      "ស",      "្",       "တ",
    "မ",        "ا",      "ل",      "ﻻ",      "ह",      "ि",      "न",      "्",       "👨",
    "👩",        "\u200D", "👍",      "🏽",   "❤",      "\uFE0F", "🇩",      "🇪",      "\u20E3",
    "㍿",       "ﷺ",      "\u00AD", "\u200B", "\uE000", "\uFFFD", "©",      "\u0600", "\xFF",
    "\xE4\xB8", "→"};
const std::string kSeparators[] = {" ",      " ",  " ",    ".",  "，", "-",
                                   "\u3000", "\n", "\r\n", "\"", "*",  std::string(1, '\0')};
const std::string kSigns[] = {" ", " ", "\"", "“", "”", "＂", "*", "＊", "-", "\r\n"};

class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}

  std::size_t below(std::size_t end) { return engine_() % end; }

  template <std::size_t size>
  const std::string& one_of(const std::string (&values)[size]) {
    return values[below(size)];
  }

  // Few different pieces, so that texts often match.
  std::string text() {
    std::string text;
    const std::size_t kinds = 1 + below(6);
    const std::size_t first = below(std::size(kPieces));
    for (std::size_t length = below(14); length > 0; --length) {
      const std::size_t at = below(5) == 0 ? below(std::size(kPieces)) : first + below(kinds);
      text += below(3) == 0 ? one_of(kSeparators) : kPieces[at % std::size(kPieces)];
    }
    return text;
  }

  // Parts of the text with signs between them, or any text.
  std::string query(const std::string& text) {
    if (text.empty() || below(8) == 0) return this->text();
    std::string query;
    for (std::size_t parts = 1 + below(3); parts > 0; --parts) {
      if (below(2) == 0) query += one_of(kSigns);
      const std::vector<std::size_t> borders = cluster_borders(text);
      const std::size_t begin = borders[below(borders.size())];
      query += text.substr(begin, borders[below(borders.size())] - begin);
      if (below(2) == 0) query += one_of(kSigns);
    }
    return query;
  }

 private:
  std::mt19937_64 engine_;
};

void check_ranges(const Query& query, const std::string& text, bool matches) {
  const std::vector<SearchRange> ranges = query.ranges(text);
  EXPECT_EQ(!ranges.empty(), matches);
  const std::vector<std::size_t> borders = cluster_borders(text);
  std::size_t end = 0;
  for (const SearchRange& range : ranges) {
    EXPECT_GE(range.begin, end);
    EXPECT_GT(range.size, 0U);
    end = range.begin + range.size;
    EXPECT_TRUE(std::binary_search(borders.begin(), borders.end(), range.begin));
    EXPECT_TRUE(std::binary_search(borders.begin(), borders.end(), end));
  }
}

std::string hex(const std::string& text) {
  std::string result;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    result += "0123456789abcdef"[byte >> 4U];
    result += "0123456789abcdef"[byte & 15U];
  }
  return result;
}

bool is_one_term(const std::string& query) {
  return query.find_first_of(" \n\r\"\xE2\xEF\xE3") == std::string::npos;
}

bool check_one(Random& random, TokenTable& table) {
  const std::string text = random.text();
  const std::string written = random.query(text);
  SCOPED_TRACE("text " + hex(text) + ", query " + hex(written) + ": " + text + " | " + written);
  const Query query(written);
  const bool matches = query.matches(text);
  EXPECT_EQ(matches, reference_matches(written, text));
  check_ranges(query, text, matches);
  if (!matches) return false;
  table.clear();
  table.add(1, text);
  EXPECT_EQ(table.find(query).size(), 1U);
  if (!is_one_term(written)) return true;
  for (const SearchRange& range : query.ranges(text)) {
    EXPECT_TRUE(query.matches(text.substr(range.begin, range.size)));
  }
  return true;
}

TEST(RandomTextTest, AgreesWithTheReference) {
  const uint64_t seed = bound("CORVAN_SEARCH_SEED", 1, std::random_device()());
  const uint64_t texts = bound("CORVAN_SEARCH_TEXTS", 20000, 2000000);
  SCOPED_TRACE("CORVAN_SEARCH_SEED=" + std::to_string(seed));
  Random random(seed);
  TokenTable table;
  uint64_t matching = 0;
  for (uint64_t i = 0; i < texts && !testing::Test::HasFailure(); ++i) {
    matching += check_one(random, table) ? 1U : 0U;
  }
  EXPECT_EQ(table.error(), "");
  EXPECT_GT(matching, texts / 10);
}

// Many terms are found in another way than few.
TEST(RandomTextTest, ManyTermsAgreeWithTheReference) {
  const uint64_t seed = bound("CORVAN_SEARCH_SEED", 1, std::random_device()());
  SCOPED_TRACE("CORVAN_SEARCH_SEED=" + std::to_string(seed));
  Random random(seed);
  uint64_t matching = 0;
  for (uint64_t i = 0; i < 100 && !testing::Test::HasFailure(); ++i) {
    std::string text;
    for (int part = 0; part < 40; ++part) text += random.text() + "\n";
    std::string written;
    for (int part = 0; part < 60; ++part) written += random.query(text.substr(0, 400)) + "\n";
    SCOPED_TRACE("text " + hex(text) + ", query " + hex(written));
    for (std::string* one : {&written, &text}) {
      const Query query(*one);
      const bool matches = query.matches(text);
      EXPECT_EQ(matches, reference_matches(*one, text));
      check_ranges(query, text, matches);
      matching += matches ? 1U : 0U;
    }
  }
  EXPECT_GT(matching, 50U);
}

}  // namespace
}  // namespace corvan_test
