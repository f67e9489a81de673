// The fixture of the store's tests: an open store in a temporary folder.

#ifndef TESTS_SUPPORT_STORE_TEST_H_
#define TESTS_SUPPORT_STORE_TEST_H_

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"
#include "tests/support/clock.h"
#include "tests/support/encryption.h"
#include "tests/support/log_capture.h"
#include "tests/support/rows.h"
#include "tests/support/sqlite_ledger.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

// The arguments of the single save: a live received message, unless changed. Used as
// save(NewMessage().in("user2", Corvan::CV_PRIVATE).at(500).own(7)).
struct NewMessage {
  std::string session_id = "room";
  Corvan::SessionType session_type = Corvan::CV_GROUP;
  std::string object_name = "CV:TxtMsg";
  std::string sender = "u01";
  std::string content = "hello";
  bool is_receive = true;
  int32_t sent_status = 0;
  int32_t read_status = 0;
  bool is_mention = false;
  int64_t sent_time = 100;
  int64_t client_uid = 0;
  std::string server_uid;
  bool history = false;
  bool insert_only = false;
  bool is_count = true;

  NewMessage& in(const std::string& id, Corvan::SessionType type) {
    session_id = id;
    session_type = type;
    return *this;
  }
  NewMessage& at(int64_t time) {
    sent_time = time;
    return *this;
  }
  // Written by the signed-in user, not counted as unread.
  NewMessage& own(int64_t uid = 0) {
    is_receive = false;
    is_count = false;
    sender = "me";
    client_uid = uid;
    return *this;
  }
  NewMessage& from(const std::string& user) {
    sender = user;
    return *this;
  }
  NewMessage& kind(const std::string& name) {
    object_name = name;
    return *this;
  }
  NewMessage& text(const std::string& body) {
    content = body;
    return *this;
  }
  NewMessage& named(const std::string& uid) {
    server_uid = uid;
    return *this;
  }
  NewMessage& client(int64_t uid) {
    client_uid = uid;
    return *this;
  }
  NewMessage& status(int32_t value) {
    sent_status = value;
    return *this;
  }
  NewMessage& mention() {
    is_mention = true;
    return *this;
  }
  NewMessage& uncounted() {
    is_count = false;
    return *this;
  }
  NewMessage& fetched() {
    history = true;
    return *this;
  }
  NewMessage& inserted_only() {
    insert_only = true;
    return *this;
  }
};

int64_t save(Corvan::CvDbSingleton& store, const NewMessage& message);

// Whether secure deletion is switched on by default: in this SQLite library or, if the stores are
// encrypted, by its cipher. Call it after main() has begun: SQLite must not be used before.
bool deletes_securely();

// Opens the store for "me" in a temporary folder, sets the clock to 1000000 and captures warnings
// and errors in `log`. After each test, checks that no statement and no transaction is open.
class StoreTest : public testing::Test {
 protected:
  StoreTest();
  ~StoreTest() override;
  void SetUp() override;
  void TearDown() override;

  Corvan::CvDbSingleton& store() { return *Corvan::CvDbSingleton::get_instance(); }
  bool open(const std::string& user = "me");

  // Whether the stores are encrypted. If so, checks that neither opening takes the file, which must
  // be damaged where the opening looks, and that the file and its log are kept. open_db() must
  // return `code`.
  bool is_refused(int code);

  int64_t save(const NewMessage& message);

  // Reads committed rows of the store's file, or changes it, without the store.
  std::string file() const { return folder.file("corvan"); }
  Rows rows(const std::string& sql) const { return corvan_test::rows(file(), sql); }
  void plant(const std::string& sql) const { corvan_test::plant(file(), sql); }

  // Adds a row to t_session without the store, with these times and ids.
  void plant_session(const std::string& id, int32_t type, int64_t time, int64_t latest_id,
                     int32_t unread = 0, int32_t mention = 0) const;

  TemporaryFolder folder;
  LogCapture log{cvrtc::LS_WARNING};
};

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_STORE_TEST_H_
