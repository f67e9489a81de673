// Files that another program, such as a virus scanner, holds, and files with the attribute
// read-only. A handle of this process has the same effect as one of another program.

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <windows.h>

#include <filesystem>
#include <string>

#include "tests/support/code_page.h"
#include "tests/support/failures.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

// An open file. Others may do with it only what `shared` allows.
class HeldFile {
 public:
  HeldFile(const std::string& path, DWORD shared, DWORD access = GENERIC_READ)
      : handle_(CreateFileW(std::filesystem::u8path(path).c_str(), access, shared, nullptr,
                            OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr)) {}
  HeldFile(const HeldFile&) = delete;
  HeldFile& operator=(const HeldFile&) = delete;
  ~HeldFile() { release(); }

  bool is_held() const { return handle_ != INVALID_HANDLE_VALUE; }
  void release() {
    if (is_held()) CloseHandle(handle_);
    handle_ = INVALID_HANDLE_VALUE;
  }

 private:
  HANDLE handle_;
};

constexpr DWORD kNothing = 0;
constexpr DWORD kReadingAndWriting = FILE_SHARE_READ | FILE_SHARE_WRITE;
constexpr DWORD kEverything = kReadingAndWriting | FILE_SHARE_DELETE;

class WindowsFiles : public StoreTest {
 protected:
  bool is_open() { return store_connection() != nullptr; }

  void replace_by_damaged_file() {
    store().close_db();
    write_file(file(), kDamaged);
  }

  // Opens the store, which finds the file damaged and closes itself.
  void meet_damage() {
    EXPECT_TRUE(open());
    EXPECT_EQ(log.take(), Rows{kNotADatabase});
    EXPECT_FALSE(is_open());
  }

  void expect_new_store() {
    EXPECT_TRUE(open());
    EXPECT_EQ(log.take(), Rows{});
    EXPECT_EQ(save(NewMessage()), 1);
  }

  bool set_read_only(bool on) const {
    const DWORD attributes = on ? FILE_ATTRIBUTE_READONLY : FILE_ATTRIBUTE_NORMAL;
    return SetFileAttributesW(std::filesystem::u8path(file()).c_str(), attributes) != FALSE;
  }

  const std::string kDamaged = std::string(8192, 'x');
  const std::string kNotADatabase = prepare_failed(sqlite3_errstr(SQLITE_NOTADB), SQLITE_NOTADB);
};

TEST_F(WindowsFiles, ManifestMakesTheCLibraryTakeUtf8) {
  EXPECT_TRUE(c_library_takes_utf8());
}

TEST_F(WindowsFiles, DamagedFileThatIsHeldStaysUntilAnOpeningAfterItsRelease) {
  SKIP_IF_ENCRYPTED("damaged files are refused");
  replace_by_damaged_file();
  HeldFile held(file(), kReadingAndWriting);
  ASSERT_TRUE(held.is_held());
  meet_damage();
  EXPECT_EQ(read_file(file()), kDamaged);
  meet_damage();
  EXPECT_EQ(read_file(file()), kDamaged);

  held.release();
  meet_damage();
  EXPECT_FALSE(file_exists(file()));
  expect_new_store();
}

TEST_F(WindowsFiles, DamagedFileWhoseHolderAllowsDeletionIsGoneAfterItsRelease) {
  SKIP_IF_ENCRYPTED("damaged files are refused");
  replace_by_damaged_file();
  HeldFile held(file(), kEverything);
  ASSERT_TRUE(held.is_held());
  meet_damage();
  held.release();
  EXPECT_FALSE(file_exists(file()));
  expect_new_store();
}

TEST_F(WindowsFiles, FileThatIsHeldExclusivelyIsNotOpened) {
  save(NewMessage());
  store().close_db();
  HeldFile held(file(), kNothing);
  ASSERT_TRUE(held.is_held());
  EXPECT_EQ(store().open_db(), SQLITE_CANTOPEN);
  EXPECT_FALSE(open());
  EXPECT_FALSE(is_open());
  EXPECT_EQ(log.take(), Rows{});

  held.release();
  EXPECT_TRUE(open());
  EXPECT_EQ(rows("select content from t_message"), Rows{"hello"});
}

TEST_F(WindowsFiles, OpenFileCanBeHeldForReading) {
  const HeldFile held(file(), kReadingAndWriting);
  ASSERT_TRUE(held.is_held());
  EXPECT_EQ(save(NewMessage()), 1);
  store().close_db();
  EXPECT_TRUE(open());
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(WindowsFiles, ReadOnlyFileIsReadAndNotWritten) {
  save(NewMessage().text("before"));
  store().close_db();
  ASSERT_TRUE(set_read_only(true));
  if (HeldFile(file(), kEverything, GENERIC_WRITE).is_held()) {
    set_read_only(false);
    GTEST_SKIP() << "this user may write read-only files, as root may under Wine";
  }
  EXPECT_TRUE(open());
  EXPECT_TRUE(is_open());
  log.take();
  EXPECT_EQ(store().get_pragma("select count(*) from t_message"), 1);
  EXPECT_EQ(save(NewMessage()), -1);
  EXPECT_NE(log.take(), Rows{});
  store().close_db();
  ASSERT_TRUE(set_read_only(false));
  EXPECT_EQ(rows("select content from t_message"), Rows{"before"});
}

TEST_F(WindowsFiles, DamagedReadOnlyFileStays) {
  SKIP_IF_ENCRYPTED("damaged files are refused");
  replace_by_damaged_file();
  ASSERT_TRUE(set_read_only(true));
  meet_damage();
  EXPECT_EQ(read_file(file()), kDamaged);

  ASSERT_TRUE(set_read_only(false));
  meet_damage();
  EXPECT_FALSE(file_exists(file()));
  expect_new_store();
}

TEST_F(WindowsFiles, PathsWithBackslashesAreOpened) {
  const TemporaryFolder fresh;
  store().close_db();
  std::string path = fresh.path();
  for (char& c : path) c = c == '/' ? '\\' : c;
  for (const std::string& place : {path, "\\\\?\\" + path}) {
    ASSERT_TRUE(store().init_open_db(cvrtc::Pathname(place), "", "me")) << place;
    EXPECT_TRUE(file_exists(fresh.file("corvan")));
    EXPECT_EQ(save(NewMessage()), 1) << place;
    store().close_db();
    write_file(fresh.file("corvan"), kDamaged);
    if (stores_are_encrypted()) continue;
    ASSERT_TRUE(store().init_open_db(cvrtc::Pathname(place), "", "me"));
    EXPECT_EQ(log.take(), Rows{kNotADatabase});
    EXPECT_FALSE(file_exists(fresh.file("corvan"))) << place;
  }
}

}  // namespace
}  // namespace corvan_test
