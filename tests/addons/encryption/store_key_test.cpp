// Which keys are valid, and that the bytes from which they are made are overwritten.

#include <algorithm>

#include "tests/addons/encryption/keys_fixture.h"

namespace corvan_test {

namespace {

TEST(StoreKey, IsInvalidUnlessMadeFromSomething) {
  EXPECT_FALSE(StoreKey().is_valid());
}

TEST(StoreKey, TakesAnyBytesAndWipesThem) {
  for (const int byte : {0, 1, 0x27, 0xff}) {
    StoreKey::Bytes bytes{};
    bytes.fill(static_cast<unsigned char>(byte));
    EXPECT_TRUE(StoreKey(bytes).is_valid());
    EXPECT_EQ(bytes, StoreKey::Bytes{});
  }
}

// Not for the empty text.
bool is_wiped(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return c == '\0'; });
}

TEST(StoreKey, TakesPassphraseAndWipesIt) {
  for (const char* const text :
       {"a", "with 'quotes\" and -- ;",
        "Gr\xC3\xBC\xC3\x9F"
        "e",
        "\xF0\x9F\x94\x91", "x", "raw", "RAW:", "x\"", "0123456789abcdef"}) {
    std::string passphrase = text;
    const std::size_t size = passphrase.size();
    EXPECT_TRUE(StoreKey::from_passphrase(passphrase).is_valid()) << text;
    EXPECT_EQ(passphrase.size(), size);
    EXPECT_TRUE(is_wiped(passphrase)) << text;
  }
}

TEST(StoreKey, RefusesPassphraseThatCiphersTakeForBytes) {
  for (const std::string& text :
       {std::string(), std::string("raw:"), std::string("raw:00"), std::string("x'"),
        std::string("X'00'"), std::string("a\0b", 3), std::string(1025, 'a')}) {
    std::string passphrase = text;
    EXPECT_FALSE(StoreKey::from_passphrase(passphrase).is_valid()) << text;
    EXPECT_TRUE(is_wiped(passphrase)) << text;
  }
}

TEST(StoreKey, TakesLongestPassphraseOfQuotationMarks) {
  std::string text(StoreKey::kLongestPassphrase, '\'');
  EXPECT_TRUE(StoreKey::from_passphrase(text).is_valid());
}

class KeyForms : public Keys {
 protected:
  void SetUp() override { CORVAN_NEED_CIPHER(); }

  bool opens_with(const StoreKey& store_key) const {
    StoreKeys::set(path(folder.path()), store_key);
    const bool opened = open();
    close();
    return opened;
  }
};

TEST_F(KeyForms, PassphrasesDifferInEachCharacter) {
  const std::string composed = "Gr\xC3\xBC\xC3\x9F";
  const std::string decomposed = "Gru\xCC\x88\xC3\x9F";
  const std::string longest(StoreKey::kLongestPassphrase, '\'');
  const std::vector<std::string> texts = {
      "'", "''", "\"", "a'b", "a''b", composed, decomposed, longest, longest.substr(1)};
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const std::string& next = texts[(i + 1) % texts.size()];
    put_files(folder.path(), {});
    ASSERT_TRUE(opens_with(passphrase(texts[i]))) << texts[i];
    EXPECT_TRUE(opens_with(passphrase(texts[i]))) << texts[i];
    EXPECT_FALSE(opens_with(passphrase(next))) << texts[i] << " / " << next;
  }
}

// 64 hexadecimal digits, also in the notation of a literal, are not the 32 bytes.
TEST_F(KeyForms, PassphraseOfHexDigitsIsNoRawKey) {
  std::string hex;
  for (const unsigned char byte : key_bytes(1)) {
    hex += "0123456789abcdef"[byte >> 4U];
    hex += "0123456789abcdef"[byte & 15U];
  }
  fill(folder.path(), 1, 1);
  EXPECT_FALSE(opens_with(passphrase(hex)));
  EXPECT_FALSE(passphrase("x'" + hex + "'").is_valid());
  EXPECT_FALSE(opens_with(passphrase("0x" + hex)));
  EXPECT_FALSE(opens_with(passphrase(" x'" + hex + "'")));
  EXPECT_TRUE(opens_with(key(1)));
}

TEST_F(KeyForms, CopiesShareTheKey) {
  StoreKey first = key(1);
  StoreKey second = first;
  first = StoreKey();
  EXPECT_FALSE(first.is_valid());
  fill(folder.path(), 1, 1);
  EXPECT_TRUE(opens_with(second));
  StoreKey third = std::move(second);
  EXPECT_TRUE(opens_with(third));
}

TEST_F(KeyForms, InvalidKeyIsNotSet) {
  fill(folder.path(), 1, 1);
  log.take();
  EXPECT_FALSE(StoreKeys::set(path(folder.path()), StoreKey()));
  EXPECT_EQ(log.take().size(), 1U);
  EXPECT_TRUE(open());
  close();
  EXPECT_FALSE(StoreKeys::set(cvrtc::Pathname(), key(1)));
  EXPECT_FALSE(StoreKeys::expect(cvrtc::Pathname("corvan")));
  EXPECT_EQ(log.take().size(), 2U);
}

TEST_F(KeyForms, UnlockRefusesInvalidKey) {
  fill(folder.path(), 1, 1);
  const Files files = files_in(folder.path());
  const TemporaryFolder copy;
  write_file(copy.file("copy"), files.at("corvan"));
  {
    const Connection connection(copy.file("copy"));
    EXPECT_EQ(StoreKeys::unlock(connection.get(), StoreKey()), KeyRefusal::kNoKey);
  }
  {
    const Connection connection(copy.file("copy"));
    EXPECT_EQ(StoreKeys::unlock(connection.get(), key(2)), KeyRefusal::kWrongKey);
  }
  const Connection connection(copy.file("copy"));
  EXPECT_EQ(StoreKeys::unlock(connection.get(), key(1)), KeyRefusal::kNone);
  EXPECT_EQ(connection.texts("select count(*) from t_message"), std::vector<std::string>{"1"});
}

}  // namespace

}  // namespace corvan_test
