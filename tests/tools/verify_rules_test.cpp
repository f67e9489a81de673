// The table of rules, and its copy in docs/tool.md.

#include "tools/verify/rules.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

using corvan_tool::kRepairs;
using corvan_tool::kRules;
using corvan_tool::Rule;

// The row of a rule in the document: code, class, text, word of --repair.
std::string document_row(const Rule& rule) {
  const std::string repair = rule.repair.empty() ? "" : "`" + std::string(rule.repair) + "`";
  std::ostringstream row;
  row << "| `" << rule.code << "` | " << corvan_tool::rank_name(rule.rank) << " | " << rule.text
      << " | " << repair << " |";
  return row.str();
}

// Removes the backticks around names of columns, which the program does not print.
std::string without_backticks_in_text(const std::string& row) {
  const std::size_t begin = row.find('|', row.find('|', 1) + 1);
  const std::size_t end = row.rfind('|', row.size() - 2);
  std::string text = row.substr(begin, end - begin);
  text.erase(std::remove(text.begin(), text.end(), '`'), text.end());
  return row.substr(0, begin) + text + row.substr(end);
}

// The rows of the table of findings in docs/tool.md.
std::vector<std::string> document_rows() {
  std::istringstream document(read_file(CORVAN_TOOL_DOCUMENT));
  std::vector<std::string> rows;
  std::string line;
  do {
    if (!std::getline(document, line)) return rows;
  } while (line.rfind("| Code | Class |", 0) != 0);
  std::getline(document, line);  // the line under the heading
  while (std::getline(document, line) && line.rfind("| ", 0) == 0) {
    rows.push_back(without_backticks_in_text(line));
  }
  return rows;
}

TEST(VerifyRulesTest, DocumentHasTheSameTable) {
  const std::vector<std::string> rows = document_rows();
  ASSERT_EQ(rows.size(), kRules.size());
  for (std::size_t i = 0; i < rows.size(); ++i) EXPECT_EQ(rows[i], document_row(kRules.at(i)));
}

TEST(VerifyRulesTest, RowsAreCompleteAndCodesDiffer) {
  std::set<std::string_view> codes;
  for (const Rule& rule : kRules) {
    EXPECT_TRUE(codes.insert(rule.code).second) << rule.code;
    EXPECT_FALSE(rule.text.empty()) << rule.code;
    EXPECT_FALSE(rule.explanation.empty()) << rule.code;
    EXPECT_EQ(&kRules.at(corvan_tool::rule_place(rule.code)), &rule);
    if (rule.repair.empty()) continue;
    EXPECT_NE(std::find(kRepairs.begin(), kRepairs.end(), rule.repair), kRepairs.end())
        << rule.code;
  }
}

TEST(VerifyRulesTest, RulesAreOrderedByRank) {
  EXPECT_TRUE(std::is_sorted(kRules.begin(), kRules.end(),
                             [](const Rule& a, const Rule& b) { return a.rank < b.rank; }));
}

}  // namespace
}  // namespace corvan_test
