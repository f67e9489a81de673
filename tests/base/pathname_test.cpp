#include "base/pathname.h"

#include <gtest/gtest.h>

#include <string>

namespace corvan_test {
namespace {

using Path = cvrtc::Pathname;

// The parts with marks between them, so that a wrong boundary is visible.
std::string parts(const Path& path) {
  return "[" + path.folder() + "][" + path.basename() + "][" + path.extension() + "]";
}

TEST(Pathname, StartsEmpty) {
  EXPECT_TRUE(Path().empty());
  EXPECT_EQ(Path().pathname(), "");
}

TEST(Pathname, SplitsAtTheLastDelimiters) {
  const struct {
    const char* text;
    const char* parts;
  } cases[] = {
      {"", "[][][]"},
      {"file", "[][file][]"},
      {"/", "[/][][]"},
      {"/a/b", "[/a/][b][]"},
      {"/a/b/", "[/a/b/][][]"},
      {"a/b.db", "[a/][b][.db]"},
      {"/a.b/c", "[/a.b/][c][]"},
      {"/a/b.tar.gz", "[/a/][b.tar][.gz]"},
      {"/a/b.", "[/a/][b][.]"},
      {"/a/.profile", "[/a/][.profile][]"},
      {"/a/.profile.bak", "[/a/][.profile][.bak]"},
      {"/a/.", "[/a/][.][]"},
      {"/a/..", "[/a/][..][]"},
      {"/a//b", "[/a//][b][]"},
  };
  for (const auto& c : cases) {
    const Path path{std::string(c.text)};
    EXPECT_EQ(parts(path), c.parts) << c.text;
    EXPECT_EQ(path.pathname(), c.text);
  }
}

TEST(Pathname, FilenameIsBasenameAndExtension) {
  EXPECT_EQ(Path("/a/b.db").filename(), "b.db");
  EXPECT_EQ(Path("/a/").filename(), "");
}

TEST(Pathname, FolderAndFilenameAreJoinedByOneDelimiter) {
  EXPECT_EQ(Path("/a", "b.db").pathname(), "/a/b.db");
  EXPECT_EQ(Path("/a/", "b.db").pathname(), "/a/b.db");
  EXPECT_EQ(Path("", "b.db").pathname(), "b.db");
}

TEST(Pathname, IsEmptyOnlyIfEveryPartIsEmpty) {
  EXPECT_FALSE(Path("/a/").empty());
  EXPECT_FALSE(Path("a").empty());
  Path extension_alone;
  extension_alone.SetExtension("db");
  EXPECT_FALSE(extension_alone.empty());
}

TEST(Pathname, ClearRemovesEveryPart) {
  Path path("/a/b.db");
  path.clear();
  EXPECT_EQ(parts(path), "[][][]");
}

TEST(Pathname, SetPathnameReplacesEverything) {
  Path path("/a/b.db");
  path.SetPathname("c/");
  EXPECT_EQ(parts(path), "[c/][][]");
}

TEST(Pathname, SetFolderKeepsTheFilename) {
  Path path("/a/b.db");
  path.SetFolder("c");
  EXPECT_EQ(path.pathname(), "c/b.db");
  path.SetFolder("/d/");
  EXPECT_EQ(path.pathname(), "/d/b.db");
  path.SetFolder("");
  EXPECT_EQ(path.pathname(), "b.db");
}

TEST(Pathname, SetFilenameReplacesBasenameAndExtension) {
  Path path("/a/b.db");
  EXPECT_TRUE(path.SetFilename("corvan"));
  EXPECT_EQ(parts(path), "[/a/][corvan][]");
  EXPECT_TRUE(path.SetFilename("c.txt"));
  EXPECT_EQ(parts(path), "[/a/][c][.txt]");
  EXPECT_TRUE(path.SetFilename(""));
  EXPECT_EQ(parts(path), "[/a/][][]");
}

TEST(Pathname, SetFilenameRefusesAFolderDelimiter) {
  Path path("/a/b.db");
  EXPECT_FALSE(path.SetFilename("c/d"));
  EXPECT_EQ(path.pathname(), "/a/b.db");
}

TEST(Pathname, SetExtensionReplacesOnlyTheExtension) {
  Path path("/a/b.db");
  EXPECT_TRUE(path.SetExtension(".txt"));
  EXPECT_EQ(path.pathname(), "/a/b.txt");
  EXPECT_TRUE(path.SetExtension("bak"));
  EXPECT_EQ(path.pathname(), "/a/b.bak");
}

TEST(Pathname, SetExtensionAddsAnExtensionToAFileWithoutOne) {
  Path path("/a/corvan");
  EXPECT_TRUE(path.SetExtension(".db"));
  EXPECT_EQ(parts(path), "[/a/][corvan][.db]");
}

TEST(Pathname, EmptyExtensionRemovesIt) {
  Path path("/a/b.db");
  EXPECT_TRUE(path.SetExtension(""));
  EXPECT_EQ(path.pathname(), "/a/b");
}

TEST(Pathname, SetExtensionRefusesAFolderDelimiter) {
  Path path("/a/b.db");
  EXPECT_FALSE(path.SetExtension(".d/b"));
  EXPECT_EQ(path.pathname(), "/a/b.db");
}

TEST(Pathname, PartsCanBeSetFromThemselves) {
  Path path("/a/b.db");
  path.SetFolder(path.folder());
  path.SetFilename(path.basename());
  EXPECT_EQ(path.pathname(), "/a/b");
  path.SetExtension(".x");
  path.SetExtension(path.extension());
  EXPECT_EQ(path.pathname(), "/a/b.x");
}

TEST(Pathname, CopiesAreIndependent) {
  const Path original("/a/b.db");
  Path copy = original;
  copy.SetExtension(".txt");
  EXPECT_EQ(original.pathname(), "/a/b.db");
  EXPECT_EQ(copy.pathname(), "/a/b.txt");
}

}  // namespace
}  // namespace corvan_test
