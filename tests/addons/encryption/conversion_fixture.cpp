#include "tests/addons/encryption/conversion_fixture.h"

#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <stdexcept>

#include "db/cv_db_singleton.h"

namespace corvan_test {

namespace {

using Connection = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;
using Statement = std::unique_ptr<sqlite3_stmt, int (*)(sqlite3_stmt*)>;

Connection open_file(const std::string& file) {
  sqlite3* db = nullptr;
  const int rc = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
  Connection connection(db, sqlite3_close);
  if (rc != SQLITE_OK) throw std::runtime_error("cannot open " + file);
  return connection;
}

// The value's type and bytes, of a text in UTF-8.
std::string value(sqlite3_stmt* stmt, int column) {
  const int type = sqlite3_column_type(stmt, column);
  const void* const bytes =
      type == SQLITE_TEXT ? sqlite3_column_text(stmt, column) : sqlite3_column_blob(stmt, column);
  const auto count = static_cast<std::size_t>(sqlite3_column_bytes(stmt, column));
  const std::string text =
      bytes == nullptr ? std::string() : std::string(static_cast<const char*>(bytes), count);
  return std::to_string(type) + ":" + text;
}

std::vector<std::string> rows(sqlite3* db, const std::string& sql) {
  sqlite3_stmt* prepared = nullptr;
  const int rc = sqlite3_prepare_v2(db, sql.c_str(), -1, &prepared, nullptr);
  const Statement stmt(prepared, sqlite3_finalize);
  if (rc != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(db));
  std::vector<std::string> found;
  int step = SQLITE_ROW;
  while ((step = sqlite3_step(stmt.get())) == SQLITE_ROW) {
    std::string row;
    for (int i = 0; i < sqlite3_column_count(stmt.get()); ++i) row += "|" + value(stmt.get(), i);
    found.push_back(row);
  }
  if (step != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(db));
  return found;
}

Corvan::StoreKey::Bytes test_bytes(int number) {
  Corvan::StoreKey::Bytes bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<unsigned char>(number * 37 + static_cast<int>(i) * 11);
  }
  return bytes;
}

void save(Corvan::CvDbSingleton& store, int number) {
  const std::string text = kPlanted + " " + std::to_string(number);
  store.save_message("room-" + std::to_string(number % 5), Corvan::CV_GROUP, "CV:TxtMsg", "u", text,
                     number % 3 != 0, 0, 0, number % 7 == 0, 1000 + number, number,
                     "server-" + std::to_string(number), false, false, true);
}

}  // namespace

Corvan::StoreKey test_key(int number) {
  Corvan::StoreKey::Bytes bytes = test_bytes(number);
  return Corvan::StoreKey(bytes);
}

std::string test_key_digits(int number) {
  std::string digits;
  for (const unsigned char byte : test_bytes(number)) {
    constexpr const char* kDigits = "0123456789abcdef";
    digits += kDigits[byte >> 4U];
    digits += kDigits[byte & 15U];
  }
  return digits;
}

std::vector<std::string> contents(const std::string& file) {
  const Connection db = open_file(file);
  std::vector<std::string> all;
  const auto add = [&](const std::string& name, const std::string& sql) {
    for (const std::string& row : rows(db.get(), sql)) all.push_back(name + row);
  };
  add("schema", "select type,name,tbl_name,sql from sqlite_master order by type,name");
  add("version", "pragma user_version");
  add("application", "pragma application_id");
  const std::string ordinary = "type='table' and rootpage>0 and name not like 'sqlite_stat_'";
  for (const std::string& row :
       rows(db.get(), "select name from sqlite_master where " + ordinary + " order by name")) {
    const std::string name = row.substr(row.find(':') + 1);
    add(name, "select * from \"" + name + "\"");
  }
  return all;
}

void fill_store(const std::string& folder, int messages) {
  Corvan::CvDbSingleton& store = *Corvan::CvDbSingleton::get_instance();
  if (!store.init_open_db(cvrtc::Pathname(folder), "", "me"))
    throw std::runtime_error("not opened");
  store.start_transaction();
  for (int i = 1; i <= messages; ++i) save(store, i);
  store.set_message_draft("room-1", Corvan::CV_GROUP, kPlanted + " draft");
  store.commit_transaction();
  store.close_db();
}

void run_sql(const std::string& folder, const std::string& sql) {
  const Connection db = open_file(folder + "corvan");
  char* message = nullptr;
  if (sqlite3_exec(db.get(), sql.c_str(), nullptr, nullptr, &message) == SQLITE_OK) return;
  const std::string text = message == nullptr ? "no memory" : message;
  sqlite3_free(message);
  throw std::runtime_error(text);
}

std::string files_with_planted_text(const std::string& folder) {
  return files_with_plaintext(folder);
}

std::map<std::string, std::string> files_of(const std::string& folder) {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    files[entry.path().filename().string()] = read_file(entry.path().string());
  }
  return files;
}

ConversionTest::ConversionTest() = default;

ConversionTest::~ConversionTest() {
  Corvan::CvDbSingleton::delete_instance();
  Corvan::StoreKeys::forget(pathname());
}

void ConversionTest::SetUp() {
  if (!Corvan::StoreKeys::has_cipher()) GTEST_SKIP() << "this SQLite has no cipher";
  std::filesystem::create_directory(store_folder());
  fill_store(store_folder(), 60);
}

bool ConversionTest::opens() const {
  const bool is_open = Corvan::CvDbSingleton::get_instance()->init_open_db(pathname(), "", "me");
  Corvan::CvDbSingleton::get_instance()->close_db();
  return is_open;
}

void ConversionTest::encrypt(int key) {
  const Corvan::Conversion conversion = Corvan::encrypt_store(pathname(), test_key(key));
  ASSERT_EQ(Corvan::ConversionResult::kDone, conversion.result) << conversion.detail;
}

}  // namespace corvan_test
