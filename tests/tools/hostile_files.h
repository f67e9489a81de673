// A store with files in and around it that somebody has created to do harm. No command may wait for
// them, fill the disk with them, or overwrite or delete files that are not its own.

#ifndef TESTS_TOOLS_HOSTILE_FILES_H_
#define TESTS_TOOLS_HOSTILE_FILES_H_

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/tools/program.h"

namespace corvan_test {

class HostileFilesTest : public ToolTest {
 protected:
  HostileFilesTest() {
    import(line({{ "server_uid", "one" }}));
    most_seconds = 20;
  }

  std::vector<Arguments> looking() const {
    return {{"list", store()},
            {"history", store(), "room", "--type", "group"},
            {"unread", store()},
            {"show", store(), "1"},
            {"search", store(), "hi"},
            {"stats", store()},
            {"check", store()},
            {"verify", store()},
            {"verify", store(), "--repair", "counters", "--dry-run"},
            {"index", store(), "--dry-run"},
            {"export", store(), "--format", "jsonl"},
            {"export", store(), "--format", "html", "--output", folder.file("made")},
            {"backup", store(), folder.file("made")}};
  }
  std::vector<Arguments> changing() const {
    return {{"import", store(), "--user", "me", log_},
            {"compact", store()},
            {"index", store()},
            {"search-index", store()},
            {"verify", store(), "--repair", "counters"}};
  }

  // Expects each command to fail with one line that names the path, and to change nothing.
  void expect_refused(const std::vector<Arguments>& commands, const std::string& path) {
    const Listing before = listing(folder.path());
    const Rows names = names_in(store());
    for (const Arguments& arguments : commands) {
      const Outcome outcome = run(arguments);
      EXPECT_EQ(outcome.status, 2) << arguments[0];
      EXPECT_EQ(outcome.err.find("corvan: " + path + ": "), 0U) << arguments[0] << outcome.err;
      EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
    }
    EXPECT_EQ(listing(folder.path()), before);
    EXPECT_EQ(names_in(store()), names);
  }

  static Rows names_in(const std::string& path) {
    Rows names;
    for (const auto& entry : std::filesystem::directory_iterator(std::filesystem::u8path(path))) {
      names.push_back(entry.path().filename().u8string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  const std::string log_ = write("log.jsonl", line({}));
};

class IrregularFilesTest : public HostileFilesTest {};

}  // namespace corvan_test

#endif  // TESTS_TOOLS_HOSTILE_FILES_H_
