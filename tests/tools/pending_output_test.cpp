#include "tools/store/pending_output.h"
#include "tools/store/interrupt.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <regex>
#include <string>
#include <thread>

#include "tests/tools/leased_file.h"
#include "tests/tools/program.h"
#include "tools/ui/error.h"

namespace {

using namespace corvan_test;
using corvan_tool::PendingOutput;
using corvan_tool::ToolError;
namespace fs = std::filesystem;

class PendingOutputTest : public testing::Test {
 protected:
  std::string place(const std::string& name) const { return folder.file(name); }
  Rows content() const {
    Rows names;
    for (const auto& [name, state] : listing(folder.path())) names.push_back(name);
    return names;
  }
  const TemporaryFolder folder;
};

TEST_F(PendingOutputTest, GetsItsNameWhenKept) {
  {
    PendingOutput made = PendingOutput::folder(place("made") + "/");
    write_file(made.path() + "/inside", "x");
    EXPECT_FALSE(fs::exists(place("made")));
    made.keep();
  }
  EXPECT_EQ(content(), Rows({"made"}));
  EXPECT_EQ(read_file(place("made/inside")), "x");
}

TEST_F(PendingOutputTest, DisappearsUnlessKept) {
  {
    const PendingOutput one = PendingOutput::folder(place("one"));
    write_file(one.path() + "/inside", "x");
    const PendingOutput two = PendingOutput::file(place("two"));
    write_file(two.path(), "x");
    EXPECT_EQ(content().size(), 2U);
  }
  EXPECT_EQ(content(), Rows());
}

TEST_F(PendingOutputTest, RefusesAPlaceThatExists) {
  write_file(place("there"), "mine");
  fs::create_symlink(place("nowhere"), place("link"));
  EXPECT_THROW(PendingOutput::file(place("there")), ToolError);
  EXPECT_THROW(PendingOutput::folder(place("there")), ToolError);
  EXPECT_THROW(PendingOutput::file(place("link")), ToolError);
  PendingOutput late = PendingOutput::file(place("late"));
  write_file(late.path(), "x");
  write_file(place("late"), "mine");
  EXPECT_THROW(late.keep(), ToolError);
  EXPECT_EQ(read_file(place("late")), "mine");
  EXPECT_EQ(read_file(place("there")), "mine");
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

TEST_F(PendingOutputTest, AcceptsAnyFileName) {
  std::string name(1, 'n');
  while (name.size() < 253) name += "é";
  PendingOutput::file(place(name)).keep();
  PendingOutput::folder(place("f" + name)).keep();
  EXPECT_EQ(content(), Rows({"f" + name, name}));
}

TEST_F(PendingOutputTest, ReportsWhyAPlaceIsRefused) {
  write_file(place("there"), "mine");
  const auto error_of = [](const std::string& at) -> std::string {
    try {
      PendingOutput::file(at);
    } catch (const ToolError& error) {
      return error.what();
    }
    return "";
  };
  const std::string name(300, 'n');
  EXPECT_EQ(error_of(place(name)), place(name) + ": File name too long");
  EXPECT_EQ(error_of(place("there/a")), place("there") + ": not a folder; name one");
  EXPECT_EQ(error_of(place("none/a")), place("none") + ": no such folder; create it first");
}

class InterruptTest : public ToolTest {};

TEST_F(InterruptTest, ASignalRemovesPendingOutput) {
  import(line({}));
  write_file(file() + "-wal", "");
  for (const int signal_number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT}) {
    // The command waits for the log after it has created its new folder.
    const LeasedFile log(file() + "-wal");
    if (!log.is_held()) GTEST_SKIP() << "the file system has no leases";
    const pid_t pid = start({"backup", store(), folder.file("new")}, open("/dev/null", O_WRONLY));
    EXPECT_TRUE(log.wait_for_opener());
    EXPECT_EQ(listing(folder.path()).size(), 2U);
    kill(pid, signal_number);
    EXPECT_EQ(wait(pid), -signal_number);
    EXPECT_EQ(listing(folder.path()).size(), 1U) << signal_number;
  }
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
