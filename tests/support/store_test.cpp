#include "tests/support/store_test.h"

namespace corvan_test {

int64_t save(Corvan::CvDbSingleton& store, const NewMessage& m) {
  return store.save_message(m.session_id, m.session_type, m.object_name, m.sender, m.content,
                            m.is_receive, m.sent_status, m.read_status, m.is_mention, m.sent_time,
                            m.client_uid, m.server_uid, m.history, m.insert_only, m.is_count);
}

bool deletes_securely() {
  static const bool answer = [] {
    const TemporaryFolder folder;
    const std::string store = stores_are_encrypted() ? folder.file("corvan") : ":memory:";
    return corvan_test::rows(store, "pragma secure_delete") != Rows{"0"};
  }();
  return answer;
}

StoreTest::StoreTest() = default;

StoreTest::~StoreTest() {
  Corvan::CvDbSingleton::delete_instance();
}

void StoreTest::SetUp() {
  set_clock(1000000);
  ASSERT_TRUE(open());
  ASSERT_EQ(log.take(), Rows{});
  take_ledger();
}

void StoreTest::TearDown() {
  EXPECT_EQ(open_statements(), 0);
  EXPECT_FALSE(in_transaction());
}

bool StoreTest::open(const std::string& user) {
  return store().init_open_db(cvrtc::Pathname(folder.path()), "", user);
}

bool StoreTest::is_refused(int code) {
  if (!stores_are_encrypted()) return false;
  store().close_db();
  const auto both_files = [this] {
    const std::string log_file = folder.file("corvan-wal");
    return read_file(file()) + (file_exists(log_file) ? read_file(log_file) : "");
  };
  const std::string before = both_files();
  EXPECT_EQ(store().open_db(), code);
  EXPECT_FALSE(open());
  EXPECT_EQ(store_connection(), nullptr);
  EXPECT_EQ(log.take().size(), 2U);  // one line for each opening
  EXPECT_TRUE(both_files() == before);
  return true;
}

int64_t StoreTest::save(const NewMessage& message) {
  return corvan_test::save(store(), message);
}

void StoreTest::plant_session(const std::string& id, int32_t type, int64_t time, int64_t latest_id,
                              int32_t unread, int32_t mention) const {
  plant(
      "insert into t_session(session_id,session_type,session_time,latest_id,unread_count,"
      "mention_count) values('" +
      id + "'," + std::to_string(type) + "," + std::to_string(time) + "," +
      std::to_string(latest_id) + "," + std::to_string(unread) + "," + std::to_string(mention) +
      ")");
}

}  // namespace corvan_test
