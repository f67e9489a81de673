// What the store promises about its file holds with a key, too.

#include <sqlite3.h>

#include "tests/addons/encryption/keys_fixture.h"

namespace corvan_test {

namespace {

class KeyedContract : public Keys {
 protected:
  void SetUp() override { CORVAN_NEED_CIPHER(); }

  static std::vector<std::string> settings() {
    std::vector<std::string> values;
    for (const char* const name :
         {"user_version", "page_size", "secure_delete", "temp_store", "wal_autocheckpoint"}) {
      const std::string pragma = std::string("pragma ") + name;
      values.push_back(std::string(name) + " " + std::to_string(store().get_pragma(pragma)));
    }
    int32_t code = 0;
    sqlite3_stmt* const stmt = store().prepare_sql("pragma journal_mode", code);
    store().step(stmt, false);
    values.push_back(Corvan::CvDbSingleton::get_text(stmt, 0));
    store().finalize(stmt);
    return values;
  }
};

TEST_F(KeyedContract, SettingsAreThoseOfPlainStore) {
  const std::vector<std::string> expected = {"user_version 1",          "page_size 4096",
                                             "secure_delete 1",         "temp_store 2",
                                             "wal_autocheckpoint 5000", "wal"};
  ASSERT_TRUE(open());
  EXPECT_EQ(settings(), expected);
  close();
  put_files(folder.path(), {});
  StoreKeys::set(path(folder.path()), key(1));
  ASSERT_TRUE(open());
  EXPECT_EQ(settings(), expected);
  ASSERT_TRUE(open());
  EXPECT_EQ(settings(), expected);
}

TEST_F(KeyedContract, RowsAndIdsAreThoseOfPlainStore) {
  const std::string query =
      "select * from t_message; select * from t_session; select * from t_sync; "
      "select * from sqlite_sequence";
  std::vector<std::vector<std::string>> rows;
  for (const bool is_keyed : {false, true}) {
    put_files(folder.path(), {});
    if (is_keyed) StoreKeys::set(path(folder.path()), key(1));
    ASSERT_TRUE(open());
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(save(i));
    store().set_sync_time(5000, true);
    EXPECT_EQ(store().get_pragma("select max(id) from t_message"), 20);
    std::string result;
    EXPECT_TRUE(store().check_integrity(result)) << result;
    close();
    rows.push_back(Connection(folder.file("corvan")).texts(query));
  }
  EXPECT_EQ(rows[0], rows[1]);
  EXPECT_FALSE(rows[0].empty());
}

TEST_F(KeyedContract, MessagesBeingSentAreMarkedFailedWhenOpened) {
  StoreKeys::set(path(folder.path()), key(1));
  ASSERT_TRUE(open());
  ASSERT_TRUE(save(0));
  store().execute_none_query("update t_message set sent_status=1");
  ASSERT_TRUE(open());
  EXPECT_EQ(store().get_pragma("select sent_status from t_message"), 2);
}

// Statements that need room beside the file: sorting, a statement's own journal, compacting.
TEST_F(KeyedContract, TemporaryFilesHoldNoPlaintext) {
  StoreKeys::set(path(folder.path()), key(1));
  ASSERT_TRUE(open());
  store().start_transaction();
  for (int i = 0; i < 1500; ++i) ASSERT_TRUE(save(i));
  ASSERT_TRUE(store().commit_transaction());
  const auto search = [](void* found) {
    *static_cast<std::string*>(found) += plaintext_elsewhere();
    return 0;
  };
  int32_t code = 0;
  sqlite3_stmt* const stmt = store().prepare_sql("select 1", code);
  sqlite3* const db = sqlite3_db_handle(stmt);
  store().finalize(stmt);
  store().execute_none_query("pragma cache_size=10");
  std::string found;
  sqlite3_progress_handler(db, 200000, search, &found);
  for (const char* const sql :
       {"begin", "update t_message set content=content||sender,server_uid=server_uid||'x'",
        "insert into t_session(session_id,session_type) select content,id from t_message",
        "select content from t_message order by content||sender desc",
        "create index by_content on t_message(content,sender)", "commit", "vacuum"}) {
    EXPECT_GE(store().execute_none_query(sql), 100) << sql;
    found += plaintext_elsewhere();
  }
  sqlite3_progress_handler(db, 0, nullptr, nullptr);
  EXPECT_EQ(found, "");
  close();
  expect_no_plaintext();
}

}  // namespace

}  // namespace corvan_test
