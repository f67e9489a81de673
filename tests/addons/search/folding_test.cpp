#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "addons/search/code_point.h"
#include "addons/search/folded_text.h"
#include "tests/addons/search/reference_matcher.h"

namespace corvan_test {
namespace {

using Corvan::search::decode;
using Corvan::search::FoldedText;

std::string fold_both_ways(const std::string& text) {
  std::string result = FoldedText(text).text();
  EXPECT_EQ(result, FoldedText(text, true).text());
  return result;
}

struct FoldingExample {
  const char* text;
  const char* folded;
};

class FoldingExampleTest : public testing::TestWithParam<FoldingExample> {};

TEST_P(FoldingExampleTest, GivesUnits) {
  EXPECT_EQ(fold_both_ways(GetParam().text), GetParam().folded);
}

INSTANTIATE_TEST_SUITE_P(
    Latin, FoldingExampleTest,
    testing::Values(
        FoldingExample{"", " "}, FoldingExample{"...", " "},
        FoldingExample{"Foo-BAR2 _x", " foo bar2 x "}, FoldingExample{"ＡＢＣ１２", " abc12 "},
        FoldingExample{"straße STRASSE", " strasse strasse "},
        FoldingExample{"ﬁne Ⅳ ² ™", " fine iv 2 tm "}, FoldingExample{"É", " é "},
        FoldingExample{"e\u0301 E\u0301", " é é "}, FoldingExample{"co\u00ADop", " coop "},
        FoldingExample{"I İ ı", " i i\u0307 ı "}, FoldingExample{"ΣΊΣΥΦΟΣ ς", " σίσυφοσ σ "},
        FoldingExample{"a\u0323\u0301 a\u0301\u0323", " ạ\u0301 ạ\u0301 "}));

INSTANTIATE_TEST_SUITE_P(Spaced, FoldingExampleTest,
                         testing::Values(FoldingExample{"Привет, МИР!", " привет мир "},
                                         FoldingExample{"السَّلام عليكم", " السَّلام عليكم "},
                                         FoldingExample{"ﻼ", " لا "},
                                         FoldingExample{"हिन्दी में", " हिन्दी में "},
                                         FoldingExample{"ﷺ", " صلى الله عليه وسلم "}));

INSTANTIATE_TEST_SUITE_P(Unspaced, FoldingExampleTest,
                         testing::Values(FoldingExample{"你好，世界", " 你好 世界 "},
                                         FoldingExample{"iPhone手机15", " iphone 手机 15 "},
                                         FoldingExample{"ｶﾞｷﾞ ガギ カ\u3099", " ガギ ガギ ガ "},
                                         FoldingExample{"ラーメン", " ラーメン "},
                                         FoldingExample{"한국 \u1112\u1161\u11AB", " 한국 한 "},
                                         FoldingExample{"กำ ที่", " ก\u0E4Dา ที่ "},
                                         FoldingExample{"ສະບາຍ ກຳ", " ສະບາຍ ກ\u0ECDາ "},
                                         FoldingExample{"សួស្តី", " សួស្តី "},
                                         FoldingExample{"မင်္ဂလာ", " မင်္ဂလာ "},
                                         FoldingExample{"ไทย\u200Bไทย", " ไทยไทย "},
                                         FoldingExample{"㍿ ㈱", " 株式会社 株 "},
                                         FoldingExample{"々〇〆", " 々〇〆 "}));

// A mark belongs to the word before it.
INSTANTIATE_TEST_SUITE_P(Marks, FoldingExampleTest,
                         testing::Values(FoldingExample{"x\u0301 x\u20E3", " x\u0301 x\u20E3 "},
                                         FoldingExample{"\u0301one", " one "},
                                         FoldingExample{"one .\u0301two", " one two "},
                                         FoldingExample{"♡\u20D7thanks", " ♡ thanks "},
                                         FoldingExample{"電\u0301a", " 電 a "},
                                         FoldingExample{"\u309B \u20E3", " "}));

INSTANTIATE_TEST_SUITE_P(
    Symbols, FoldingExampleTest,
    testing::Values(FoldingExample{"❤️ ❤", " ❤ ❤ "},
                    FoldingExample{"👨\u200D👩\u200D👧", " 👨👩👧 "},
                    FoldingExample{"👍🏽", " 👍🏽 "}, FoldingExample{"🇩🇪🇫🇷", " 🇩🇪🇫🇷 "},
                    FoldingExample{"1️⃣", " 1\u20E3 "}, FoldingExample{"a→b ↔", " a b ↔ "},
                    FoldingExample{"© ▲", " © ▲ "}, FoldingExample{"\uFFFD", " "},
                    FoldingExample{"\uE000x", " \uE000 x "}, FoldingExample{"$5+6", " 5 6 "},
                    FoldingExample{"l\u00B4été it\u00B4s", " l été it s "}));

TEST(FoldingTest, FoldsPartsLikeTheWhole) {
  const std::string text = "Ａ\u0301ﬁ ｶﾞ각\u1112\u1161 กำ हिन्दी 👨\u200D👩 \xFF x";
  const std::vector<std::size_t> borders = cluster_borders(text);
  std::string joined;
  for (std::size_t i = 0; i + 1 < borders.size(); ++i) {
    joined += FoldedText(text.substr(borders[i], borders[i + 1] - borders[i])).text();
  }
  std::string whole = FoldedText(text).text();
  for (std::string* s : {&joined, &whole})
    s->erase(std::remove(s->begin(), s->end(), ' '), s->end());
  EXPECT_EQ(joined, whole);
}

// FoldedText has several ways to fold: of ASCII, of simple code points, of whole clusters.
TEST(FoldingTest, EveryCodePointFoldsAlikeInEveryPlace) {
  for (char32_t point = 0; point < 0x110000; ++point) {
    if (point >= 0xD800 && point < 0xE000) continue;
    std::string text;
    utf8_append(text, point);
    const std::string alone = FoldedText(text).text();
    ASSERT_EQ(alone, FoldedText(text, true).text()) << std::hex << static_cast<uint32_t>(point);
    const std::string between = FoldedText("\n" + text + "\n").text();
    ASSERT_EQ(alone, between) << std::hex << static_cast<uint32_t>(point);
  }
}

TEST(FoldingTest, DecodesLikeTheReference) {
  for (uint32_t bits = 0; bits < 1U << 24U; bits += 7) {
    const std::string text = {static_cast<char>(bits >> 16U), static_cast<char>(bits >> 8U),
                              static_cast<char>(bits)};
    char32_t quick = 0;
    char32_t checked = 0;
    ASSERT_EQ(decode(text, quick), Corvan::search::decode_checked(text, checked)) << bits;
    ASSERT_EQ(quick, checked) << bits;
  }
}

TEST(FoldingTest, ThreadsMayMeetNewCodePointsTogether) {
  std::vector<std::string> results(4);
  std::vector<std::thread> threads;
  for (std::string& result : results) {
    threads.emplace_back([&result] {
      std::string text;
      for (char32_t point = 0x12000; point < 0x14000; ++point) utf8_append(text, point);
      result = FoldedText(text).text();
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (const std::string& result : results) EXPECT_EQ(result, results.front());
}

}  // namespace
}  // namespace corvan_test
