#include "tests/addons/encryption/keys_fixture.h"

#include <sqlite3.h>

#include <algorithm>
#include <cstddef>
#include <set>

namespace corvan_test {

namespace {

// Enough for a message to fill several rows of a page, and for a store to have pages of each kind.
constexpr std::size_t kTextSize = 200;

std::string text_of(int number) {
  std::string text = planted_word() + " message " + std::to_string(number) + " ";
  return text + std::string(kTextSize - text.size(), '.');
}

std::set<std::string>& parts_of_keys() {
  static std::set<std::string> parts;
  return parts;
}

std::string in_hex(const StoreKey::Bytes& bytes) {
  std::string hex;
  for (const unsigned char byte : bytes) {
    hex += "0123456789abcdef"[byte >> 4U];
    hex += "0123456789abcdef"[byte & 15U];
  }
  return hex;
}

bool has_row(sqlite3* db, const char* pragma) {
  bool found = false;
  const auto note = [](void* result, int /*columns*/, char** /*values*/, char** /*names*/) {
    *static_cast<bool*>(result) = true;
    return 0;
  };
  sqlite3_exec(db, pragma, note, &found, nullptr);
  return found;
}

Cipher find_cipher() {
  const Connection connection(":memory:");
  if (has_row(connection.get(), "pragma cipher_version")) return Cipher::kSqlcipher;
  if (has_row(connection.get(), "pragma cipher")) return Cipher::kMultiple;
  return Cipher::kNone;
}

}  // namespace

Cipher cipher() {
  static const Cipher found = find_cipher();
  return found;
}

StoreKey::Bytes key_bytes(unsigned number) {
  StoreKey::Bytes bytes{};
  uint64_t state = 0x9e3779b97f4a7c15U * (number + 1);
  for (unsigned char& byte : bytes) {
    state = state * 6364136223846793005U + 1442695040888963407U;
    byte = static_cast<unsigned char>(state >> 56U);
  }
  return bytes;
}

StoreKey key(unsigned number) {
  StoreKey::Bytes bytes = key_bytes(number);
  const std::string hex = in_hex(bytes);
  for (std::size_t i = 0; i + 8 <= hex.size(); ++i) parts_of_keys().insert(hex.substr(i, 8));
  return StoreKey(bytes);
}

StoreKey passphrase(std::string text) {
  return StoreKey::from_passphrase(text);
}

bool contains_key(const std::string& text) {
  std::string lower = text;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c + 32) : c; });
  return std::any_of(
      parts_of_keys().begin(), parts_of_keys().end(),
      [&lower](const std::string& part) { return lower.find(part) != std::string::npos; });
}

Connection::Connection(const std::string& file, int flags)
    : code_(sqlite3_open_v2(file.c_str(), &db_,
                            flags != 0 ? flags : SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                            nullptr)) {}

Connection::~Connection() {
  sqlite3_close(db_);
}

std::string Connection::error() const {
  return sqlite3_errmsg(db_);
}

int Connection::run(const std::string& sql) const {
  return sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, nullptr);
}

std::vector<std::string> Connection::texts(const std::string& sql) const {
  std::vector<std::string> found;
  const auto take = [](void* result, int /*columns*/, char** values, char** /*names*/) {
    static_cast<std::vector<std::string>*>(result)->emplace_back(values[0] ? values[0] : "NULL");
    return 0;
  };
  if (sqlite3_exec(db_, sql.c_str(), take, &found, nullptr) != SQLITE_OK) return {};
  return found;
}

Keys::Keys() {
  EXPECT_TRUE(StoreKeys::install());
}

Keys::~Keys() {
  close();
  Corvan::CvDbSingleton::delete_instance();
  StoreKeys::forget(path(folder.path()));
}

bool Keys::open(const std::string& place, const std::string& user) {
  close();
  return store().init_open_db(path(place), "", user);
}

bool Keys::save(int number) {
  return store().save_message("s-" + planted_word(), Corvan::CV_PRIVATE, "CV:TxtMsg",
                              "u-" + planted_word(), text_of(number), true, 0, 0, false,
                              1000 + number, 0, "uid-" + std::to_string(number), false, false,
                              true) > 0;
}

std::string Keys::text(int number) {
  return text_of(number);
}

std::vector<std::string> Keys::messages() {
  std::vector<std::string> texts;
  int32_t code = 0;
  sqlite3_stmt* const stmt = store().prepare_sql("select content from t_message order by id", code);
  if (stmt == nullptr) return {"result code " + std::to_string(code)};
  while ((code = store().step(stmt, false)) == SQLITE_ROW) {
    texts.push_back(Corvan::CvDbSingleton::get_text(stmt, 0));
  }
  if (code != SQLITE_DONE) texts.push_back("result code " + std::to_string(code));
  store().finalize(stmt);
  return texts;
}

std::vector<std::string> Keys::expected_messages(int count) {
  std::vector<std::string> texts;
  for (int i = 0; i < count; ++i) texts.push_back(text_of(i));
  return texts;
}

Files Keys::fill(const std::string& place, unsigned key_number, int count) {
  EXPECT_TRUE(StoreKeys::set(path(place), key(key_number)));
  EXPECT_TRUE(open(place));
  for (int i = 0; i < count; ++i) EXPECT_TRUE(save(i));
  close();
  return files_in(place);
}

Files Keys::fill_plain(const std::string& place, int count) {
  StoreKeys::forget(path(place));
  EXPECT_TRUE(open(place));
  for (int i = 0; i < count; ++i) EXPECT_TRUE(save(i));
  close();
  return files_in(place);
}

void Keys::expect_refused(const std::string& place, KeyRefusal reason) {
  close();
  const Files before = files_in(place);
  log.take();
  EXPECT_FALSE(open(place));
  EXPECT_STREQ(to_text(StoreKeys::last_refusal()), to_text(reason));
  EXPECT_TRUE(files_in(place) == before) << "the files have changed";
  const std::vector<std::string> lines = log.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_NE(lines[0].find(to_text(reason)), std::string::npos) << lines[0];
  EXPECT_NE(lines[0].find("corvan: "), std::string::npos) << lines[0];
  EXPECT_FALSE(contains_key(lines[0])) << lines[0];
  EXPECT_EQ(lines[0].find(planted_word()), std::string::npos) << lines[0];
}

void Keys::expect_messages(const std::string& place, unsigned key_number, int count) {
  expect_messages(place, key_number, expected_messages(count));
}

void Keys::expect_messages(const std::string& place, unsigned key_number,
                           const std::vector<std::string>& expected) {
  EXPECT_TRUE(StoreKeys::set(path(place), key(key_number)));
  EXPECT_TRUE(open(place)) << to_text(StoreKeys::last_refusal());
  EXPECT_EQ(messages(), expected);
  close();
}

void Keys::expect_no_plaintext() const {
  EXPECT_EQ(files_with_plaintext(folder.path()), "");
}

}  // namespace corvan_test
