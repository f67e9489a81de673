// Temporary copies that a killed process left behind.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/tools/hostile_files.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

class AbandonedCopyTest : public HostileFilesTest {
 protected:
  // Creates a temporary folder with a file in it.
  std::string make_copy(const std::string& name) const {
    std::string path = copies() + "/" + name;
    fs::create_directory(path);
    write_file(path + "/corvan", "messages");
    return path;
  }

  // Kills a program that has copied the store.
  void kill_while_looking() {
    const std::string input = temporary("in");
    write_file(input, "");
    std::string lines;
    for (int i = 0; i < 2000; ++i) lines += line({{"content", std::string(5000, 'x')}});
    most_seconds = 0;
    import(lines);
    int ends[2] = {};
    ASSERT_EQ(pipe(ends), 0);
    ASSERT_EQ(fcntl(ends[0], F_SETFD, FD_CLOEXEC), 0);
    // It waits until its output is read.
    const pid_t pid = start({"export", store(), "--format", "jsonl"}, ends[1]);
    char byte = 0;
    ASSERT_EQ(read(ends[0], &byte, 1), 1);
    EXPECT_EQ(names_in(copies()).size(), 1U);
    EXPECT_EQ(output({"check", store()}), "ok\n");
    EXPECT_EQ(names_in(copies()).size(), 1U) << "a living process's copy was removed";
    kill(pid, SIGKILL);
    EXPECT_EQ(wait(pid), -SIGKILL);
    close(ends[0]);
  }
};

TEST_F(AbandonedCopyTest, TheNextStartRemovesTheCopyOfAKilledProcess) {
  kill_while_looking();
  ASSERT_EQ(names_in(copies()).size(), 1U);
  EXPECT_FALSE(names_in(copies() + "/" + names_in(copies())[0]).empty());
  output({"--version"});
  EXPECT_EQ(names_in(copies()), Rows{});
}

TEST_F(AbandonedCopyTest, RemovesACopyWithFolders) {
  const std::string path = make_copy("corvan-look-aZ09xy");
  fs::create_directory(path + "/sub");
  const std::string kept = write("kept", "mine");
  fs::create_symlink(kept, path + "/sub/link");
  fs::create_directory_symlink(store(), path + "/store");
  output({"check", store()});
  EXPECT_EQ(names_in(copies()), Rows{});
  EXPECT_EQ(read_file(kept), "mine");
  EXPECT_EQ(names_in(store()), Rows{"corvan"});
}

TEST_F(AbandonedCopyTest, KeepsOtherFiles) {
  const std::string target = folder.file("target");
  fs::create_directory(target);
  write_file(target + "/kept", "mine");
  fs::create_directory_symlink(target, copies() + "/corvan-look-linked");
  write_file(copies() + "/corvan-look-afile0", "mine");
  for (const char* name : {"corvan-look-", "corvan-look-short", "corvan-look-longer7", "corvan",
                           "corvan-look-with-2", "my-corvan-look-abcdef"}) {
    make_copy(name);
  }
  const Rows before = names_in(copies());
  output({"check", store()});
  EXPECT_EQ(names_in(copies()), before);
  EXPECT_EQ(read_file(target + "/kept"), "mine");
  for (const std::string& name : before) fs::remove_all(copies() + "/" + name);
}

TEST_F(AbandonedCopyTest, KeepsALockedCopy) {
  const std::string path = make_copy("corvan-look-locked");
  const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ASSERT_EQ(flock(fd, LOCK_EX | LOCK_NB), 0);
  output({"check", store()});
  EXPECT_EQ(names_in(copies()), Rows{"corvan-look-locked"});
  close(fd);
  output({"check", store()});
  EXPECT_EQ(names_in(copies()), Rows{});
}

TEST_F(AbandonedCopyTest, WorksOnAFileSystemWithoutLocks) {
  const auto lock_fails = [this](int error, const std::string& times) {
    variables = {"LD_PRELOAD=" CORVAN_FAILING_LOCK, "CORVAN_LOCK_FAILS=" + times,
                 "CORVAN_LOCK_ERROR=" + std::to_string(error)};
  };
  const std::string dead = make_copy("corvan-look-dead00");
  lock_fails(ENOLCK, "1000");
  EXPECT_EQ(output({"check", store()}), "ok\n");
  EXPECT_EQ(names_in(copies()), Rows{"corvan-look-dead00"}) << "its process may be there";
  lock_fails(EIO, "1000");
  const Outcome outcome = run({"check", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find(": cannot be locked: Input/output error\n"), std::string::npos);
  EXPECT_EQ(names_in(copies()), Rows{"corvan-look-dead00"});
  fs::remove_all(dead);
  lock_fails(EINTR, "3");
  EXPECT_EQ(output({"check", store()}), "ok\n");
}

TEST_F(AbandonedCopyTest, KeepsAnotherUsersCopy) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can make another user's folder";
  const std::string path = make_copy("corvan-look-others");
  ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
  output({"check", store()});
  EXPECT_EQ(names_in(copies()), Rows{"corvan-look-others"});
  fs::remove_all(path);
}

TEST_F(AbandonedCopyTest, ProcessesThatStartTogetherKeepEachOthersCopies) {
  for (int round = 0; round < 10; ++round) {
    make_copy("corvan-look-dead00");
    std::vector<pid_t> started;
    for (int i = 0; i < 8; ++i) {
      started.push_back(start({"check", store()}, open("/dev/null", O_WRONLY | O_CLOEXEC)));
    }
    for (const pid_t pid : started) EXPECT_EQ(wait(pid), 0) << read_err();
    EXPECT_EQ(names_in(copies()), Rows{});
  }
}

}  // namespace
}  // namespace corvan_test
