#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "tests/tools/program.h"
#include "tests/tools/store_pages.h"

namespace corvan_test {
namespace {

using Words = std::set<std::string>;

// The words of the help that explain keys. Any other word there must be a key.
const Words kProse = {"a",      "after",   "all",    "also",    "an",   "and",  "are",
                      "array",  "arrays",  "by",     "each",    "for",  "give", "given",
                      "gone",   "have",    "if",     "in",      "is",   "it",   "keys",
                      "names",  "none",    "latest", "members", "next", "null", "number",
                      "object", "objects", "ones",   "of",      "or",   "page", "that",
                      "the",    "there",   "those",  "to",      "when", "with", "without"};

// In the JSON of salvage, names of tables are keys.
const char* const kNamesAreKeys = "tables, an object by name of objects";

Words words_of(const std::string& text) {
  static const std::regex word("[a-z_]+");
  Words words;
  for (std::sregex_iterator one(text.begin(), text.end(), word), end; one != end; ++one) {
    words.insert(one->str());
  }
  return words;
}

Words without(Words words, const Words& others) {
  for (const std::string& word : others) words.erase(word);
  return words;
}

void add_keys(const Json& value, Words& keys) {
  if (value.is_object()) {
    for (const auto& [key, member] : value.items()) keys.insert(key);
  }
  if (value.is_structured()) {
    for (const Json& member : value) add_keys(member, keys);
  }
}

class JsonKeysTest : public ToolTest {
 protected:
  // The part of the command's help that explains the JSON. White space is single blanks.
  std::string explanation(const std::string& command) {
    std::string text = output({command, "--help"});
    const std::size_t begin = text.find("With --json");
    if (begin == std::string::npos) return "";
    text = text.substr(begin + 11, text.find("Exit status", begin) - begin - 11);
    return std::regex_replace(text, std::regex("\\s+"), " ");
  }

  // Compares the keys in `results`, which `command` has written, with those that its help names.
  void expect_documented(const std::string& command, const std::vector<Json>& results) {
    SCOPED_TRACE(command);
    Words written;
    for (const Json& result : results) add_keys(result, written);
    std::string text = explanation(command);
    ASSERT_NE(text, "");
    const std::size_t tables = text.find(kNamesAreKeys);
    if (tables != std::string::npos) {
      text.replace(tables, std::string(kNamesAreKeys).size(), "tables");
      written =
          without(written, {"t_message", "t_session", "t_sync", "t_version", "sqlite_sequence"});
    }
    Words documented = words_of(text);
    // Remarks, options, values in capitals and names of commands are not keys.
    static const std::regex no_key(
        "\\([^)]*\\)|--?[a-z-]+|\\b[A-Z][A-Za-z]*\\b|'[^']*'|\"[^\"]*\"");
    Words named = without(words_of(std::regex_replace(text, no_key, " ")), kProse);
    if (text.find("keys of 'history'") != std::string::npos) {
      const Words shared = words_of(explanation("history"));
      documented.insert(shared.begin(), shared.end());
      for (const std::string& key : history_keys_) {
        if (text.find("without " + key) == std::string::npos)
          named.insert(key);
        else
          named.erase(key);
      }
    }
    EXPECT_EQ(without(written, documented), Words{}) << "written, but not in --help";
    EXPECT_EQ(without(named, written), Words{}) << "in --help, but not written";
    if (command == "history") history_keys_ = written;
  }

  Json result(const Arguments& arguments) {
    const Outcome outcome = run(arguments);
    EXPECT_LE(outcome.status, 1) << outcome.err;
    return Json::parse(outcome.out);
  }

 private:
  Words history_keys_;
};

TEST_F(JsonKeysTest, HelpNamesTheKeysThatCommandsWrite) {
  const std::string log =
      write("log", line({}) + line({{"session_id", "u01"}, {"session_type", 1}}));
  expect_documented("import", {json({"import", store(), "--user", "me", log, "--json"})});

  expect_documented("history", {json({"history", store(), "room", "--type", "2", "--json"})});
  expect_documented("list", {json({"list", store(), "--json"})});
  expect_documented("unread", {json({"unread", store(), "--json"})});
  expect_documented("show", {json({"show", store(), "1", "--json"})});
  expect_documented("search",
                    {json({"search", store(), "hi", "--limit", "1", "--json"}),
                     json({"search", store(), "h", "--literal", "--limit", "1", "--json"})});
  expect_documented("search-index", {json({"search-index", store(), "--json"}),
                                     json({"search-index", store(), "--remove", "--json"})});
  expect_documented("stats", {json({"stats", store(), "--json"})});
  expect_documented("check", {json({"check", store(), "--json"})});
  expect_documented("backup", {json({"backup", store(), folder.file("backup"), "--json"})});
  expect_documented("compact", {json({"compact", store(), "--json"})});

  const std::string lines = folder.file("lines");
  expect_documented("export",
                    {json({"export", store(), "--format", "jsonl", "--output", lines, "--json"})});
  expect_documented("restore", {json({"restore", lines, folder.file("restored"), "--json"})});
}

TEST_F(JsonKeysTest, HelpNamesTheKeysOfIndexes) {
  import(line({}));
  plant(
      "drop index t_message_sent_time;drop index t_message_session;"
      "create index t_message_session on t_sync(sent_time);"
      "create index t_message_older on t_message(sender);"
      "create index by_sender on t_message(sender)");
  expect_documented("index", {json({"index", store(), "--json"})});
}

TEST_F(JsonKeysTest, HelpNamesTheKeysOfRepairs) {
  import(line({}) + line({{"session_id", "u01"}, { "session_type", 1 }}));
  plant(
      "update t_session set unread_count=9 where session_id='room';"
      "update t_session set unread_count='x' where session_id='u01'");
  const Json found = result({"verify", store(), "--json"});
  const Json repaired = result({"verify", store(), "--repair", "counters", "--json"});
  EXPECT_FALSE(repaired["changes"].empty());
  EXPECT_FALSE(repaired["left"].empty());
  expect_documented("verify", {found, repaired});
}

TEST_F(JsonKeysTest, HelpNamesTheKeysOfSalvage) {
  import(line({}));
  std::string damaged = read_file(file());
  damaged.replace(kPageSize, kPageSize, kPageSize, '\xff');
  write_file(file(), damaged);
  const Json report = result({"salvage", store(), folder.file("rescued"), "--json"});
  EXPECT_FALSE(report["bad_pages"].empty());
  expect_documented("salvage", {report});
}

}  // namespace
}  // namespace corvan_test
