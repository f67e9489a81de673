#include <gtest/gtest.h>

#include <string>

#include "addons/search/query.h"
#include "tests/addons/search/token_table.h"

namespace corvan_test {
namespace {

using Corvan::search::Query;

std::string expression(const Query& query) {
  return Corvan::search::MatchExpression::text(query.tokens());
}

std::string expression(const std::string& query) {
  return expression(Query(query));
}

bool has_prefix(const Query& query) {
  return query.tokens().back().is_prefix;
}

std::size_t count(const std::string& text, const std::string& what) {
  std::size_t times = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) {
    ++times;
  }
  return times;
}

TEST(ExpressionTest, JoinsTokens) {
  EXPECT_EQ(expression("foo"), R"("foo")");
  EXPECT_EQ(expression("to don't"), R"("don" AND "to" AND "t")");
  EXPECT_EQ(expression("\"to do\" TO"), R"("do" AND "to")");
  EXPECT_EQ(expression("电影院"), R"("影院" AND "电影")");
  EXPECT_EQ(expression("电影，院"), R"("电影" AND "院" *)");
}

TEST(ExpressionTest, LooksUpBeginningsForPrefixesAndSingleCharacters) {
  EXPECT_EQ(expression("fo*"), R"("fo" *)");
  EXPECT_TRUE(has_prefix(Query("fo*")));
  EXPECT_EQ(expression("影"), R"("影" *)");
  EXPECT_TRUE(has_prefix(Query("影")));
  EXPECT_EQ(expression("电影*"), R"("电影")");
  EXPECT_FALSE(has_prefix(Query("电影")));
  EXPECT_FALSE(has_prefix(Query("foo")));
}

TEST(ExpressionTest, LeavesOutCoveredBeginnings) {
  EXPECT_EQ(expression("fo* foo"), R"("foo")");
  EXPECT_EQ(expression("fo* foo*"), R"("foo" *)");
  EXPECT_EQ(expression("影 电影"), R"("电影")");
  EXPECT_EQ(expression("电 电影"), R"("电影")");
  EXPECT_FALSE(has_prefix(Query("影 电影")));
}

TEST(ExpressionTest, HasAtMost32Tokens) {
  std::string query = "a* 字";
  for (int i = 0; i < 100; ++i) query += " w" + std::to_string(i);
  const Query many(query);
  EXPECT_EQ(count(expression(many), " AND "), 31U);
  EXPECT_FALSE(has_prefix(many));
  TokenTable table;
  table.add(1, query + " abc");
  EXPECT_EQ(table.find(many).size(), 1U);
  EXPECT_EQ(table.error(), "");
}

TEST(ExpressionTest, FindsNoOtherWords) {
  TokenTable table;
  table.add(1, "电 影");
  table.add(2, "food");
  table.add(3, "and or not near");
  EXPECT_TRUE(table.find(Query("电影")).empty());
  EXPECT_TRUE(table.find(Query("foo")).empty());
  EXPECT_EQ(table.find(Query("AND")).size(), 1U);
  EXPECT_EQ(table.find(Query("near not")).size(), 1U);
  EXPECT_EQ(table.error(), "");
}

}  // namespace
}  // namespace corvan_test
