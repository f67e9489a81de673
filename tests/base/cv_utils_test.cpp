#include "base/cv_utils.h"

#include <gtest/gtest.h>

#include <string>

namespace corvan_test {
namespace {

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  Corvan::CvUtils::string_replace(text, from, to);
  return text;
}

TEST(CvUtils, ReplacesEveryOccurrence) {
  EXPECT_EQ(replaced("_a_b_", "_", "\\_"), "\\_a\\_b\\_");
}

TEST(CvUtils, DoesNotSearchInsertedText) {
  EXPECT_EQ(replaced("it's", "'", "''"), "it''s");
  EXPECT_EQ(replaced("ab", "a", "aab"), "aabb");
}

TEST(CvUtils, ScansFromLeftToRight) {
  EXPECT_EQ(replaced("aaa", "aa", "b"), "ba");
}

TEST(CvUtils, DoesNotMatchAcrossTheEndOfInsertedText) {
  EXPECT_EQ(replaced("aab", "ab", "a"), "aa");
  EXPECT_EQ(replaced("abb", "ab", "a"), "ab");
}

TEST(CvUtils, EmptyReplacementRemoves) {
  EXPECT_EQ(replaced("a--b--", "--", ""), "ab");
}

TEST(CvUtils, EmptySearchTextChangesNothing) {
  EXPECT_EQ(replaced("abc", "", "x"), "abc");
  EXPECT_EQ(replaced("", "", "x"), "");
}

TEST(CvUtils, TextWithoutAMatchDoesNotChange) {
  EXPECT_EQ(replaced("abc", "d", "x"), "abc");
  EXPECT_EQ(replaced("ab", "abc", "x"), "ab");
  EXPECT_EQ(replaced("", "a", "x"), "");
}

TEST(CvUtils, ContinuesAfterAZeroByte) {
  EXPECT_EQ(replaced(std::string("_\0_", 3), "_", "-"), std::string("-\0-", 3));
}

}  // namespace
}  // namespace corvan_test
