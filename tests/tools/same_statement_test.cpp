#include <string>
#include <utility>
#include <vector>

#include "tests/tools/program.h"
#include "tools/store/schema.h"

namespace corvan_test {
namespace {

TEST(SameStatementTest, IgnoresCaseAndWhiteSpace) {
  const std::string sql = "CREATE INDEX i on t(a,lower(b)) where c<>'A  b' and d>0";
  for (const char* same : {
           "create index i on t(a,lower(b)) where c<>'A  b' and d>0",
           " Create\n Index\ti  ON t ( a , LOWER( b ) )where  C<>'A  b'\r\nAND d>0 ",
       }) {
    EXPECT_TRUE(corvan_tool::is_same_statement(sql, same)) << same;
  }
  for (const char* other : {
           "CREATE UNIQUE INDEX i on t(a,lower(b)) where c<>'A  b' and d>0",
           "CREATE INDEX i on t(lower(b),a) where c<>'A  b' and d>0",
           "CREATE INDEX i on t(a desc,lower(b)) where c<>'A  b' and d>0",
           "CREATE INDEX i on t(a,lower(b))",
           "CREATE INDEX i on u(a,lower(b)) where c<>'A  b' and d>0",
           "CREATE INDEX i on t(a,lower(b)) where c<>'a  b' and d>0",
           "CREATE INDEX i on t(a,lower(b)) where c<>'A b' and d>0",
           "CREATE INDEX i on t(a,lower(b)) where c<>'A  b'and d>00",
       }) {
    EXPECT_FALSE(corvan_tool::is_same_statement(sql, other)) << other;
  }
}

TEST(SameStatementTest, ComparesQuotedTextExactly) {
  const std::vector<std::pair<std::string, std::string>> others = {
      {"on t(\"A\")", "on t(\"a\")"},
      {"on t(`a  b`)", "on t(`a b`)"},
      {"on t([a ,b])", "on t([a,b])"},
      {"on t(a) where b='it''s  A'", "on t(a) where b='it''s  a'"},
      {"on t(a) where b='(' and c='A'", "on t(a) where b='(' and c='a'"},
      {"on t(a) where b='\"' and c='A'", "on t(a) where b='\"' and c='a'"},
  };
  for (const auto& [one, other] : others) {
    EXPECT_FALSE(corvan_tool::is_same_statement(one, other)) << one;
    EXPECT_TRUE(corvan_tool::is_same_statement("CREATE  INDEX i " + one, "create index i " + one));
  }
  EXPECT_TRUE(
      corvan_tool::is_same_statement("t(a) where b='x' and C>0", "t(a) WHERE b='x' and c>0"));
}

TEST(SameStatementTest, ComparesStatementsWithCommentsExactly) {
  for (const char* sql : {"on t(a) -- of b\n where c>0", "on t(a) /* of B */"}) {
    EXPECT_TRUE(corvan_tool::is_same_statement(sql, sql));
  }
  EXPECT_FALSE(corvan_tool::is_same_statement("t(a) -- b\n where c>0", "t(a) -- b where c>0"));
  EXPECT_FALSE(corvan_tool::is_same_statement("t(a) /* b */", "t(a) /* B */"));
}

}  // namespace
}  // namespace corvan_test
