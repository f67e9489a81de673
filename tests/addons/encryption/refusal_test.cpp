// A store with messages that is opened with a wrong key, or with none: it is refused, and its files
// stay as they are.

#include "tests/addons/encryption/keys_fixture.h"

namespace corvan_test {

namespace {

class KeyRefusals : public Keys {
 protected:
  static constexpr int kCount = 40;

  void SetUp() override {
    CORVAN_NEED_CIPHER();
    files = fill(folder.path(), 1, kCount);
    expect_no_plaintext();
  }
  // Refused, and afterwards complete.
  void expect_harmless(KeyRefusal reason) {
    expect_refused(folder.path(), reason);
    EXPECT_TRUE(files_in(folder.path()) == files);
    expect_messages(folder.path(), 1, kCount);
    expect_no_plaintext();
  }

  Files files;
};

TEST_F(KeyRefusals, WrongKey) {
  StoreKeys::set(path(folder.path()), key(2));
  expect_harmless(KeyRefusal::kWrongKey);
}

TEST_F(KeyRefusals, WrongKeyAgainAndAgain) {
  StoreKeys::set(path(folder.path()), key(2));
  for (int i = 0; i < 3; ++i) expect_refused(folder.path(), KeyRefusal::kWrongKey);
  expect_harmless(KeyRefusal::kWrongKey);
}

TEST_F(KeyRefusals, PassphraseInsteadOfKey) {
  StoreKeys::set(path(folder.path()), passphrase("open sesame"));
  expect_harmless(KeyRefusal::kWrongKey);
}

TEST_F(KeyRefusals, KeyNeverSet) {
  StoreKeys::forget(path(folder.path()));
  expect_harmless(KeyRefusal::kNoKey);
}

TEST_F(KeyRefusals, KeyCleared) {
  StoreKeys::clear(path(folder.path()));
  expect_harmless(KeyRefusal::kNoKey);
}

TEST_F(KeyRefusals, KeyClearedAndForgotten) {
  StoreKeys::clear(path(folder.path()));
  StoreKeys::forget(path(folder.path()));
  expect_harmless(KeyRefusal::kNoKey);
}

TEST_F(KeyRefusals, KeyOnlyExpected) {
  StoreKeys::forget(path(folder.path()));
  StoreKeys::expect(path(folder.path()));
  expect_harmless(KeyRefusal::kNoKey);
}

TEST_F(KeyRefusals, ExpectationKeepsTheKey) {
  StoreKeys::expect(path(folder.path()));
  EXPECT_TRUE(open());
  EXPECT_EQ(messages(), expected_messages(kCount));
}

TEST_F(KeyRefusals, EachReasonAfterEachOther) {
  const auto apply = [this](int state) {
    StoreKeys::forget(path(folder.path()));
    if (state == 1) StoreKeys::set(path(folder.path()), key(2));
    if (state == 2) StoreKeys::expect(path(folder.path()));
    return state == 1 ? KeyRefusal::kWrongKey : KeyRefusal::kNoKey;
  };
  for (int first = 0; first < 3; ++first) {
    for (int second = 0; second < 3; ++second) {
      expect_refused(folder.path(), apply(first));
      expect_refused(folder.path(), apply(second));
    }
  }
  expect_messages(folder.path(), 1, kCount);
}

TEST_F(KeyRefusals, LastRefusalEndsWithTheNextOpening) {
  StoreKeys::clear(path(folder.path()));
  expect_refused(folder.path(), KeyRefusal::kNoKey);
  expect_messages(folder.path(), 1, kCount);
  EXPECT_EQ(StoreKeys::last_refusal(), KeyRefusal::kNone);
}

TEST_F(KeyRefusals, OpenStoreKeepsItsKey) {
  ASSERT_TRUE(open());
  StoreKeys::set(path(folder.path()), key(2));
  EXPECT_TRUE(save(kCount));
  StoreKeys::clear(path(folder.path()));
  EXPECT_TRUE(save(kCount + 1));
  StoreKeys::forget(path(folder.path()));
  EXPECT_TRUE(save(kCount + 2));
  // The same user again: the store only looks whether it is open.
  EXPECT_TRUE(store().init_open_db(path(folder.path()), "", "me"));
  close();
  expect_no_plaintext();
  expect_messages(folder.path(), 1, kCount + 3);
}

class KeyOnPlainStore : public Keys {
 protected:
  static constexpr int kCount = 40;

  void SetUp() override {
    CORVAN_NEED_CIPHER();
    files = fill_plain(folder.path(), kCount);
  }
  void expect_harmless(KeyRefusal reason) {
    expect_refused(folder.path(), reason);
    EXPECT_TRUE(files_in(folder.path()) == files);
    StoreKeys::forget(path(folder.path()));
    EXPECT_TRUE(open());
    EXPECT_EQ(messages(), expected_messages(kCount));
  }

  Files files;
};

TEST_F(KeyOnPlainStore, IsRefused) {
  StoreKeys::set(path(folder.path()), key(1));
  expect_harmless(KeyRefusal::kNotEncrypted);
}

TEST_F(KeyOnPlainStore, ExpectationIsRefused) {
  StoreKeys::expect(path(folder.path()));
  expect_harmless(KeyRefusal::kNoKey);
}

TEST_F(KeyOnPlainStore, ClearedKeyIsRefused) {
  StoreKeys::set(path(folder.path()), key(1));
  StoreKeys::clear(path(folder.path()));
  expect_harmless(KeyRefusal::kNoKey);
}

TEST_F(KeyOnPlainStore, KeyForOpenStoreIsTooLate) {
  ASSERT_TRUE(open());
  StoreKeys::set(path(folder.path()), key(1));
  EXPECT_TRUE(save(kCount));
  EXPECT_EQ(messages(), expected_messages(kCount + 1));
  expect_refused(folder.path(), KeyRefusal::kNotEncrypted);
  StoreKeys::forget(path(folder.path()));
  EXPECT_TRUE(open());
  EXPECT_EQ(messages(), expected_messages(kCount + 1));
}

class KeyOfNewStore : public Keys {
 protected:
  void SetUp() override { CORVAN_NEED_CIPHER(); }
};

TEST_F(KeyOfNewStore, CreatesEncryptedFile) {
  fill(folder.path(), 1, 3);
  expect_no_plaintext();
  const Files files = files_in(folder.path());
  ASSERT_EQ(files.count("corvan"), 1U);
  const std::string& file = files.at("corvan");
  EXPECT_EQ(file.find("SQLite format"), std::string::npos);
  EXPECT_EQ(file.find("t_message"), std::string::npos);
  EXPECT_EQ(file.size() % 4096, 0U);
}

// A missing file is at most created empty, and can be opened when the key is there.
TEST_F(KeyOfNewStore, ExpectationWritesNothing) {
  StoreKeys::expect(path(folder.path()));
  EXPECT_FALSE(open());
  EXPECT_EQ(StoreKeys::last_refusal(), KeyRefusal::kNoKey);
  for (const auto& [name, content] : files_in(folder.path())) EXPECT_EQ(content, "") << name;
  expect_refused(folder.path(), KeyRefusal::kNoKey);
  fill(folder.path(), 1, 3);
  expect_messages(folder.path(), 1, 3);
  expect_no_plaintext();
}

TEST_F(KeyOfNewStore, OpenStoreWithoutKeyStaysPlain) {
  ASSERT_TRUE(open());
  StoreKeys::set(path(folder.path()), key(1));
  EXPECT_TRUE(save(0));
  expect_refused(folder.path(), KeyRefusal::kNotEncrypted);
  StoreKeys::forget(path(folder.path()));
  EXPECT_TRUE(open());
  EXPECT_EQ(messages(), expected_messages(1));
}

TEST_F(KeyOfNewStore, PassphraseOpensAgain) {
  const std::string text = "Käfer's \"Schlüssel\"; drop table t_message; -- \xF0\x9F\x94\x91";
  StoreKeys::set(path(folder.path()), passphrase(text));
  ASSERT_TRUE(open());
  EXPECT_TRUE(save(0));
  close();
  expect_no_plaintext();
  StoreKeys::set(path(folder.path()), passphrase(text + " "));
  expect_refused(folder.path(), KeyRefusal::kWrongKey);
  StoreKeys::set(path(folder.path()), passphrase(text));
  ASSERT_TRUE(open());
  EXPECT_EQ(messages(), expected_messages(1));
}

}  // namespace

}  // namespace corvan_test
