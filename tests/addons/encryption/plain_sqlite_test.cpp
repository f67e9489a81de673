// SQLite without a cipher at run time: it would accept a key and store plain text.

#include <random>

#include "tests/addons/encryption/keys_fixture.h"

namespace corvan_test {

namespace {

class PlainSqlite : public Keys {
 protected:
  void SetUp() override {
    if (cipher() != Cipher::kNone) GTEST_SKIP() << "this SQLite has a cipher";
  }
  // Pages that look like those of an encrypted store.
  static std::string random_pages() {
    std::mt19937 random(11);
    std::string pages(8 * 4096, '\0');
    for (char& c : pages) c = static_cast<char>(random());
    return pages;
  }
};

TEST_F(PlainSqlite, HasNoCipher) {
  EXPECT_FALSE(StoreKeys::has_cipher());
}

TEST_F(PlainSqlite, KeyForNewFolderIsRefused) {
  StoreKeys::set(path(folder.path()), key(1));
  EXPECT_FALSE(open());
  EXPECT_EQ(StoreKeys::last_refusal(), KeyRefusal::kNoCipher);
  EXPECT_FALSE(save(0));
  for (const auto& [name, content] : files_in(folder.path())) EXPECT_EQ(content, "") << name;
  expect_refused(folder.path(), KeyRefusal::kNoCipher);
  expect_no_plaintext();
}

TEST_F(PlainSqlite, KeyForPlainStoreIsRefused) {
  const Files files = fill_plain(folder.path(), 10);
  StoreKeys::set(path(folder.path()), key(1));
  expect_refused(folder.path(), KeyRefusal::kNotEncrypted);
  StoreKeys::clear(path(folder.path()));
  expect_refused(folder.path(), KeyRefusal::kNoKey);
  EXPECT_TRUE(files_in(folder.path()) == files);
  StoreKeys::forget(path(folder.path()));
  EXPECT_TRUE(open());
  EXPECT_EQ(messages(), expected_messages(10));
}

TEST_F(PlainSqlite, EncryptedFileFromElsewhereIsKept) {
  const Files files = {{"corvan", random_pages()}, {"corvan-wal", random_pages()}};
  put_files(folder.path(), files);
  expect_refused(folder.path(), KeyRefusal::kNoKey);
  StoreKeys::expect(path(folder.path()));
  expect_refused(folder.path(), KeyRefusal::kNoKey);
  StoreKeys::set(path(folder.path()), key(1));
  expect_refused(folder.path(), KeyRefusal::kNoCipher);
  StoreKeys::set(path(folder.path()), passphrase("any"));
  expect_refused(folder.path(), KeyRefusal::kNoCipher);
  EXPECT_TRUE(files_in(folder.path()) == files);
}

TEST_F(PlainSqlite, StoresWithoutKeyAreLeftAlone) {
  const TemporaryFolder other;
  StoreKeys::set(path(other.path()), key(1));
  fill_plain(folder.path(), 3);
  EXPECT_TRUE(open());
  EXPECT_EQ(messages(), expected_messages(3));
  StoreKeys::forget(path(other.path()));
}

// A file that is neither a database nor random is a damaged store, as ever.
TEST_F(PlainSqlite, FileWithTextIsDamagedAsEver) {
  put_files(folder.path(), {{"corvan", std::string(5000, 'x') + "text"}});
  EXPECT_TRUE(open());
  EXPECT_EQ(files_in(folder.path()).count("corvan"), 0U);
}

}  // namespace

}  // namespace corvan_test
