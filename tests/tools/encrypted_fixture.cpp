#include "tests/tools/encrypted_fixture.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>

#include "addons/encryption/store_keys.h"
#include "base/pathname.h"
#include "tools/store/key.h"

namespace corvan_test {

namespace {

constexpr unsigned char kKeyByte = 0xb7;

std::string planted_lines() {
  std::string lines;
  for (int i = 1; i <= 300; ++i) {
    lines += line({{"session_id", "planted-room-" + std::to_string(i % 3)},
                   {"content", "planted text " + std::to_string(i) +
                                   std::string(static_cast<std::size_t>(i % 90), 'x')},
                   {"sent_time", 1700000000000 + i},
                   {"server_uid", "planted-uid-" + std::to_string(i)}});
  }
  return lines;
}

std::string digits(const std::string& pair) {
  std::string text;
  for (std::size_t i = 0; i < Corvan::StoreKey::kSize; ++i) text += pair;
  return text;
}

}  // namespace

Rows plain_files(const std::string& folder) {
  Rows found;
  for (const auto& entry :
       std::filesystem::recursive_directory_iterator(std::filesystem::u8path(folder))) {
    if (!entry.is_regular_file()) continue;
    const std::string content = read_file(entry.path().u8string());
    if (content.find(kPlanted) != std::string::npos ||
        content.compare(0, 13, "SQLite format") == 0) {
      found.push_back(entry.path().u8string());
    }
  }
  return found;
}

EncryptedTest::EncryptedTest()
    : key_(temporary("key")), other_(temporary("other")), log_(temporary("log")) {
  write_file(key_, "\n " + digits("b7") + " \n");
  write_file(other_, digits("5E"));
  write_file(log_, planted_lines());
}

void EncryptedTest::SetUp() {
  if (!corvan_tool::has_cipher()) GTEST_SKIP() << "this SQLite has no cipher";
  set_key(store());
  set_key(new_store());
}

void EncryptedTest::TearDown() {
  for (const std::string& one : {store(), new_store()}) forget_key(one);
  sqlite3_reset_auto_extension();
  ToolTest::TearDown();
}

void EncryptedTest::forget_key(const std::string& store_folder) {
  Corvan::StoreKeys::forget(cvrtc::Pathname(store_folder, ""));
}

void EncryptedTest::set_key(const std::string& store_folder) const {
  Corvan::StoreKey::Bytes bytes{};
  bytes.fill(kKeyByte);
  ASSERT_TRUE(Corvan::StoreKeys::set(cvrtc::Pathname(store_folder, ""), Corvan::StoreKey(bytes)));
}

void EncryptedTest::make_store() {
  const Outcome outcome = run_with(key(), {"import", store(), "--user", "me", log_});
  ASSERT_EQ(outcome.status, 0) << outcome.err;
}

void EncryptedTest::make_plain_store() {
  const Outcome outcome = run({"import", store(), "--user", "me", log_});
  ASSERT_EQ(outcome.status, 0) << outcome.err;
}

Outcome EncryptedTest::run_with(const std::string& key, const Arguments& arguments,
                                const std::string& input) {
  Arguments all = arguments;
  if (!key.empty()) all.insert(all.end(), {"--key-file", key});
  return run(all, input);
}

std::vector<Arguments> EncryptedTest::commands() const {
  std::vector<Arguments> all = {{"import", "", "--user", "me", log_},
                                {"list", ""},
                                {"history", "", "planted-room-1", "--type", "group"},
                                {"unread", ""},
                                {"show", "", "7"},
                                {"search", "", "planted"},
                                {"stats", ""},
                                {"check", ""},
                                {"verify", ""},
                                {"verify", "", "--repair", "counters"},
                                {"index", ""},
                                {"index", "", "--dry-run"},
                                {"search-index", ""},
                                {"compact", ""},
                                {"salvage", "", new_store()},
                                {"backup", "", new_store()},
                                {"export", "", "--format", "jsonl", "--output", new_store()},
                                {"export", "", "--format", "csv", "--output", new_store()},
                                {"export", "", "--format", "html", "--output", new_store()},
                                {"encrypt", ""},
                                {"rekey", "", "--new-key-file", other()},
                                {"decrypt", ""}};
  for (Arguments& arguments : all) arguments[1] = store();
  return all;
}

void EncryptedTest::expect_refused(const Arguments& arguments, const std::string& key,
                                   const std::string& words) {
  const Listing before = listing(store());
  const Outcome outcome = run_with(key, arguments);
  EXPECT_EQ(outcome.status, 2) << arguments[0];
  EXPECT_NE(outcome.err.find(words), std::string::npos) << arguments[0] << ": " << outcome.err;
  EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
  EXPECT_EQ(outcome.err.find("b7b7"), std::string::npos) << outcome.err;
  EXPECT_TRUE(listing(store()) == before) << arguments[0] << " changed the store";
  EXPECT_FALSE(file_exists(new_store())) << arguments[0];
  EXPECT_EQ(listing(copies()), Listing{}) << arguments[0];
}

void EncryptedTest::expect_no_plain_file(const std::string& after) const {
  EXPECT_EQ(plain_files(folder.path()), Rows{}) << after;
  EXPECT_EQ(plain_files(copies()), Rows{}) << after;
}

}  // namespace corvan_test
