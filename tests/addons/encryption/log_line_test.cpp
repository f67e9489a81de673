// What a refusal says, and where: the result of opening, SQLite's error text and its log, and one
// line in the library's log. None of them contains a key, a passphrase or a message.

#include <sqlite3.h>

#include <filesystem>
#include <thread>

#include "tests/addons/encryption/keys_fixture.h"
#include "tests/addons/encryption/sqlite_faults.h"

namespace corvan_test {

namespace {

constexpr const char* kPassphrase = "Sumpfdotterblume's \"secret\"";

// A path with the system's delimiters, as SQLite has it.
std::string native(const std::string& path) {
  return std::filesystem::u8path(path).make_preferred().u8string();
}

class RefusalTexts : public Keys {
 protected:
  void SetUp() override {
    CORVAN_NEED_CIPHER();
    fill(folder.path(), 1, 3);
  }

  static void expect_no_secret(const std::string& text) {
    EXPECT_FALSE(contains_key(text)) << text;
    EXPECT_EQ(text.find("Sumpfdotter"), std::string::npos) << text;
    EXPECT_EQ(text.find(planted_word()), std::string::npos) << text;
    EXPECT_EQ(text.find("pragma key"), std::string::npos) << text;
  }

  // Opens the file, which is refused, and returns SQLite's result.
  int refused_code(KeyRefusal reason) {
    log.take();
    const Connection connection(folder.file("corvan"));
    const std::vector<std::string> lines = log.take();
    EXPECT_EQ(lines.size(), 1U);
    const std::string line = lines.empty() ? "" : lines[0];
    EXPECT_EQ(line.rfind("4 ", 0), 0U) << line;
    EXPECT_NE(line.find(native(folder.file("corvan"))), std::string::npos) << line;
    EXPECT_NE(line.find(to_text(reason)), std::string::npos) << line;
    EXPECT_NE(connection.error().find(to_text(reason)), std::string::npos) << connection.error();
    expect_no_secret(line);
    expect_no_secret(connection.error());
    return connection.code();
  }
};

TEST_F(RefusalTexts, NameFileAndReason) {
  StoreKeys::set(path(folder.path()), key(2));
  EXPECT_EQ(refused_code(KeyRefusal::kWrongKey) & 0xff, SQLITE_NOTADB);
  StoreKeys::set(path(folder.path()), passphrase(kPassphrase));
  EXPECT_EQ(refused_code(KeyRefusal::kWrongKey) & 0xff, SQLITE_NOTADB);
  StoreKeys::clear(path(folder.path()));
  EXPECT_EQ(refused_code(KeyRefusal::kNoKey), SQLITE_AUTH);
  StoreKeys::forget(path(folder.path()));
  EXPECT_EQ(refused_code(KeyRefusal::kNoKey), SQLITE_AUTH);
  fill(folder.path(), 1, 0);
  put_files(folder.path(), {});
  fill_plain(folder.path(), 1);
  StoreKeys::set(path(folder.path()), key(1));
  EXPECT_EQ(refused_code(KeyRefusal::kNotEncrypted), SQLITE_NOTADB);
}

TEST_F(RefusalTexts, SayNothingWhenTheKeyIsRight) {
  log.take();
  expect_messages(folder.path(), 1, 3);
  EXPECT_EQ(log.take(), std::vector<std::string>{});
}

TEST_F(RefusalTexts, KeepSecretsOutOfSqlitesLog) {
  const Files sound = files_in(folder.path());
  close();
  const SqliteLog sqlite_log;
  for (const bool is_damaged : {false, true}) {
    Files files = sound;
    if (is_damaged) files["corvan"].resize(files["corvan"].size() / 2);
    for (const unsigned number : {1U, 2U}) {
      StoreKeys::set(path(folder.path()), key(number));
      put_files(folder.path(), files);
      open();
      close();  // Windows does not delete an open file
    }
    StoreKeys::set(path(folder.path()), passphrase(kPassphrase));
    open();
    close();
  }
  for (const std::string& line : sqlite_log.lines()) expect_no_secret(line);
  for (const std::string& line : log.take()) expect_no_secret(line);
}

TEST_F(RefusalTexts, BelongToTheThread) {
  StoreKeys::set(path(folder.path()), key(2));
  expect_refused(folder.path(), KeyRefusal::kWrongKey);
  std::thread([this] {
    EXPECT_EQ(StoreKeys::last_refusal(), KeyRefusal::kNone);
    StoreKeys::clear(path(folder.path()));
    const Connection connection(folder.file("corvan"));
    EXPECT_EQ(StoreKeys::last_refusal(), KeyRefusal::kNoKey);
  }).join();
  EXPECT_EQ(StoreKeys::last_refusal(), KeyRefusal::kWrongKey);
}

// An encryption that the virtual file system cannot do must not be skipped.
TEST_F(RefusalTexts, VirtualFileSystemWithoutCipherIsRefused) {
  if (cipher() != Cipher::kMultiple) GTEST_SKIP() << "this cipher works with every VFS";
  const SqliteLog sqlite_log;
  StoreKeys::set(path(folder.path()), key(1));
  for (const bool is_new : {false, true}) {
    if (is_new) put_files(folder.path(), {});
    for (const char* const vfs : {"unix", "unix-none", "unix-dotfile", "unix-excl", "win32"}) {
      if (sqlite3_vfs_find(vfs) == nullptr) continue;
      sqlite3* db = nullptr;
      const int code = sqlite3_open_v2(folder.file("corvan").c_str(), &db,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, vfs);
      EXPECT_NE(code, SQLITE_OK) << vfs;
      EXPECT_STREQ(to_text(StoreKeys::last_refusal()), to_text(KeyRefusal::kNoCipher)) << vfs;
      expect_no_secret(sqlite3_errmsg(db));
      sqlite3_close(db);
    }
  }
  for (const std::string& line : log.take()) expect_no_secret(line);
  for (const std::string& line : sqlite_log.lines()) expect_no_secret(line);
}

TEST(KeyRefusalTexts, DifferForEachReason) {
  std::vector<std::string> texts;
  for (int reason = 0; reason <= 6; ++reason) {
    const std::string text = to_text(static_cast<KeyRefusal>(reason));
    for (const std::string& other : texts) EXPECT_NE(text, other);
    texts.push_back(text);
  }
}

}  // namespace

}  // namespace corvan_test
