#include <gtest/gtest.h>

#include <string>

#include "addons/search/query.h"

namespace corvan_test {
namespace {

using Corvan::search::Query;

bool matches(const std::string& query, const std::string& text) {
  return Query(query).matches(text);
}

TEST(QuerySyntaxTest, RequiresEveryTerm) {
  EXPECT_TRUE(matches("two one", "one two three"));
  EXPECT_FALSE(matches("two four", "one two three"));
}

TEST(QuerySyntaxTest, SeparatesTermsAtEverySpace) {
  for (const char* space : {" ", "\t", "\r\n", "\n", "\u0085", "\u00A0", "\u1680", "\u2003",
                            "\u2028", "\u202F", "\u205F", "\u3000"}) {
    EXPECT_TRUE(matches(std::string("two") + space + "one", "one two")) << space;
  }
}

TEST(QuerySyntaxTest, PunctuationInATermIsNoSpace) {
  EXPECT_FALSE(matches("two-one", "one two"));
  EXPECT_TRUE(matches("one-two", "one two"));
  EXPECT_TRUE(matches("don't", "I don't know"));
  EXPECT_TRUE(matches("don't", "I don’t know"));
  EXPECT_FALSE(matches("don't", "t don"));
}

TEST(QuerySyntaxTest, TakesEveryQuotationMark) {
  for (const auto& [open, close] : {std::pair<std::string, std::string>{"\"", "\""},
                                    {"“", "”"},
                                    {"„", "“"},
                                    {"‟", "”"},
                                    {"«", "»"},
                                    {"»", "«"},
                                    {"＂", "＂"},
                                    {"\"", "”"}}) {
    EXPECT_TRUE(matches(open + "one two" + close, "one, two")) << open;
    EXPECT_FALSE(matches(open + "two one" + close, "one, two")) << open;
    EXPECT_TRUE(matches("three" + open + "one two" + close + "four", "one two three four")) << open;
  }
}

TEST(QuerySyntaxTest, AnUnclosedQuotationReachesToTheEnd) {
  EXPECT_TRUE(matches("\"one two", "one two"));
  EXPECT_FALSE(matches("\"two one", "one two"));
  EXPECT_FALSE(matches("\"one tw*", "one two"));
}

TEST(QuerySyntaxTest, AnAsteriskAfterATermMakesAPrefix) {
  for (const char* query : {"tw*", "tw＊", "tw**", "one-tw*", "tw-*", "\"one tw\"*", "\"one tw\"＊",
                            "\"tw\"*one", "tw*\"one\"", "t* o*"}) {
    EXPECT_TRUE(matches(query, "one two")) << query;
  }
  for (const char* query : {"w*", "on*-two", "\"on*\"", "tw *", "*wo", "\"on tw\"*", "\"tw\" *"}) {
    EXPECT_FALSE(matches(query, "one two")) << query;
  }
  EXPECT_TRUE(matches("two*", "one two"));
}

TEST(QuerySyntaxTest, AnAsteriskElsewhereSeparates) {
  EXPECT_TRUE(matches("one*two", "one two"));
  EXPECT_TRUE(matches("*one", "one two"));
  EXPECT_TRUE(matches("* one", "one two"));
  EXPECT_TRUE(matches("\"one * two\"", "one two"));
}

TEST(QuerySyntaxTest, ASignWithAMarkIsText) {
  EXPECT_FALSE(matches("on*\u0301", "one"));
  EXPECT_FALSE(matches("two\"\u0301one", "one two"));
}

TEST(QuerySyntaxTest, IgnoresTermsWithoutWords) {
  EXPECT_TRUE(matches("- one !!! \"...\" \u200B", "one"));
  EXPECT_FALSE(Query("- one").is_empty());
}

TEST(QuerySyntaxTest, IsEmptyWithoutWords) {
  for (const std::string query : {"", " ", "*", "\"", "\"\"", "\"\"*", "--- ...", "\u200B", "\xFF",
                                  "\u3000\uFF0A", "\uFFFD"}) {
    const Query empty(query);
    EXPECT_TRUE(empty.is_empty()) << query;
    EXPECT_TRUE(empty.tokens().empty()) << query;
    EXPECT_FALSE(empty.matches("one")) << query;
    EXPECT_TRUE(empty.ranges("one").empty()) << query;
  }
}

TEST(QuerySyntaxTest, AZeroByteAndBadBytesSeparateWords) {
  EXPECT_TRUE(matches(std::string("one\0two", 7), "one two"));
  EXPECT_TRUE(matches("one\xFFtwo", "one two"));
  EXPECT_TRUE(matches("one", std::string("one\0two", 7)));
  EXPECT_TRUE(matches("two", "one\xC3two"));
  EXPECT_FALSE(matches("onetwo", "one\x80two"));
}

}  // namespace
}  // namespace corvan_test
