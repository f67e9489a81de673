#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "addons/search/query.h"

namespace corvan_test {
namespace {

using Strings = std::vector<std::string>;

// The parts of the text that are marked.
Strings marked(const std::string& query, const std::string& text) {
  Strings parts;
  for (const Corvan::SearchRange& range : Corvan::search::Query(query).ranges(text)) {
    parts.push_back(text.substr(range.begin, range.size));
  }
  return parts;
}

TEST(RangesTest, MarksEveryOccurrenceOfEveryTerm) {
  EXPECT_EQ(marked("bar foo", "Foo bar, foo"), (Strings{"Foo", "bar", "foo"}));
  EXPECT_EQ(marked("影", "电影电影"), (Strings{"影", "影"}));
}

TEST(RangesTest, MarksNothingUnlessAllTermsMatch) {
  EXPECT_EQ(marked("foo missing", "foo"), Strings{});
  EXPECT_EQ(marked("", "foo"), Strings{});
}

TEST(RangesTest, MarksAPhraseAsOneRange) {
  EXPECT_EQ(marked("\"foo bar\"", "a foo - BAR!"), Strings{"foo - BAR"});
  EXPECT_EQ(marked("你好，世界", "说你好 世界吧"), Strings{"你好 世界"});
  EXPECT_EQ(marked("手机", "iPhone手机15"), Strings{"手机"});
}

TEST(RangesTest, MarksTheBeginningForAPrefix) {
  EXPECT_EQ(marked("fo*", "x food"), Strings{"fo"});
  EXPECT_EQ(marked("f*", "ﬁne"), Strings{"ﬁ"});
}

TEST(RangesTest, MergesOverlaps) {
  EXPECT_EQ(marked("哈哈", "哈哈哈哈"), Strings{"哈哈哈哈"});
  EXPECT_EQ(marked("中国 国人", "中国人"), Strings{"中国人"});
  EXPECT_EQ(marked("fo* foo", "foo"), Strings{"foo"});
}

TEST(RangesTest, MarksWholeClusters) {
  EXPECT_EQ(marked("👩", "a👨\u200D👩\u200D👧b"), Strings{"👨\u200D👩\u200D👧"});
  EXPECT_EQ(marked("❤", "a❤️b"), Strings{"❤️"});
  EXPECT_EQ(marked("ガ", "ﾊｶﾞﾊ"), Strings{"ｶﾞ"});
  EXPECT_EQ(marked("café", "un cafe\u0301 noir"), Strings{"cafe\u0301"});
  EXPECT_EQ(marked("会", "㍿"), Strings{"㍿"});
  EXPECT_EQ(marked("coop", "co\u00ADop!"), Strings{"co\u00ADop"});
}

TEST(RangesTest, CountsBytesThatAreNoText) {
  EXPECT_EQ(marked("two", std::string("\xFF\0one two\x80", 11)), Strings{"two"});
}

TEST(RangesTest, FindsManyTermsInOnePass) {
  std::string query = "中国 fo* \"你 好\"";
  std::string text = "中国人 food 你好";
  for (int i = 0; i < 60; ++i) {
    const std::string word = "w" + std::to_string(i);
    query += ' ' + word;
    text += ", " + word;
  }
  const Strings parts = marked(query, text);
  ASSERT_EQ(parts.size(), 63U);
  EXPECT_EQ(parts[0], "中国");
  EXPECT_EQ(parts[1], "fo");
  EXPECT_EQ(parts[2], "你好");
  EXPECT_EQ(parts[62], "w59");
  EXPECT_EQ(marked(query + " missing", text), Strings{});
}

}  // namespace
}  // namespace corvan_test
