#include <algorithm>
#include <filesystem>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/look_sample.h"
#include "tools/ui/terminal_text.h"

namespace corvan_test {
namespace {

class CommandLineTest : public LookTest {
 protected:
  // Makes stores with these names in the current folder, and expects that each command finds them.
  void expect_usable(const std::vector<const char*>& names) {
    const std::filesystem::path before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    const std::string nothing = write("nothing", "");
    for (const char* name : names) {
      EXPECT_EQ(run({"import", name, "--user", "me", "-"}, line({})).status, 0) << name;
      corvan_test::plant(folder.file(name) + "/corvan", "drop index t_message_sent_time");
      for (const Arguments& arguments :
           std::vector<Arguments>{{"list", name},
                                  {"check", name},
                                  {"import", name, "--user", "me", nothing},
                                  {"index", name},
                                  {"search-index", name},
                                  {"search", name, "hi"},
                                  {"search-index", name, "--remove"},
                                  {"compact", name},
                                  {"verify", name, "--repair", "counters"},
                                  {"verify", name}}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.status, 0) << arguments[0] << ' ' << outcome.out << outcome.err;
      }
      EXPECT_EQ(listing(folder.file(name)).size(), 1U) << name;
      EXPECT_FALSE(std::filesystem::exists(folder.file("x")));
    }
    std::filesystem::current_path(before);
  }
};

TEST_F(CommandLineTest, PrintsHelp) {
  const std::vector<std::pair<Arguments, Rows>> cases = {
      {{"--help"}, {"import", "list", "history", "unread", "show", "check", "Exit status"}},
      {{"import", "--help"},
       {"FOLDER",        "FILE",       "--user ID",  "--batch N",  "--history",
        "--insert-only", "--skip-bad", "--json",     "session_id", "session_type",
        "object_name",   "sender",     "content",    "is_receive", "is_mention",
        "sent_status",   "sent_time",  "client_uid", "server_uid", "stored",
        "completed",     "refused",    "bad",        "seconds",    "lines_per_second"}},
      {{"list", "--help"},
       {"FOLDER", "--type T", "--limit N", "--json", "session_id", "session_type", "title", "draft",
        "is_top", "silence", "unread_count", "mention_count", "session_time", "message"}},
      {{"history", "--help"},
       {"FOLDER", "SESSION", "--type T", "--before ID", "--after ID", "--limit N", "--kind NAME",
        "--json", "msg_id", "read_status", "sent_status", "server_uid", "sent_time",
        "Exit status 1"}},
      {{"unread", "--help"},
       {"FOLDER", "--type T", "--json", "unread_count", "unmuted_unread_count", "mention_count"}},
      {{"show", "--help"}, {"FOLDER", "ID", "--json", "is_mention", "client_uid"}},
      {{"check", "--help"}, {"FOLDER", "--json", "ok", "result"}},
  };
  for (const auto& [arguments, words] : cases) {
    const std::string text = output(arguments);
    for (const std::string& word : words) {
      EXPECT_NE(text.find(word), std::string::npos) << arguments[0] << ": " << word;
    }
  }
  EXPECT_EQ(output({"--version"}).find("corvan "), 0U);
}

TEST_F(CommandLineTest, ReportsBadUsageInOneLine) {
  import_sample();
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{}, ""},
      {{"lst", store()}, ""},
      {{"list"}, "FOLDER"},
      {{"list", ""}, "FOLDER"},
      {{"list", store(), "more"}, "more"},
      {{"list", store(), "--bogus"}, "--bogus"},
      {{"list", store(), "--type"}, "--type"},
      {{"list", store(), "--type", "6"}, "\"6\""},
      {{"list", store(), "--type", "0"}, "\"0\""},
      {{"list", store(), "--type", "grp"}, "\"grp\""},
      {{"list", store(), "--limit", "0"}, "--limit"},
      {{"list", store(), "--limit", "-1"}, "--limit"},
      {{"list", store(), "--limit", "2147483648"}, "--limit"},
      {{"list", store(), "--limit", "010"}, "--limit"},
      {{"history", store(), "room"}, "--type"},
      {{"history", store(), "--type", "group"}, "SESSION"},
      {{"history", store(), "room", "--type", "group", "--before", "one"}, "--before"},
      {{"history", store(), "room", "--type", "group", "--before", "1", "--after", "2"}, "--after"},
      {{"history", store(), "room", "--type", "group", "--after", "99999999999999999999"},
       "--after"},
      {{"history", store(), "room", "--type", "group", "--kind", ""}, "--kind"},
      {{"show", store()}, "ID"},
      {{"show", store(), "one"}, "one"},
      {{"show", store(), "0x1"}, "0x1"},
      {{"show", store(), "99999999999999999999"}, "99999999999999999999"},
      {{"check", store(), "--type", "1"}, "--type"},
  };
  for (const auto& [arguments, name] : cases) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << name;
    EXPECT_EQ(outcome.out, "") << name;
    EXPECT_EQ(outcome.err.find("corvan: "), 0U) << outcome.err;
    EXPECT_NE(outcome.err.find(name), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
  }
}

TEST_F(CommandLineTest, AcceptsOptionsBeforeTheFolder) {
  import_sample();
  EXPECT_EQ(json({"list", "--json", "--type", "group", store()}).size(), 1U);
  EXPECT_EQ(json({"history", "--kind", "it's", store(), "room", "--type", "2", "--json"}).size(),
            1U);
}

// The parser's library splits such values.
TEST_F(CommandLineTest, KeepsBracketsInValues) {
  import(line({{"session_id", "[a,b]"}, { "content", "[x]" }}) + line({{ "session_id", "a" }}));
  const std::string lines = output({"export", store(), "--format", "jsonl", "[a,b]"});
  EXPECT_NE(lines.find("\"session_id\":\"[a,b]\""), std::string::npos) << lines;
  EXPECT_EQ(lines.find("\"session_id\":\"a\""), std::string::npos) << lines;
  EXPECT_EQ(json({"history", store(), "[a,b]", "--type", "2", "--json"}).size(), 1U);
  EXPECT_EQ(json({"search", store(), "[x]", "--session", "[a,b]", "--json"})["messages"].size(),
            1U);
  EXPECT_EQ(run({"list", store(), "[x]", "y"}).err.find('\xff'), std::string::npos) << read_err();
  EXPECT_NE(read_err().find("[x]"), std::string::npos) << read_err();
  EXPECT_NE(read_err().find("; see 'corvan --help'"), std::string::npos) << read_err();
  EXPECT_NE(run({"list", store(), "--type", "[x]"}).err.find("\"[x]\" is not one of"),
            std::string::npos)
      << read_err();
}

TEST_F(CommandLineTest, AcceptsArgumentsWithALeadingDashAfterADoubleDash) {
  import(line({{ "content", "a -x b" }}));
  EXPECT_EQ(run({"search", store(), "-x"}).status, 2);
  EXPECT_EQ(run({"search", store(), "--", "-x"}).status, 0);
  EXPECT_NE(output({"--help"}).find("-- -x"), std::string::npos);
}

// A SQLite that knows URIs would parse these names.
TEST_F(CommandLineTest, AcceptsFolderNamesThatLookLikeUris) {
  expect_usable({"file:x", "file:x?mode=memory", "a?b"});
}

TEST_F(CommandLineTest, AcceptsFolderNamesWithPartsOfUris) {
  expect_usable({"a#b", "a%41"});
}

TEST_F(CommandLineTest, ReportsOutputThatCannotBeWritten) {
  import_sample();
  std::vector<Arguments> all = commands(store());
  all.push_back({"--help"});
  all.push_back({"--version"});
  for (const Arguments& arguments : all) {
    EXPECT_EQ(wait(start(arguments, full_output())), 2) << arguments[0];
    EXPECT_EQ(read_err(), "corvan: standard output: cannot be written\n") << arguments[0];
  }
}

TEST_F(CommandLineTest, ReportsWhatWasDoneIfOutputCannotBeWritten) {
  import_sample();
  plant("drop index t_message_sent_time;update t_session set unread_count=99");
  const std::string log = write("more.jsonl", line({{"server_uid", "s9"}}));
  const auto made = [this](const char* name) { return folder.file(name); };
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{"import", store(), "--user", "me", log}, "the import is done"},
      {{"index", store()}, "the indexes were changed"},
      {{"search-index", store()}, "the search index was updated"},
      {{"search-index", store(), "--remove"}, "the search index was deleted"},
      {{"compact", store()}, "the store was compacted"},
      {{"verify", store(), "--repair", "counters", "--backup", made("before")},
       "the changes were made, and the original was copied to " + made("before")},
      {{"backup", store(), made("backup")}, "the backup is in " + made("backup")},
      {{"salvage", store(), made("salvaged")}, "the new store is in " + made("salvaged")},
      {{"export", store(), "--format", "jsonl", "--output", made("lines")},
       "the export is in " + made("lines")},
      {{"restore", made("lines"), made("restored")}, "the store is in " + made("restored")},
  };
  for (const auto& [arguments, done] : cases) {
    EXPECT_EQ(run_without_output(arguments), 2) << arguments[0];
    EXPECT_EQ(read_err(), "corvan: standard output: cannot be written; " + done + "\n");
  }
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"7"});
  EXPECT_EQ(run({"index", store()}).out.find("nothing to do"), 0U);
  for (const char* name : {"before", "backup", "salvaged", "restored"}) {
    EXPECT_TRUE(std::filesystem::exists(made(name) + "/corvan")) << name;
  }
}

TEST_F(CommandLineTest, ClipsTablesToTheTerminal) {
  import_sample();
  plant("update t_message set content='" + std::string(200, 'x') +
        "' where id=3;"
        "update t_message set content='" +
        std::string(200, 'y') + "中' where id=5");
  const auto text = terminal_output({"list", store()}, 100);
  if (!text) GTEST_SKIP() << "no pseudo-terminals on this machine";
  std::istringstream lines(*text);
  int count = 0;
  int longest = 0;
  for (std::string row; std::getline(lines, row); ++count) {
    if (!row.empty() && row.back() == '\r') row.pop_back();
    longest = std::max(longest, corvan_tool::display_width(row));
  }
  EXPECT_EQ(count, 4);
  EXPECT_EQ(longest, 100);
}

}  // namespace
}  // namespace corvan_test
