// Long and repetitive texts and queries are handled in about linear time: otherwise these tests
// would run for hours.

#include <gtest/gtest.h>

#include <string>

#include "addons/search/query.h"
#include "tests/addons/search/token_table.h"

namespace corvan_test {
namespace {

using Corvan::search::Query;

std::string repeated(const std::string& text, std::size_t times) {
  std::string result;
  for (std::size_t i = 0; i < times; ++i) result += text;
  return result;
}

void expect_finds_itself(const std::string& text) {
  const Query query(text);
  EXPECT_TRUE(query.matches(text));
  EXPECT_FALSE(query.ranges(text).empty());
  EXPECT_FALSE(query.matches(text.substr(0, text.size() / 3)));
  EXPECT_LE(query.tokens().size(), 32U);
}

TEST(LongTextTest, QueriesOfAMegabyteFindThemselves) {
  std::string words;
  std::string pairs;
  std::string lines;
  for (int i = 0; i < 60000; ++i) {
    words += " w" + std::to_string(i);
    pairs += " a-" + std::to_string(i);
    lines += "电影" + std::to_string(i) + (i % 5 == 0 ? "\n" : "，");
  }
  expect_finds_itself(words);
  expect_finds_itself(pairs);
  expect_finds_itself(lines);
  expect_finds_itself('"' + words);
  expect_finds_itself('"' + lines);
}

TEST(LongTextTest, RepetitiveTextsAreMarked) {
  const std::string text = repeated("中", 300000);
  EXPECT_EQ(Query(text.substr(0, 300000)).ranges(text).size(), 1U);
  EXPECT_EQ(Query(repeated("中", 1000) + "国").ranges(text).size(), 0U);
  EXPECT_EQ(Query(repeated("a ", 300000)).ranges(repeated("a ", 300000)).size(), 300000U);
  EXPECT_EQ(Query('"' + repeated("a ", 100000)).ranges(repeated("a ", 300000)).size(), 1U);
}

TEST(LongTextTest, ClustersOfAnyLengthAreFolded) {
  for (const std::string part : {"\u0301", "\u0323\u0301", "\u200D", "👨\u200D", "\u1100", "🇩",
                                 "\u0600", "\uFE0F", "ﷺ", "\u0345", "\u0F73"}) {
    const std::string text = "x" + repeated(part, 50000);
    TokenTable table;
    table.add(1, text);
    EXPECT_EQ(table.error(), "");
    const Query query(text);
    EXPECT_TRUE(query.matches(text)) << part;
    EXPECT_FALSE(query.ranges(text).empty()) << part;
    EXPECT_EQ(table.find(query).size(), 1U) << part;
  }
}

}  // namespace
}  // namespace corvan_test
