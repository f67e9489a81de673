// The fixture of the tests of encryption at rest: an empty folder, keys, and the store.

#ifndef TESTS_ADDONS_ENCRYPTION_KEYS_FIXTURE_H_
#define TESTS_ADDONS_ENCRYPTION_KEYS_FIXTURE_H_

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "addons/encryption/store_keys.h"
#include "db/cv_db_singleton.h"
#include "tests/addons/encryption/disk_search.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_folder.h"

struct sqlite3;

namespace corvan_test {

using Corvan::KeyRefusal;
using Corvan::StoreKey;
using Corvan::StoreKeys;

// The cipher of the SQLite that the program is linked with.
enum class Cipher { kNone, kMultiple, kSqlcipher };
Cipher cipher();

// The bytes of a key, the same for each call with the same number, and the key.
StoreKey::Bytes key_bytes(unsigned number);
StoreKey key(unsigned number);
StoreKey passphrase(std::string text);

// Whether a text contains eight digits in a row of one of the keys that key() has made.
bool contains_key(const std::string& text);

// A connection that is closed at the end. `code` is the result of opening it.
class Connection {
 public:
  explicit Connection(const std::string& file, int flags = 0);
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection();

  int code() const { return code_; }
  sqlite3* get() const { return db_; }
  std::string error() const;
  // Runs statements and returns SQLite's result code.
  int run(const std::string& sql) const;
  // The first column of each row. Empty if the statement fails.
  std::vector<std::string> texts(const std::string& sql) const;

 private:
  sqlite3* db_ = nullptr;
  int code_;
};

// Skips a test that needs a cipher.
#define CORVAN_NEED_CIPHER() \
  if (cipher() == Cipher::kNone) GTEST_SKIP() << "this SQLite has no cipher"

class Keys : public testing::Test {
 protected:
  Keys();
  ~Keys() override;

  static Corvan::CvDbSingleton& store() { return *Corvan::CvDbSingleton::get_instance(); }
  static cvrtc::Pathname path(const std::string& place) { return cvrtc::Pathname(place); }

  // Opens the store in the folder; a store that is open is closed first.
  static bool open(const std::string& place, const std::string& user = "me");
  bool open() const { return open(folder.path()); }
  static void close() { store().close_db(); }

  // Saves a message with the planted word in its text, sender and conversation.
  static bool save(int number);
  // The text of the message with this number.
  static std::string text(int number);
  // The texts of all messages of the open store.
  static std::vector<std::string> messages();
  static std::vector<std::string> expected_messages(int count);

  // Creates a store with these messages, closes it, and returns its files.
  static Files fill(const std::string& place, unsigned key_number, int count);
  // The same without a key.
  static Files fill_plain(const std::string& place, int count);

  // Opens the folder, which must be refused for this reason, with one line in the log, and nothing
  // changed on the disk.
  void expect_refused(const std::string& place, KeyRefusal reason);
  // Opens the folder with the key, and compares the messages. Then closes the store.
  static void expect_messages(const std::string& place, unsigned key_number, int count);
  static void expect_messages(const std::string& place, unsigned key_number,
                              const std::vector<std::string>& expected);
  void expect_no_plaintext() const;

  TemporaryFolder folder;
  LogCapture log{cvrtc::LS_WARNING};
};

}  // namespace corvan_test

#endif  // TESTS_ADDONS_ENCRYPTION_KEYS_FIXTURE_H_
