// Which pairs of words have tokens of their own.

#include "addons/search/common_pairs.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <vector>

#include "addons/search/folded_text.h"

namespace corvan_test {
namespace {

using Corvan::search::CommonPairs;
using Corvan::search::count_pairs;
using Corvan::search::FoldedText;

bool has(const CommonPairs& pairs, std::string_view first, std::string_view second) {
  return pairs.has(pairs.word(first), pairs.word(second));
}

// 1,000 texts. "in" and "the" are in all of them; "the" follows "in" in half of them, and "in"
// never follows "the". "rare" is in one of 100.
std::vector<std::string> sample() {
  std::vector<std::string> folded;
  for (int i = 0; i < 1000; ++i) {
    std::string text = i % 2 == 0 ? "In the house" : "the house. It is in";
    if (i % 100 == 0) text += " rare";
    folded.push_back(FoldedText(text).text());
  }
  return folded;
}

TEST(CommonPairsTest, WordsThatAreOftenTogetherAndRarelyAdjacent) {
  const CommonPairs pairs(count_pairs(sample(), 100'000));
  EXPECT_TRUE(has(pairs, "the", "in"));
  EXPECT_TRUE(has(pairs, "house", "in"));
  EXPECT_TRUE(has(pairs, "in", "rare"));
  EXPECT_TRUE(has(pairs, "in", "in"));
}

TEST(CommonPairsTest, NotPairsThatAreFrequentThemselves) {
  const CommonPairs pairs(count_pairs(sample(), 100'000));
  EXPECT_FALSE(has(pairs, "in", "the"));
  EXPECT_FALSE(has(pairs, "the", "house"));
}

TEST(CommonPairsTest, NotWordsThatFewMessagesHaveTogether) {
  EXPECT_FALSE(has(CommonPairs(count_pairs(sample(), 100'000)), "rare", "rare"));  // 10 by chance
  EXPECT_FALSE(has(CommonPairs(count_pairs(sample(), 10'000)), "in", "rare"));     // 100 by chance
  EXPECT_FALSE(has(CommonPairs(count_pairs(sample(), 100'000)), "in", "unknown"));
}

TEST(CommonPairsTest, NoneInSmallSamples) {
  std::vector<std::string> folded = sample();
  folded.resize(100);
  EXPECT_TRUE(CommonPairs(count_pairs(folded, 100'000)).is_empty());
  EXPECT_TRUE(CommonPairs(count_pairs({}, 0)).is_empty());
  EXPECT_TRUE(CommonPairs(count_pairs(sample(), 150)).is_empty());
}

TEST(CommonPairsTest, OnlyAdjacentWordsOfATextArePairs) {
  std::vector<std::string> found;
  const auto take = [&](std::string_view first, std::string_view second) {
    found.push_back(Corvan::search::pair_token(first, second));
    return true;
  };
  Corvan::search::for_each_pair(FoldedText("One two, THREE 中文 four 中 five-six").text(), take);
  EXPECT_EQ(found, (std::vector<std::string>{"one two", "two three", "five six"}));
}

}  // namespace
}  // namespace corvan_test
