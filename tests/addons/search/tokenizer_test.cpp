#include "addons/search/tokenizer.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <utf8proc.h>

#include <string>
#include <vector>

#include "tests/addons/search/token_table.h"

namespace corvan_test {
namespace {

using Strings = std::vector<std::string>;

Strings tokens(const std::string& text) {
  TokenTable table;
  table.add(1, text);
  Strings result = table.tokens();
  EXPECT_EQ(table.error(), "");
  return result;
}

TEST(TokenizerTest, GivesEachWord) {
  EXPECT_EQ(tokens("Foo, bar-foo"), (Strings{"bar", "foo"}));
  EXPECT_EQ(tokens(""), Strings{});
  EXPECT_EQ(tokens("..."), Strings{});
}

TEST(TokenizerTest, GivesPairsOfUnspacedCharactersAndTheLastOne) {
  EXPECT_EQ(tokens("abc"), Strings{"abc"});
  EXPECT_EQ(tokens("一二三"), (Strings{"一二", "三", "二三"}));
  EXPECT_EQ(tokens("一 二"), (Strings{"一", "二"}));
  EXPECT_EQ(tokens("a一b"), (Strings{"a", "b", "一"}));
  EXPECT_EQ(tokens("😀一"), (Strings{"一", "😀一"}));
}

TEST(TokenizerTest, CutsLongWordsAtACodePoint) {
  EXPECT_EQ(tokens(std::string(100, 'x')), Strings{std::string(64, 'x')});
  EXPECT_EQ(tokens(std::string(63, 'x') + "ä"), Strings{std::string(63, 'x')});
  EXPECT_EQ(tokens(std::string(62, 'x') + "ää"), Strings{std::string(62, 'x') + "ä"});
}

TEST(TokenizerTest, TakesAnyBytes) {
  EXPECT_EQ(tokens(std::string("one\0two\xFFthree\xE4\xB8", 15)), (Strings{"one", "three", "two"}));
}

TEST(TokenizerTest, MayBeRegisteredTwice) {
  sqlite3* connection = nullptr;
  ASSERT_EQ(sqlite3_open(":memory:", &connection), SQLITE_OK);
  EXPECT_EQ(Corvan::search::register_tokenizer(connection), SQLITE_OK);
  EXPECT_EQ(Corvan::search::register_tokenizer(connection), SQLITE_OK);
  sqlite3_close(connection);
}

TEST(TokenizerTest, VersionNamesTheUnicodeData) {
  const std::string version = Corvan::search::tokenizer_version();
  EXPECT_NE(version.find(utf8proc_unicode_version()), std::string::npos) << version;
}

}  // namespace
}  // namespace corvan_test
