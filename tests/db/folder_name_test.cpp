// Stores in folders whose names have characters that few code pages have. On Windows, db_test has a
// manifest that declares UTF-8 as its code page, and code_page_test has none.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>

#include "tests/support/code_page.h"
#include "tests/support/encryption.h"
#include "tests/support/failures.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;

class FolderName : public StoreTest, public testing::WithParamInterface<const char*> {
 protected:
  ~FolderName() override {
    if (encryption != nullptr) encryption->take_key(place_);
  }

  void SetUp() override {
    StoreTest::SetUp();
    store().close_db();
    std::filesystem::create_directory(std::filesystem::u8path(place_));
    if (encryption != nullptr) encryption->give_key(place_);
    ASSERT_TRUE(open_there());
    ASSERT_EQ(log.take(), Rows{});
  }

  bool open_there() { return store().init_open_db(cvrtc::Pathname(place_), "", "me"); }
  Rows rows_there(const std::string& sql) const { return corvan_test::rows(there_, sql); }

  // Opens the store, which finds the file damaged and closes itself.
  void expect_damage_met() {
    EXPECT_TRUE(open_there());
    EXPECT_EQ(log.take(), Rows{kNotADatabase});
    EXPECT_EQ(store_connection(), nullptr);
    EXPECT_EQ(save(NewMessage()), -1);
    EXPECT_EQ(log.take(), Rows{});
  }

  const std::string kDamaged = std::string(8192, 'x');
  const std::string kNotADatabase = prepare_failed(sqlite3_errstr(SQLITE_NOTADB), SQLITE_NOTADB);

  std::string place_ = folder.file(GetParam()) + "/";
  std::string there_ = place_ + "corvan";
};

INSTANTIATE_TEST_SUITE_P(Names, FolderName,
                         testing::Values("\u804a\u5929\u8bb0\u5f55", "\u4e2d\u6587 (\u6d88\u606f)",
                                         "\u00e9t\u00e9", "\u043f\u043e\u0447\u0442\u0430",
                                         "\U0001F600"),
                         [](const auto& each) { return std::to_string(each.index); });

TEST_P(FolderName, StoreIsCreatedThere) {
  EXPECT_TRUE(file_exists(there_));
  EXPECT_TRUE(CvDbSingleton::is_file_exist(cvrtc::Pathname(there_)));
  EXPECT_FALSE(CvDbSingleton::is_file_exist(cvrtc::Pathname(place_)));
  EXPECT_FALSE(CvDbSingleton::is_file_exist(cvrtc::Pathname(place_ + "corvan.db")));
  EXPECT_EQ(rows_there("pragma user_version"), Rows{"1"});
}

TEST_P(FolderName, StoreIsReopenedWithItsRows) {
  EXPECT_EQ(save(NewMessage().text(GetParam())), 1);
  store().close_db();
  ASSERT_TRUE(open_there());
  EXPECT_EQ(rows_there("select content from t_message"), Rows{GetParam()});
  EXPECT_EQ(log.take(), Rows{});
}

TEST_P(FolderName, OpeningTheOpenStoreAgainKeepsItsConnection) {
  sqlite3* const before = store_connection();
  EXPECT_TRUE(open_there());
  EXPECT_EQ(store_connection(), before);
}

TEST_P(FolderName, OlderStoreThereIsCopied) {
  const std::string old = place_ + "old";
  corvan_test::plant(old, "create table t_sync(user_id,receive_time,sent_time)");
  corvan_test::plant(old, "insert into t_sync values('me',7,8)");
  ASSERT_EQ(store().execute_none_query("attach '" + old + "' as odb"), SQLITE_DONE);
  store().createdb_copydata();
  EXPECT_EQ(rows_there("select * from t_sync"), Rows{"me|7|8"});
  log.take();  // the old store lacks the other tables
}

TEST_P(FolderName, DamagedStoreIsDeletedOnlyIfTheCLibraryTakesUtf8) {
  SKIP_IF_ENCRYPTED("damaged files are refused");
  store().close_db();
  write_file(there_, kDamaged);
  if (!c_library_takes_utf8()) {
    expect_damage_met();
    EXPECT_EQ(read_file(there_), kDamaged);
    expect_damage_met();  // by every opening, until something else deletes the file
    EXPECT_EQ(read_file(there_), kDamaged);
    std::filesystem::remove(std::filesystem::u8path(there_));
  } else {
    expect_damage_met();
    EXPECT_FALSE(file_exists(there_));
  }
  EXPECT_TRUE(open_there());
  EXPECT_EQ(save(NewMessage()), 1);
  EXPECT_EQ(rows_there("select content from t_message"), Rows{"hello"});
  EXPECT_EQ(log.take(), Rows{});
}

}  // namespace
}  // namespace corvan_test
