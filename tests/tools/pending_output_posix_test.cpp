#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "tests/tools/pending_output_fixture.h"
#include "tests/tools/terminal.h"
#include "tools/store/interrupt.h"
#include "tools/store/pending_output.h"
#include "tools/ui/error.h"

namespace corvan_test {
namespace {

using corvan_tool::PendingOutput;
namespace fs = std::filesystem;

TEST_F(PendingOutputTest, RefusesALink) {
  fs::create_symlink(place("nowhere"), place("link"));
  EXPECT_THROW(PendingOutput::file(place("link")), corvan_tool::ToolError);
}

TEST_F(PendingOutputTest, IsCreatedAtOnceUnderATemporaryName) {
  fs::create_symlink(place("others"), place("one.unfinished-" + std::to_string(getpid())));
  PendingOutput one = PendingOutput::file(place("one"));
  const PendingOutput same = PendingOutput::file(place("one"));
  EXPECT_NE(one.path(), same.path());
  struct stat status = {};
  ASSERT_EQ(lstat(one.path().c_str(), &status), 0);
  EXPECT_TRUE(S_ISREG(status.st_mode));
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  EXPECT_EQ(corvan_tool::kept_name(one.path()), place("one"));
  EXPECT_EQ(corvan_tool::kept_name(same.path() + "/inside"), place("one/inside"));
  EXPECT_EQ(corvan_tool::kept_name(one.path() + "x"), one.path() + "x");
  one.keep();
  EXPECT_FALSE(fs::exists(place("others")));
}

TEST_F(InterruptTest, LongCommandsShowProgressOnATerminal) {
  const int terminal = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  if (terminal < 0) GTEST_SKIP() << "no pseudo-terminals on this machine";
  ASSERT_EQ(grantpt(terminal), 0);
  ASSERT_EQ(unlockpt(terminal), 0);
  const std::string input = folder.file("input");
  ASSERT_EQ(mkfifo(input.c_str(), 0600), 0);
  const std::string name = ptsname(terminal);
  Arguments words = program();
  const Arguments arguments = {"import", store(), "--user", "me", "--batch", "1", input};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<char*> argv;
  for (std::string& word : words) argv.push_back(word.data());
  argv.push_back(nullptr);
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    const int screen = open(name.c_str(), O_RDWR | O_NOCTTY);
    if (dup2(screen, STDERR_FILENO) < 0) _exit(127);
    execv(argv[0], argv.data());
    _exit(127);
  }
  const int keep = open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);  // otherwise its text is lost
  const int pipe = open(input.c_str(), O_WRONLY | O_CLOEXEC);
  ASSERT_GE(pipe, 0);
  for (int i = 0; i < 4; ++i) {
    const std::string text = line({});
    ASSERT_EQ(::write(pipe, text.data(), text.size()), static_cast<ssize_t>(text.size()));
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
  }
  close(pipe);
  EXPECT_EQ(wait(pid), 0);
  const std::string text = written_to_terminal(terminal, keep);
  close(keep);
  close(terminal);
  EXPECT_TRUE(std::regex_search(text, std::regex("\r[34] lines\x1b\\[K"))) << text;
  ASSERT_GE(text.size(), 4U);
  EXPECT_EQ(text.substr(text.size() - 4), "\r\x1b[K") << "the line is taken away at the end";
}

}  // namespace
}  // namespace corvan_test
