#include "base/filesystem.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <system_error>

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

// Starts in a folder that contains only the regular file "file".
class Filesystem : public testing::Test {
 protected:
  Filesystem() {
    std::string name = (fs::temp_directory_path() / "corvan-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("no temporary folder");
    folder_ = name;
    std::ofstream(folder_ / "file") << "content";
  }
  ~Filesystem() override {
    std::error_code ignored;
    fs::remove_all(folder_, ignored);
  }

  bool is_file(const std::string& name) const {
    return cvrtc::Filesystem::IsFile(cvrtc::Pathname((folder_ / name).string()));
  }

  fs::path folder_;
};

TEST_F(Filesystem, RegularFileIsAFile) {
  EXPECT_TRUE(is_file("file"));
}

TEST_F(Filesystem, EmptyRegularFileIsAFile) {
  std::ofstream(folder_ / "empty").flush();
  EXPECT_TRUE(is_file("empty"));
}

TEST_F(Filesystem, MissingPathIsNotAFile) {
  EXPECT_FALSE(is_file("missing"));
}

TEST_F(Filesystem, FolderIsNotAFile) {
  fs::create_directory(folder_ / "sub");
  EXPECT_FALSE(is_file("sub"));
  EXPECT_FALSE(is_file("sub/"));
}

TEST_F(Filesystem, LinkToAFileIsAFile) {
  fs::create_symlink("file", folder_ / "link");
  EXPECT_TRUE(is_file("link"));
}

TEST_F(Filesystem, LinkToAFolderOrToNothingIsNotAFile) {
  fs::create_directory(folder_ / "sub");
  fs::create_directory_symlink("sub", folder_ / "folder_link");
  fs::create_symlink("missing", folder_ / "dead_link");
  EXPECT_FALSE(is_file("folder_link"));
  EXPECT_FALSE(is_file("dead_link"));
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
