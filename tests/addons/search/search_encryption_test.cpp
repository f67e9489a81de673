// The index of an encrypted store has the store's key.

#include <filesystem>
#include <string>

#include "addons/encryption/store_encryption.h"
#include "addons/encryption/store_keys.h"
#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/encryption.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

namespace fs = std::filesystem;

using Corvan::ConversionResult;
using Corvan::MessageSearch;
using Corvan::SearchStatus;
using Corvan::StoreKey;
using Corvan::StoreKeys;

StoreKey key_number(unsigned char number) {
  StoreKey::Bytes bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes.at(i) = static_cast<unsigned char>(11 * i + number);
  }
  return StoreKey(bytes);
}

constexpr const char* kPlanted = "zyxwvplanted";

class SearchEncryption : public SearchTest {
 protected:
  void SetUp() override {
    SKIP_IF_ENCRYPTED("sets keys of its own");
    if (!StoreKeys::has_cipher()) GTEST_SKIP() << "this SQLite has no cipher";
    SearchTest::SetUp();
    StoreKeys::install();
    save_many(1, 200);
    save({std::string("hello ") + kPlanted});
    build_index();
    close();
  }
  ~SearchEncryption() override { StoreKeys::forget(path()); }

  bool encrypt(unsigned char number = 1) const {
    return encrypt_store(path(), key_number(number)).result == ConversionResult::kDone;
  }

  bool index_is_plain() const {
    std::string bytes;
    for (const auto& [name, content] : index_files()) bytes += content;
    return bytes.find("SQLite format 3") != std::string::npos ||
           bytes.find(kPlanted) != std::string::npos || bytes.find("state") != std::string::npos;
  }

  // The index in the folder does not fit the store any more: it is built anew, and nothing is
  // missed meanwhile.
  void expect_built_anew() {
    ASSERT_TRUE(open());
    {
      MessageSearch search(path());
      const Truth now = truth();
      EXPECT_EQ(compare(search, now, few_queries()), "");
      EXPECT_EQ(search.progress().waiting, static_cast<int64_t>(now.messages().size()));
      EXPECT_EQ(catch_up_all(search), "");
      EXPECT_EQ(compare(search, now, all_queries()), "");
      EXPECT_EQ(mend_all(search), "");
      EXPECT_EQ(compare(search, now, all_queries()), "");
    }
    close();
  }
  // The index fits.
  void expect_used() {
    ASSERT_TRUE(open());
    {
      MessageSearch search(path());
      EXPECT_EQ(search.open(), SearchStatus::kOk);
      EXPECT_EQ(search.progress().waiting, 0);
      EXPECT_EQ(compare(search, truth(), all_queries()), "");
    }
    close();
  }
};

TEST_F(SearchEncryption, PlainIndexBesideAStoreThatWasEncrypted) {
  EXPECT_TRUE(index_is_plain());
  ASSERT_TRUE(encrypt());
  expect_built_anew();
  EXPECT_FALSE(index_is_plain());
  expect_used();
  EXPECT_FALSE(index_is_plain());
}

TEST_F(SearchEncryption, RemovedIndexIsCreatedEncrypted) {
  ASSERT_TRUE(MessageSearch::remove(path()));
  ASSERT_TRUE(encrypt());
  expect_built_anew();
  EXPECT_FALSE(index_is_plain());
}

TEST_F(SearchEncryption, EncryptedWhileOpen) {
  ASSERT_TRUE(MessageSearch::remove(path()));
  ASSERT_TRUE(encrypt());
  ASSERT_TRUE(open());
  MessageSearch search(path());
  EXPECT_EQ(mend_all(search), "");
  save({kPlanted});
  EXPECT_EQ(catch_up_all(search), "");
  EXPECT_FALSE(index_is_plain());  // nor is its log
}

TEST_F(SearchEncryption, EncryptedIndexBesideAStoreThatWasDecrypted) {
  ASSERT_TRUE(encrypt());
  expect_built_anew();
  ASSERT_EQ(Corvan::decrypt_store(path()).result, ConversionResult::kDone);
  expect_built_anew();
  expect_used();
}

TEST_F(SearchEncryption, IndexWithTheOldKey) {
  ASSERT_TRUE(encrypt(1));
  expect_built_anew();
  ASSERT_EQ(rekey_store(path(), key_number(1), key_number(2)).result, ConversionResult::kDone);
  expect_built_anew();
  expect_used();
  EXPECT_FALSE(index_is_plain());
}

TEST_F(SearchEncryption, LogOfTheOldKeyIsNotLeft) {
  ASSERT_TRUE(encrypt(1));
  expect_built_anew();
  const FileSet before = index_files();
  FileSet with_log = before;
  with_log["corvan-search-wal"] = std::string(20000, '\x37');
  replace_files(folder.path(), "corvan-search", with_log);
  ASSERT_EQ(rekey_store(path(), key_number(1), key_number(2)).result, ConversionResult::kDone);
  expect_built_anew();
  expect_used();
}

TEST_F(SearchEncryption, NothingIsDeletedWithoutTheRightKey) {
  ASSERT_TRUE(encrypt());
  expect_built_anew();
  const std::string store_bytes = read_file(file());
  const FileSet index = index_files();
  const auto expect_kept = [&] {
    MessageSearch search(path());
    EXPECT_NE(search.open(), SearchStatus::kOk);
    EXPECT_NE(search.find("hello").status, SearchStatus::kOk);
    EXPECT_NE(search.catch_up(kPlenty).status, SearchStatus::kOk);
    EXPECT_NE(search.sweep(kPlenty).status, SearchStatus::kOk);
    EXPECT_NE(search.changed(1), SearchStatus::kOk);
    EXPECT_NE(search.progress().status, SearchStatus::kOk);
    EXPECT_TRUE(read_file(file()) == store_bytes);
    EXPECT_EQ(index_files(), index);
  };
  StoreKeys::clear(path());  // expected to be encrypted, without a key
  expect_kept();
  StoreKeys::forget(path());  // not known to be encrypted
  expect_kept();
  ASSERT_TRUE(StoreKeys::set(path(), key_number(9)));
  expect_kept();
  ASSERT_TRUE(StoreKeys::set(path(), key_number(1)));
  expect_used();
}

TEST_F(SearchEncryption, DamagedEncryptedIndex) {
  ASSERT_TRUE(encrypt());
  expect_built_anew();
  const std::string good = read_file(index());
  for (std::size_t at = 0; at < good.size(); at += 4096 * 3 + 100) {
    std::string bad = good;
    bad[at] = static_cast<char>(bad[at] ^ 0x55);
    replace_files(folder.path(), "corvan-search", {{"corvan-search", bad}});
    ASSERT_TRUE(open());
    {
      MessageSearch search(path());
      EXPECT_EQ(compare(search, truth(), few_queries()), "") << at;
      EXPECT_EQ(mend_all(search), "") << at;
      EXPECT_EQ(compare(search, truth(), few_queries()), "") << at;
    }
    close();
    EXPECT_FALSE(index_is_plain());
  }
}

}  // namespace

}  // namespace corvan_test
