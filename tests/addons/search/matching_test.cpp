#include <gtest/gtest.h>

#include <ostream>
#include <string>

#include "addons/search/query.h"
#include "tests/addons/search/reference_matcher.h"
#include "tests/addons/search/token_table.h"

namespace corvan_test {
namespace {

using Corvan::search::Query;

struct Example {
  const char* query;
  const char* text;
  bool matches;
};

void PrintTo(const Example& e, std::ostream* out) {
  *out << e.query << " in " << e.text;
}

class MatchingTest : public testing::TestWithParam<Example> {};

TEST_P(MatchingTest, FollowsTheRules) {
  const Example& e = GetParam();
  const Query query(e.query);
  EXPECT_EQ(query.matches(e.text), e.matches) << e.query << " in " << e.text;
  EXPECT_EQ(!query.ranges(e.text).empty(), e.matches) << e.query << " in " << e.text;
  EXPECT_EQ(reference_matches(e.query, e.text), e.matches) << e.query << " in " << e.text;
}

TEST_P(MatchingTest, TheIndexFindsWhatMatches) {
  const Example& e = GetParam();
  TokenTable table;
  table.add(7, e.text);
  const bool found = !table.find(Query(e.query)).empty();
  EXPECT_TRUE(found || !e.matches) << e.query << " in " << e.text;
  EXPECT_EQ(table.error(), "");
}

INSTANTIATE_TEST_SUITE_P(
    Words, MatchingTest,
    testing::Values(Example{"foo", "Foo, bar", true}, Example{"foo", "food", false},
                    Example{"oo", "foo", false}, Example{"fo*", "foo", true},
                    Example{"foo bar", "bar foo", true}, Example{"\"foo bar\"", "foo - bar", true},
                    Example{"\"foo bar\"", "foo x bar", false},
                    Example{"\"foo bar\"", "foobar", false}, Example{"foobar", "foo bar", false},
                    Example{"\"foo b\"*", "foo bar", true},
                    Example{"\"fo bar\"*", "foo bar", false}, Example{"foo.bar", "foo bar", true},
                    Example{"3.14", "is 3.14!", true}, Example{"c++", "C is", true},
                    Example{"\"a a b\"", "a a a b", true}, Example{"ＦＯＯ", "foo", true},
                    Example{"foo", "ｆｏｏ", true}, Example{"STRASSE", "Straße", true},
                    Example{"straße", "STRASSE", true}, Example{"fi*", "ﬁne", true},
                    Example{"f*", "ﬁne", true}, Example{"caf\u00E9", "cafe\u0301", true},
                    Example{"cafe\u0301", "café", true}, Example{"cafe", "café", false},
                    Example{"cafe*", "café", false}, Example{"co\u00ADop", "coop", true}));

INSTANTIATE_TEST_SUITE_P(
    SpacedScripts, MatchingTest,
    testing::Values(Example{"мир", "Привет, МИР", true}, Example{"σισυφος", "ΣΙΣΥΦΟΣ", true},
                    Example{"ΣΙΣΥΦΟΣ", "σισυφος", true}, Example{"istanbul", "ISTANBUL", true},
                    Example{"istanbul", "İSTANBUL", false}, Example{"السلام", "السلام عليكم", true},
                    Example{"سلام", "السلام عليكم", false}, Example{"لا", "ﻻ", true},
                    Example{"में", "हिन्दी में", true}, Example{"हिन्द*", "हिन्दी में", true},
                    Example{"न्दी", "हिन्दी", false}));

INSTANTIATE_TEST_SUITE_P(SymbolsBesideWords, MatchingTest,
                         testing::Values(Example{"music", "\uF8FFMusic is on", true},
                                         Example{"\uE057", "thanks\uE057", true},
                                         Example{"thanks", "thanks\uE057", true},
                                         Example{"thanks", "♡\u20D7thanks", true},
                                         Example{"a", "電\u0301a", true},
                                         Example{"電", "電\u0301a", true},
                                         Example{"one", "(\u0301one)", true}));

INSTANTIATE_TEST_SUITE_P(
    Chinese, MatchingTest,
    testing::Values(Example{"电影", "这部电影吗？", true}, Example{"影", "这部电影吗？", true},
                    Example{"影*", "这部电影吗？", true}, Example{"电吗", "这部电影吗？", false},
                    Example{"影电", "电影", false}, Example{"影 电", "电影", true},
                    Example{"你好，世界", "你好世界", true},
                    Example{"你好世界", "你好，世界", false},
                    Example{"“你好 世界”", "你好！！世界", true},
                    Example{"\"世 界\"", "世上界", false}, Example{"手机", "iPhone手机15", true},
                    Example{"iphone手机", "iPhone 手机", true},
                    Example{"\"iphone 手机\"", "iPhone手机", true},
                    Example{"phone手机", "iPhone手机", false}, Example{"手机1", "手机15", false},
                    Example{"手机1*", "手机15", true}, Example{"祝", "㊗", true},
                    Example{"𠮷野", "𠮷野家", true}, Example{"\"中 中 国\"", "中中中 国", true}));

INSTANTIATE_TEST_SUITE_P(
    JapaneseAndKorean, MatchingTest,
    testing::Values(Example{"ラーメン", "美味しいﾗｰﾒﾝです", true}, Example{"ガ", "ｶﾞ", true},
                    Example{"カ", "ガ", false}, Example{"が", "か\u3099", true},
                    Example{"しい", "美味しい", true}, Example{"国어", "한국어", false},
                    Example{"국어", "한국어", true}, Example{"한", "\u1112\u1161\u11AB국", true},
                    Example{"하", "한국", false}, Example{"\u1112\u1161\u11AB", "한국", true}));

INSTANTIATE_TEST_SUITE_P(SouthEastAsia, MatchingTest,
                         testing::Values(Example{"ไทย", "ประเทศไทยสวย", true},
                                         Example{"กำ", "กํา", true}, Example{"ไท ย", "ไทย", true},
                                         Example{"ลาว", "ไทย", false},
                                         Example{"ບາຍ", "ສະບາຍດີ", true}, Example{"ស្តី", "សួស្តី", true},
                                         Example{"လာ", "မင်္ဂလာပါ", true},
                                         Example{"ทย\u200Bสวย", "ไทยสวย", true}));

INSTANTIATE_TEST_SUITE_P(
    Symbols, MatchingTest,
    testing::Values(Example{"👩", "x👨\u200D👩\u200D👧y", true}, Example{"❤", "I❤️you", true},
                    Example{"❤️", "I❤you", true}, Example{"👍", "ok👍🏽", true},
                    Example{"👍🏽", "ok👍", false}, Example{"🏽", "👍🏽", true},
                    Example{"🇩🇪", "in 🇩🇪!", true}, Example{"🇩🇪", "🇩🇰", false},
                    Example{"1️⃣", "1️⃣", true}, Example{"1", "1️⃣", false},
                    Example{"😀", "😁", false}, Example{"😀😀", "😀 😀", false},
                    Example{"\"😀 😀\"", "😀😀", true}, Example{"©", "(©)", true},
                    Example{"▲", "a▲b", true}));

TEST(MatchingBytesTest, LongWordsAreFoundByTheIndex) {
  const std::string word = "ä" + std::string(61, 'x') + "ö" + std::string(40, 'y');
  TokenTable table;
  table.add(1, word);
  for (const std::size_t size : {2U, 40U, 63U, 65U, 66U, 105U}) {
    const Query query(word.substr(0, size) + "*");
    EXPECT_TRUE(query.matches(word)) << size;
    EXPECT_EQ(table.find(query).size(), 1U) << size;
  }
  EXPECT_EQ(table.find(Query(word)).size(), 1U);
  EXPECT_FALSE(Query(word + "z").matches(word));
}

TEST(MatchingBytesTest, MatchesTheTextWholeNotItsBytes) {
  EXPECT_TRUE(Query("two").matches(std::string("one\0two", 7)));
  EXPECT_TRUE(Query("中").matches("\xE4\xB8中\xFF"));
  EXPECT_FALSE(Query("中").matches("\xE4\xB8"));
}

}  // namespace
}  // namespace corvan_test
