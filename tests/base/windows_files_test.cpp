// Filesystem and Pathname on Windows: code pages, delimiters, devices, links and locks.

#include <gtest/gtest.h>

#include <windows.h>

#include <filesystem>
#include <string>

#include "base/filesystem.h"
#include "base/pathname.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

using cvrtc::Pathname;

bool is_file(const std::string& path) {
  return cvrtc::Filesystem::IsFile(Pathname(path));
}

std::wstring wide(const std::string& path) {
  return std::filesystem::u8path(path).wstring();
}

std::string with_backslashes(std::string path) {
  for (char& c : path) c = c == '/' ? '\\' : c;
  return path;
}

// Starts in a folder that contains only the file "file".
class WindowsFiles : public testing::Test {
 protected:
  WindowsFiles() { write_file(file, "content"); }

  TemporaryFolder folder;
  const std::string file = folder.file("file");
};

TEST_F(WindowsFiles, EachDelimiterLeadsToTheFile) {
  EXPECT_TRUE(is_file(with_backslashes(file)));
  EXPECT_TRUE(is_file(with_backslashes(folder.path()) + "/file"));
  EXPECT_TRUE(cvrtc::Filesystem::IsFile(Pathname(with_backslashes(folder.path()), "file")));
  EXPECT_FALSE(is_file(with_backslashes(file) + "\\"));
}

TEST_F(WindowsFiles, ExtendedPathIsAFileAndMissingServerIsNot) {
  const std::string path = with_backslashes(file);
  EXPECT_TRUE(is_file("\\\\?\\" + path));
  EXPECT_FALSE(is_file("\\\\?\\" + path + "2"));
  EXPECT_FALSE(is_file("\\\\missing.invalid\\share\\file"));
}

TEST_F(WindowsFiles, InvalidUtf8IsNotAFile) {
  const std::string in_gbk = folder.file("\xcf\xfb\xcf\xa2");
  EXPECT_FALSE(is_file(in_gbk));
  EXPECT_FALSE(is_file(folder.file("file\xff")));
  EXPECT_FALSE(is_file(folder.file("\xed\xa0\x80")));  // half of a surrogate pair
}

TEST_F(WindowsFiles, DevicesAndVolumesAreNotFiles) {
  for (const char* const name : {"NUL", "nul", "CON", "C:\\NUL", "\\\\.\\NUL", "\\\\.\\C:", "C:"}) {
    EXPECT_FALSE(is_file(name)) << name;
  }
  EXPECT_FALSE(is_file(folder.file("NUL")));
}

TEST_F(WindowsFiles, LinkToAFileIsAFileAndToNothingIsNot) {
  const DWORD unprivileged = 2;  // SYMBOLIC_LINK_FLAG_ALLOW_UNPRIVILEGED_CREATE
  const std::wstring link = wide(folder.file("link"));
  CreateSymbolicLinkW(link.c_str(), L"file", unprivileged);
  if (GetFileAttributesW(link.c_str()) == INVALID_FILE_ATTRIBUTES) {
    GTEST_SKIP() << "this system does not let this user create links";
  }
  EXPECT_TRUE(is_file(folder.file("link")));
  ASSERT_TRUE(DeleteFileW(wide(file).c_str()));
  EXPECT_FALSE(is_file(folder.file("link")));
}

TEST_F(WindowsFiles, FileThatAnotherProgramHoldsExclusivelyIsAFile) {
  const HANDLE held = CreateFileW(wide(file).c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                                  OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
  ASSERT_NE(held, INVALID_HANDLE_VALUE);
  EXPECT_TRUE(is_file(file));
  CloseHandle(held);
}

TEST_F(WindowsFiles, FilesWithAttributesAreFiles) {
  for (const DWORD attribute : {DWORD{FILE_ATTRIBUTE_READONLY}, DWORD{FILE_ATTRIBUTE_HIDDEN},
                                DWORD{FILE_ATTRIBUTE_SYSTEM}}) {
    ASSERT_TRUE(SetFileAttributesW(wide(file).c_str(), attribute));
    EXPECT_TRUE(is_file(file)) << attribute;
  }
  SetFileAttributesW(wide(file).c_str(), FILE_ATTRIBUTE_NORMAL);
}

// ---- Pathname -----------------------------------------------------------------------------------

std::string with_marks(const Pathname& path) {
  return "[" + path.folder() + "][" + path.basename() + "][" + path.extension() + "]";
}

TEST(WindowsPathname, SplitsAtTheLastDelimiterOfEitherKind) {
  const struct {
    const char* text;
    const char* parts;
  } cases[] = {
      {"C:\\a\\b", "[C:\\a\\][b][]"},
      {"C:\\a\\b.db", "[C:\\a\\][b][.db]"},
      {"C:\\a\\b\\", "[C:\\a\\b\\][][]"},
      {"C:/a/b", "[C:/a/][b][]"},
      {"C:\\a/b", "[C:\\a/][b][]"},
      {"C:/a\\b", "[C:/a\\][b][]"},
      {"C:\\", "[C:\\][][]"},
      {"C:a", "[][C:a][]"},
      {"\\", "[\\][][]"},
      {"\\\\server\\share\\x", "[\\\\server\\share\\][x][]"},
      {"//server/share\\x.db", "[//server/share\\][x][.db]"},
      {"\\\\?\\C:\\a\\b", "[\\\\?\\C:\\a\\][b][]"},
      {"a.b\\c", "[a.b\\][c][]"},
      {"a\\.profile", "[a\\][.profile][]"},
  };
  for (const auto& c : cases) {
    const Pathname path{std::string(c.text)};
    EXPECT_EQ(with_marks(path), c.parts) << c.text;
    EXPECT_EQ(path.pathname(), c.text);
  }
}

TEST(WindowsPathname, AddsASlashAfterAFolderWithoutDelimiter) {
  EXPECT_EQ(Pathname("C:\\a", "b").pathname(), "C:\\a/b");
  EXPECT_EQ(Pathname("C:\\a\\", "b").pathname(), "C:\\a\\b");
  EXPECT_EQ(Pathname("C:\\a/", "b").pathname(), "C:\\a/b");
  Pathname path("C:\\a\\b.db");
  path.SetFolder("\\\\server\\share");
  EXPECT_EQ(path.pathname(), "\\\\server\\share/b.db");
}

TEST(WindowsPathname, NamesAndExtensionsWithABackslashAreRefused) {
  Pathname path("C:\\a\\b.db");
  EXPECT_FALSE(path.SetFilename("c\\d"));
  EXPECT_FALSE(path.SetExtension(".d\\b"));
  EXPECT_EQ(path.pathname(), "C:\\a\\b.db");
}

}  // namespace
}  // namespace corvan_test
