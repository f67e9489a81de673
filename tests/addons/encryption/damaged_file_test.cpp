// Stores that were cut off or damaged: the file is never deleted, and no plaintext is written.

#include <algorithm>
#include <cstddef>
#include <random>
#include <set>

#include "tests/addons/encryption/keys_fixture.h"

namespace corvan_test {

namespace {

class DamagedFile : public Keys {
 protected:
  static constexpr int kCount = 60;
  static constexpr std::size_t kPage = 4096;

  void SetUp() override {
    CORVAN_NEED_CIPHER();
    files = fill(folder.path(), 1, kCount);
    ASSERT_EQ(files.size(), 1U);
    ASSERT_GT(files["corvan"].size(), 8 * kPage);
  }

  const std::string& sound() const { return files.at("corvan"); }
  std::string stored() const {
    const Files now = files_in(folder.path());
    const auto found = now.find("corvan");
    return found == now.end() ? "no file" : found->second;
  }
  void store_as(const std::string& content) const {
    put_files(folder.path(), {{"corvan", content}});
  }

  // Opens the file, which is refused or not. Refused, it must stay as it is. Opened with the right
  // key, it must stay when its messages are read.
  void expect_kept(const std::string& content) const {
    store_as(content);
    const bool opened = open();
    if (opened) messages();
    close();
    EXPECT_NE(stored(), "no file");
    if (!opened) {
      EXPECT_TRUE(stored() == content) << "refused, and changed";
      EXPECT_NE(StoreKeys::last_refusal(), KeyRefusal::kNone);
    }
  }

  // With the right key, a wrong one, a mark and nothing. The sound file is complete afterwards.
  void try_with_each_key(const std::string& content) const {
    StoreKeys::set(path(folder.path()), key(1));
    expect_kept(content);
    StoreKeys::set(path(folder.path()), key(2));
    store_as(content);
    EXPECT_FALSE(open());
    EXPECT_TRUE(stored() == content);
    StoreKeys::clear(path(folder.path()));
    EXPECT_FALSE(open());
    EXPECT_TRUE(stored() == content);
    StoreKeys::forget(path(folder.path()));
    EXPECT_FALSE(open());
    EXPECT_TRUE(stored() == content);
  }

  Files files;
};

TEST_F(DamagedFile, IsKeptAtEveryLength) {
  const std::size_t size = sound().size();
  for (const std::size_t length : {std::size_t{2}, std::size_t{15}, std::size_t{16},
                                   std::size_t{100}, std::size_t{511}, std::size_t{512}, kPage - 1,
                                   kPage, kPage + 1, 2 * kPage, size / 2, size - kPage, size - 1}) {
    SCOPED_TRACE(length);
    try_with_each_key(sound().substr(0, length));
  }
  store_as(sound());
  expect_messages(folder.path(), 1, kCount);
  expect_no_plaintext();
}

TEST_F(DamagedFile, ShorterThanOnePageIsRefused) {
  StoreKeys::set(path(folder.path()), key(1));
  for (std::size_t length = 2; length < kPage; length += length < 40 ? 1 : 97) {
    SCOPED_TRACE(length);
    store_as(sound().substr(0, length));
    EXPECT_FALSE(open());
    EXPECT_TRUE(stored() == sound().substr(0, length));
  }
}

// SQLite takes a file of at most one byte for a new one: there is nothing to lose. It must be
// encrypted all the same.
class EmptyFile : public DamagedFile, public testing::WithParamInterface<std::size_t> {};

TEST_P(EmptyFile, BecomesEncryptedStore) {
  store_as(sound().substr(0, GetParam()));
  StoreKeys::clear(path(folder.path()));
  expect_refused(folder.path(), KeyRefusal::kNoKey);
  StoreKeys::set(path(folder.path()), key(1));
  ASSERT_TRUE(open());
  EXPECT_TRUE(save(0));
  close();
  expect_no_plaintext();
  expect_messages(folder.path(), 1, 1);
}

INSTANTIATE_TEST_SUITE_P(Lengths, EmptyFile, testing::Values(0U, 1U));

TEST_F(DamagedFile, IsKeptWithOneBadBitInEveryPage) {
  std::mt19937 random(7);
  for (std::size_t page = 0; page < sound().size() / kPage; ++page) {
    SCOPED_TRACE(page + 1);
    std::string content = sound();
    const std::size_t place = page * kPage + random() % kPage;
    content[place] = static_cast<char>(content[place] ^ 0x10);
    try_with_each_key(content);
  }
}

TEST_F(DamagedFile, IsKeptWithEachPageOverwritten) {
  for (const char byte : {'\0', '\xFF', 'x'}) {
    for (std::size_t page = 0; page < sound().size() / kPage; ++page) {
      SCOPED_TRACE(page + 1);
      std::string content = sound();
      std::fill_n(content.begin() + static_cast<std::ptrdiff_t>(page * kPage), kPage, byte);
      StoreKeys::set(path(folder.path()), key(1));
      expect_kept(content);
      StoreKeys::clear(path(folder.path()));
      store_as(content);
      EXPECT_FALSE(open());
      EXPECT_TRUE(stored() == content);
    }
  }
}

// Part of the first page is overwritten. The rest still shows that the file is encrypted.
TEST_F(DamagedFile, IsKeptWithDamageInSeveralPlacesOfTheFirstPage) {
  for (const std::size_t place : {0U, 8U, 16U, 24U, 100U, 1024U, 2048U, 4000U, 4064U, 4080U}) {
    for (const std::size_t length : {1U, 16U, 512U, 2048U, 3072U}) {
      SCOPED_TRACE(testing::Message() << length << " bytes at " << place);
      std::string content = sound();
      const std::size_t end = std::min(place + length, kPage);
      for (std::size_t i = place; i < end; ++i) content[i] = '\0';
      if (content != sound()) try_with_each_key(content);
    }
  }
}

TEST_F(DamagedFile, IsKeptWithPagesSwapped) {
  std::string content = sound();
  std::swap_ranges(content.begin() + kPage, content.begin() + 2 * kPage,
                   content.begin() + 2 * kPage);
  try_with_each_key(content);
}

TEST_F(DamagedFile, IsKeptIfItsFirstPageIsFromAnotherStore) {
  const TemporaryFolder other;
  const Files foreign = fill(other.path(), 2, kCount);
  StoreKeys::forget(path(other.path()));
  std::string content = sound();
  std::copy_n(foreign.at("corvan").begin(), kPage, content.begin());
  StoreKeys::set(path(folder.path()), key(1));
  store_as(content);
  expect_refused(folder.path(), KeyRefusal::kWrongKey);
}

TEST_F(DamagedFile, PlainFirstPageBeforeEncryptedPagesIsRefused) {
  const TemporaryFolder other;
  const Files foreign = fill_plain(other.path(), kCount);
  std::string content = sound();
  std::copy_n(foreign.at("corvan").begin(), kPage, content.begin());
  store_as(content);
  expect_refused(folder.path(), KeyRefusal::kNotEncrypted);
}

}  // namespace

}  // namespace corvan_test
