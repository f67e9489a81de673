// Two users with keys of their own in one process.

#include <atomic>
#include <filesystem>
#include <thread>

#include "tests/addons/encryption/keys_fixture.h"
#include "tests/support/bounds.h"

namespace corvan_test {

namespace {

class TwoUsers : public Keys {
 protected:
  void SetUp() override {
    CORVAN_NEED_CIPHER();
    std::filesystem::create_directory(folder.path() + "first");
    std::filesystem::create_directory(folder.path() + "second");
    fill(first(), 1, 5);
    fill(second(), 2, 7);
  }
  ~TwoUsers() override {
    close();
    StoreKeys::forget(path(first()));
    StoreKeys::forget(path(second()));
  }

  std::string first() const { return folder.path() + "first/"; }
  std::string second() const { return folder.path() + "second/"; }

  static std::size_t count(const std::string& place) {
    const Connection connection(place + "corvan");
    return connection.texts("select content from t_message").size();
  }
};

TEST_F(TwoUsers, OneAfterTheOther) {
  for (int round = 0; round < 3; ++round) {
    ASSERT_TRUE(open(first(), "first"));
    EXPECT_EQ(messages(), expected_messages(5));
    ASSERT_TRUE(open(second(), "second"));
    EXPECT_EQ(messages(), expected_messages(7));
  }
  EXPECT_EQ(log.take(), std::vector<std::string>{});
  expect_no_plaintext();
}

TEST_F(TwoUsers, AtTheSameTimeInTwoConnections) {
  ASSERT_TRUE(open(first(), "first"));
  EXPECT_EQ(count(second()), 7U);
  EXPECT_EQ(count(first()), 5U);
  const Connection other(second() + "corvan");
  ASSERT_TRUE(save(5));
  EXPECT_EQ(other.texts("select count(*) from t_message"), std::vector<std::string>{"7"});
  EXPECT_EQ(count(first()), 6U);
  expect_no_plaintext();
}

TEST_F(TwoUsers, KeysAreNotExchangeable) {
  const Files files_of_first = files_in(first());
  const Files files_of_second = files_in(second());
  StoreKeys::set(path(first()), key(2));
  StoreKeys::set(path(second()), key(1));
  expect_refused(first(), KeyRefusal::kWrongKey);
  expect_refused(second(), KeyRefusal::kWrongKey);
  EXPECT_TRUE(files_in(first()) == files_of_first);
  EXPECT_TRUE(files_in(second()) == files_of_second);
  expect_messages(first(), 1, 5);
  expect_messages(second(), 2, 7);
}

// Signing out closes the store and clears the key. The other user's key stays.
TEST_F(TwoUsers, ChangeUserWithClearedKey) {
  ASSERT_TRUE(open(first(), "first"));
  close();
  StoreKeys::clear(path(first()));
  ASSERT_TRUE(open(second(), "second"));
  EXPECT_EQ(messages(), expected_messages(7));
  expect_refused(first(), KeyRefusal::kNoKey);
  StoreKeys::clear(path(second()));
  expect_refused(second(), KeyRefusal::kNoKey);
  expect_messages(first(), 1, 5);
  expect_messages(second(), 2, 7);
}

TEST_F(TwoUsers, ForgottenFolderDoesNotAffectTheOther) {
  StoreKeys::forget(path(first()));
  ASSERT_TRUE(open(second(), "second"));
  EXPECT_EQ(messages(), expected_messages(7));
}

// Readers of both stores, while a thread keeps setting the keys again and another one clears and
// sets the key of a third folder.
TEST_F(TwoUsers, FromSeveralThreads) {
  const auto rounds = static_cast<int>(bound("CORVAN_KEYS_ROUNDS", 30, 500));
  std::vector<std::thread> threads;
  std::atomic<int> wrong{0};
  const StoreKey keys[] = {key(1), key(2), key(3)};
  for (const bool is_first : {true, false}) {
    threads.emplace_back([this, rounds, is_first, &wrong] {
      for (int i = 0; i < rounds; ++i) {
        const std::size_t found = count(is_first ? first() : second());
        if (found != (is_first ? 5U : 7U)) ++wrong;
        if (StoreKeys::last_refusal() != KeyRefusal::kNone) ++wrong;
      }
    });
  }
  threads.emplace_back([this, rounds, &keys] {
    for (int i = 0; i < rounds; ++i) {
      StoreKeys::set(path(first()), keys[0]);
      StoreKeys::set(path(second()), keys[1]);
      StoreKeys::expect(path(first()));
    }
  });
  threads.emplace_back([this, rounds, &keys] {
    for (int i = 0; i < rounds; ++i) {
      StoreKeys::set(path(folder.path() + "third/"), keys[2]);
      StoreKeys::clear(path(folder.path() + "third/"));
      StoreKeys::forget(path(folder.path() + "third/"));
    }
  });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  expect_no_plaintext();
}

// The wrong key of one thread does no harm to the store that others have open.
TEST_F(TwoUsers, WrongKeyBesideOpenStore) {
  ASSERT_TRUE(open(first(), "first"));
  ASSERT_TRUE(save(5));
  StoreKeys::set(path(first()), key(2));
  for (int i = 0; i < 3; ++i) {
    const Connection connection(first() + "corvan");
    EXPECT_NE(connection.code(), 0);
    EXPECT_EQ(StoreKeys::last_refusal(), KeyRefusal::kWrongKey);
  }
  ASSERT_TRUE(save(6));
  EXPECT_EQ(messages(), expected_messages(7));
  close();
  expect_messages(first(), 1, 7);
}

}  // namespace

}  // namespace corvan_test
