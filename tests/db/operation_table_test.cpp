// The table of operations is complete: it contains each operation of the header, and each suite
// tries each operation or gives a reason for leaving it out. A failure names what is missing.

#include <cctype>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "tests/support/operations/operation.h"

namespace corvan_test {
namespace {

// The text of a file, or of several with blanks between their paths.
std::string source(const std::string& paths) {
  std::istringstream each(paths);
  std::ostringstream text;
  for (std::string path; each >> path;) {
    const std::ifstream file(CORVAN_SOURCE_DIR + path);
    EXPECT_TRUE(file.is_open()) << path;
    text << file.rdbuf();
  }
  return text.str();
}

// A function that the header declares.
struct Declaration {
  std::string name;
  bool takes_text = false;
};

// The public functions of the class, overload by overload.
std::vector<Declaration> declarations() {
  std::string text = source("db/cv_db_singleton.h");
  const std::size_t begin = text.find("operator=(const CvDbSingleton&) = delete;");
  text = text.substr(begin, text.find("\n private:") - begin);
  text = std::regex_replace(text, std::regex("//[^\n]*"), "");
  text = std::regex_replace(text, std::regex("\\{[^}]*\\}"), ";");
  const std::regex function("(\\w+)\\(([^;]*)\\)");
  std::vector<Declaration> all;
  std::istringstream statements(text.substr(text.find(';')));
  for (std::string each; std::getline(statements, each, ';');) {
    std::smatch match;
    if (!std::regex_search(each, match, function)) continue;
    const std::string parameters = match[2];
    all.push_back({match[1], parameters.find("const std::string&") != std::string::npos});
  }
  return all;
}

std::multiset<std::string> names(const std::vector<Declaration>& all) {
  std::multiset<std::string> names;
  for (const Declaration& each : all) names.insert(each.name);
  return names;
}

TEST(OperationTable, ContainsEachOperationOfTheHeader) {
  std::multiset<std::string> in_table;
  for (const Operation& each : all_operations()) in_table.insert(each.name);
  EXPECT_EQ(in_table, names(declarations()));
}

TEST(OperationTable, TellsOverloadsApart) {
  std::set<std::string> all;
  for (const Operation& each : all_operations()) {
    EXPECT_TRUE(all.insert(each.name + each.overload).second) << each.name << each.overload;
  }
}

TEST(OperationTable, OperationsOutsideTheSuitesHaveNoCases) {
  for (const Operation& each : all_operations()) {
    if (each.outside.empty()) continue;
    EXPECT_TRUE(each.statements.empty() && each.calls.empty() && each.flat.empty() &&
                each.growing.empty() && each.left_out.empty())
        << each.name << each.overload;
  }
}

// Whether the suite has to try the operation, and whether it does.
struct Entry {
  bool expected;
  bool present;
};

void expect_entries(Suite suite, const std::string& where,
                    const std::function<Entry(const Operation&)>& entry) {
  for (const Operation& each : all_operations()) {
    if (!each.outside.empty()) continue;
    const auto [expected, present] = entry(each);
    const bool left_out = each.left_out.count(suite) != 0;
    if (expected && !present && !left_out) {
      ADD_FAILURE() << each.name << each.overload << " is missing in " << where;
    }
    EXPECT_FALSE(left_out && (present || !expected))
        << each.name << each.overload << " is left out of " << where << " without need";
  }
}

bool has_expected_call(const Operation& operation) {
  bool any = false;
  for (const Call& each : operation.calls) any = any || each.expected != nullptr;
  return any;
}

bool has_call_on_open_store(const Operation& operation) {
  bool any = false;
  for (const Call& each : operation.calls) any = any || each.start == Call::kOpen;
  return any;
}

TEST(OperationTable, EachOperationHasStatements) {
  expect_entries(Suite::kStatements, "the statements of the table", [](const Operation& each) {
    return Entry{true, !each.statements.empty()};
  });
}

TEST(OperationTable, EachOperationHasACallUnderFaults) {
  expect_entries(Suite::kFaults, "the calls with an expected result", [](const Operation& each) {
    return Entry{true, has_expected_call(each)};
  });
}

TEST(OperationTable, EachOperationHasAnAnswerOnAClosedStore) {
  expect_entries(Suite::kClosed, "the calls with a closed answer", [](const Operation& each) {
    return Entry{true, has_call_on_open_store(each)};
  });
}

TEST(OperationTable, EachOperationSaysHowItsStepsGrow) {
  expect_entries(Suite::kSteps, "the flat and growing cases", [](const Operation& each) {
    return Entry{true, !each.flat.empty() || !each.growing.empty()};
  });
}

// Whether the text contains this word. `before` is the character in front of it; 0 stands for any
// character that cannot be part of a word.
bool has_word(const std::string& text, const std::string& word, char before) {
  const auto in_word = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_';
  };
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
    const char left = at == 0 ? ' ' : text[at - 1];
    const char right = at + word.size() == text.size() ? ' ' : text[at + word.size()];
    if (!in_word(right) && (before == 0 ? !in_word(left) : left == before)) return true;
  }
  return false;
}

// Suites that do not read the table must name the operation in their source.
void expect_names(Suite suite, const std::string& paths,
                  const std::function<bool(const Operation&)>& expected, char before = 0) {
  const std::string text = source(paths);
  expect_entries(suite, paths, [&](const Operation& each) {
    return Entry{expected(each), has_word(text, each.name, before)};
  });
}

bool any_operation(const Operation&) {
  return true;
}

bool writes(const Operation& operation) {
  return operation.commits != Commits::kNothing;
}

TEST(OperationTable, HostileTextsNameEachOperationWithATextParameter) {
  std::set<std::string> with_text;
  for (const Declaration& each : declarations()) {
    if (each.takes_text) with_text.insert(each.name);
  }
  expect_names(
      Suite::kHostileText,
      "tests/db/crafted_text.h tests/db/hostile_text_test.cpp tests/db/pasted_text_test.cpp "
      "tests/db/length_limit_test.cpp",
      [&](const Operation& each) { return with_text.count(each.name) != 0; });
}

TEST(OperationTable, ModelNamesEachOperation) {
  expect_names(Suite::kModel,
               "tests/model/message_operations.cpp tests/model/conversation_operations.cpp",
               any_operation);
}

TEST(OperationTable, ThreadsNameEachOperation) {
  expect_names(
      Suite::kThreads,
      "tests/threads/driver.cpp tests/threads/keyed_messages.cpp tests/threads/not_safe_test.cpp tests/threads/worker.cpp",
      any_operation);
}

TEST(OperationTable, GrowthBenchmarkNamesEachOperation) {
  expect_names(
      Suite::kGrowth,
      "bench/growth/calls.cpp bench/growth/reads.cpp bench/growth/writes.cpp bench/growth/growing.cpp",
      any_operation);
}

TEST(OperationTable, KillsNameEachOperationThatWrites) {
  expect_names(Suite::kKill, "tests/kill/operations.cpp", writes, '"');
}

TEST(OperationTable, ReliabilityDescribesEachOperationThatWrites) {
  expect_names(Suite::kReliability, "docs/reliability.md", writes);
}

}  // namespace
}  // namespace corvan_test
