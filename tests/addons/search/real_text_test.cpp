// Real conversations: a word of Chinese characters is found exactly where it stands in the text.

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "addons/search/query.h"
#include "tests/addons/search/token_table.h"

namespace corvan_test {
namespace {

using Corvan::search::Query;

// The contents of a log's messages, except those with escapes.
std::vector<std::string> contents(const std::string& file) {
  const std::string key = "\"content\":\"";
  std::vector<std::string> texts;
  std::ifstream in(std::string(CORVAN_DATA_DIR) + "/" + file);
  for (std::string line; std::getline(in, line);) {
    const std::size_t begin = line.find(key) + key.size();
    const std::string text = line.substr(begin, line.find('"', begin) - begin);
    if (text.find('\\') == std::string::npos) texts.push_back(text);
  }
  return texts;
}

bool is_chinese(const std::string& text) {
  for (std::size_t i = 0; i < text.size(); i += 3) {
    const auto lead = static_cast<unsigned char>(text[i]);
    if (lead < 0xE4 || lead > 0xE9) return false;
  }
  return true;
}

// Words of two characters from messages all over the log.
std::vector<std::string> sampled_words(const std::vector<std::string>& texts) {
  std::vector<std::string> words;
  for (std::size_t i = 0; i < texts.size(); i += texts.size() / 60) {
    const std::string word = texts[i].substr(0, 6);
    if (word.size() == 6 && is_chinese(word)) words.push_back(word);
  }
  return words;
}

TEST(RealTextTest, FindsChineseWordsWhereTheyStand) {
  const std::vector<std::string> texts = contents("kdconv-zh.jsonl");
  if (texts.empty()) GTEST_SKIP() << "no kdconv-zh.jsonl in " << CORVAN_DATA_DIR;
  TokenTable table;
  for (std::size_t i = 0; i < texts.size(); ++i) table.add(static_cast<int64_t>(i), texts[i]);
  const std::vector<std::string> words = sampled_words(texts);
  EXPECT_GE(words.size(), 30U);
  for (const std::string& word : words) {
    const Query query(word);
    std::vector<int64_t> expected;
    for (std::size_t i = 0; i < texts.size(); ++i) {
      const bool has = texts[i].find(word) != std::string::npos;
      EXPECT_EQ(query.matches(texts[i]), has) << word << " in " << texts[i];
      if (has) expected.push_back(static_cast<int64_t>(i));
    }
    EXPECT_EQ(table.find(query), expected) << word;
  }
  EXPECT_EQ(table.error(), "");
}

TEST(RealTextTest, EveryMessageFindsItself) {
  for (const char* file : {"kdconv-zh.jsonl", "ubuntu-irc.jsonl"}) {
    const std::vector<std::string> texts = contents(file);
    if (texts.empty()) GTEST_SKIP() << "no " << file << " in " << CORVAN_DATA_DIR;
    for (std::size_t i = 0; i < texts.size(); i += 20) {
      const Query query(texts[i]);
      EXPECT_NE(query.matches(texts[i]), query.is_empty()) << texts[i];
    }
  }
}

}  // namespace
}  // namespace corvan_test
