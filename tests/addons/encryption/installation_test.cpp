// When the library looks at connections: once installed, again after SQLite forgot it, and never
// in between.

#include <sqlite3.h>

#include <thread>

#include "tests/addons/encryption/keys_fixture.h"

namespace corvan_test {

namespace {

class Installation : public Keys {
 protected:
  void SetUp() override { CORVAN_NEED_CIPHER(); }

  ~Installation() override { StoreKeys::install(); }
};

TEST_F(Installation, MayBeRepeated) {
  fill(folder.path(), 1, 3);
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(StoreKeys::install());
  StoreKeys::clear(path(folder.path()));
  expect_refused(folder.path(), KeyRefusal::kNoKey);  // with one line in the log
  expect_messages(folder.path(), 1, 3);
}

TEST_F(Installation, IsRestoredAfterReset) {
  fill(folder.path(), 1, 3);
  sqlite3_reset_auto_extension();
  EXPECT_TRUE(StoreKeys::install());
  EXPECT_TRUE(open());  // the keys are still known
  close();
  sqlite3_reset_auto_extension();
  EXPECT_TRUE(StoreKeys::expect(path(folder.path())));
  expect_messages(folder.path(), 1, 3);
}

TEST_F(Installation, IsRestoredByTheNextKey) {
  fill(folder.path(), 1, 3);
  sqlite3_reset_auto_extension();
  expect_messages(folder.path(), 1, 3);
}

TEST_F(Installation, IsRestoredAfterShutdown) {
  fill(folder.path(), 1, 3);
  ASSERT_EQ(sqlite3_shutdown(), SQLITE_OK);
  EXPECT_TRUE(StoreKeys::install());
  StoreKeys::clear(path(folder.path()));
  expect_refused(folder.path(), KeyRefusal::kNoKey);
  expect_messages(folder.path(), 1, 3);
}

TEST_F(Installation, WorksFromSeveralThreads) {
  fill(folder.path(), 1, 3);
  sqlite3_reset_auto_extension();
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([this] {
      for (int round = 0; round < 20; ++round) {
        EXPECT_TRUE(StoreKeys::install());
        const Connection connection(folder.file("corvan"));
        EXPECT_EQ(connection.texts("select count(*) from t_message"),
                  std::vector<std::string>{"3"});
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(Installation, KnowsTheCipherWithoutBeingInstalled) {
  sqlite3_reset_auto_extension();
  EXPECT_TRUE(StoreKeys::has_cipher());
}

}  // namespace

}  // namespace corvan_test
