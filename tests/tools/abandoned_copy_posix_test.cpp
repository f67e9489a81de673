// Temporary copies with links, locks and owners of POSIX.

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "tests/tools/abandoned_copies.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

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

}  // namespace
}  // namespace corvan_test
