// Temporary copies that a killed process left behind.

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/tools/abandoned_copies.h"

namespace corvan_test {
namespace {

TEST_F(AbandonedCopyTest, TheNextStartRemovesTheCopyOfAKilledProcess) {
  const std::string input = temporary("in");
  write_file(input, "");
  std::string lines;
  for (int i = 0; i < 2000; ++i) lines += line({{"content", std::string(5000, 'x')}});
  most_seconds = 0;
  import(lines);
  const Pipe pipe = make_pipe();
  // It waits until its output is read.
  const pid_t pid = start({"export", store(), "--format", "jsonl"}, pipe.write_end);
  char byte = 0;
  ASSERT_EQ(read(pipe.read_end, &byte, 1), 1);
  EXPECT_EQ(names_in(copies()).size(), 1U);
  EXPECT_EQ(output({"check", store()}), "ok\n");
  EXPECT_EQ(names_in(copies()).size(), 1U) << "a living process's copy was removed";
  EXPECT_TRUE(kill_process(pid));
  close(pipe.read_end);
  ASSERT_EQ(names_in(copies()).size(), 1U);
  EXPECT_FALSE(names_in(copies() + "/" + names_in(copies())[0]).empty());
  output({"--version"});
  EXPECT_EQ(names_in(copies()), Rows{});
}

TEST_F(AbandonedCopyTest, RemovesACopyWithAFolder) {
  const std::string path = make_copy("corvan-look-aZ09xy");
  std::filesystem::create_directory(path + "/sub");
  write_file(path + "/sub/file", "messages");
  output({"check", store()});
  EXPECT_EQ(names_in(copies()), Rows{});
  EXPECT_EQ(names_in(store()), Rows{"corvan"});
}

TEST_F(AbandonedCopyTest, KeepsFilesWithOtherNames) {
  write_file(copies() + "/corvan-look-afile0", "mine");
  for (const char* name : {"corvan-look-", "corvan-look-short", "corvan-look-longer7", "corvan",
                           "corvan-look-with-2", "my-corvan-look-abcdef"}) {
    make_copy(name);
  }
  const Rows before = names_in(copies());
  output({"check", store()});
  EXPECT_EQ(names_in(copies()), before);
  for (const std::string& name : before) std::filesystem::remove_all(copies() + "/" + name);
}

TEST_F(AbandonedCopyTest, ProcessesThatStartTogetherKeepEachOthersCopies) {
  for (int round = 0; round < 10; ++round) {
    make_copy("corvan-look-dead00");
    std::vector<pid_t> started;
    for (int i = 0; i < 8; ++i) {
      started.push_back(start({"check", store()}, null_output()));
    }
    for (const pid_t pid : started) EXPECT_EQ(wait(pid), 0) << read_err();
    EXPECT_EQ(names_in(copies()), Rows{});
  }
}

}  // namespace
}  // namespace corvan_test
