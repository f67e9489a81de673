#include "base/filesystem.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

// Starts in a folder that contains only the regular file "file".
class Filesystem : public testing::Test {
 protected:
  Filesystem() { write_file(folder_.file("file"), "content"); }

  bool is_file(const std::string& name) const {
    return cvrtc::Filesystem::IsFile(cvrtc::Pathname(folder_.file(name)));
  }
  fs::path path_of(const std::string& name) const { return fs::u8path(folder_.file(name)); }

  TemporaryFolder folder_;
};

TEST_F(Filesystem, RegularFileIsAFile) {
  EXPECT_TRUE(is_file("file"));
}

TEST_F(Filesystem, EmptyRegularFileIsAFile) {
  write_file(folder_.file("empty"), "");
  EXPECT_TRUE(is_file("empty"));
}

TEST_F(Filesystem, MissingPathIsNotAFile) {
  EXPECT_FALSE(is_file("missing"));
}

TEST_F(Filesystem, FolderIsNotAFile) {
  fs::create_directory(path_of("sub"));
  EXPECT_FALSE(is_file("sub"));
  EXPECT_FALSE(is_file("sub/"));
}

TEST_F(Filesystem, LinkToAFileIsAFile) {
  fs::create_symlink("file", path_of("link"));
  EXPECT_TRUE(is_file("link"));
}

TEST_F(Filesystem, LinkToAFolderOrToNothingIsNotAFile) {
  fs::create_directory(path_of("sub"));
  fs::create_directory_symlink("sub", path_of("folder_link"));
  fs::create_symlink("missing", path_of("dead_link"));
  EXPECT_FALSE(is_file("folder_link"));
  EXPECT_FALSE(is_file("dead_link"));
}

TEST_F(Filesystem, FileNameWithADelimiterAtItsEndIsNotAFile) {
  EXPECT_FALSE(is_file("file/"));
}

TEST_F(Filesystem, FileIsFoundByItsNameInUtf8) {
  for (const char* const name : {"\u6d88\u606f", "\u00e9t\u00e9.db", "\U0001F600"}) {
    EXPECT_FALSE(is_file(name)) << name;
    write_file(folder_.file(name), "content");
    EXPECT_TRUE(is_file(name)) << name;
  }
}

TEST_F(Filesystem, FileIsFoundInAFolderWithChineseCharacters) {
  fs::create_directory(path_of("\u804a\u5929\u8bb0\u5f55"));
  EXPECT_FALSE(is_file("\u804a\u5929\u8bb0\u5f55"));
  EXPECT_FALSE(is_file("\u804a\u5929\u8bb0\u5f55/corvan"));
  write_file(folder_.file("\u804a\u5929\u8bb0\u5f55/corvan"), "content");
  EXPECT_TRUE(is_file("\u804a\u5929\u8bb0\u5f55/corvan"));
}

TEST_F(Filesystem, PathThatCannotBeExaminedIsNotAFile) {
  EXPECT_FALSE(is_file("file/below"));
  EXPECT_FALSE(is_file(std::string(10000, 'x')));
}

TEST_F(Filesystem, EmptyPathIsNotAFile) {
  EXPECT_FALSE(cvrtc::Filesystem::IsFile(cvrtc::Pathname()));
}

}  // namespace
}  // namespace corvan_test
