// The conversions: what they keep, what they refuse, and what they leave behind.

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>

#include "db/cv_db_singleton.h"
#include "tests/addons/encryption/conversion_fixture.h"
#include "tests/addons/encryption/full_disk.h"

namespace corvan_test {

namespace {

using Corvan::ConversionResult;
using Corvan::decrypt_store;
using Corvan::encrypt_store;
using Corvan::rekey_store;
using Corvan::StoreKeys;

// What a store in the field can hold beside the library's own tables and values.
void add_foreign_content(const std::string& folder) {
  constexpr int kGeneratedColumns = 3031000;  // the first version with them
  const bool generated = sqlite3_libversion_number() >= kGeneratedColumns;
  run_sql(folder, std::string("create table extra(a, rowid text, b real default 1.5") +
                      (generated ? ", c as (a||'x'))" : ")"));
  run_sql(folder,
          "insert into extra(a,rowid,b) values(x'00ff00','r',-0.0),(null,'',9e999),"
          "('a'||char(0)||'b','z',1);"
          "delete from extra where a is null;"
          "create table plain(v); insert into plain(rowid,v) values(7,1),(3,2),(-4,'three');"
          "create table keyed(k text primary key, v) without rowid;"
          "insert into keyed values('b',1),('a',2);"
          "create index extra_a on extra(a) where b>0;"
          "create unique index plain_v on plain(v desc);"
          "create view seen as select content from t_message;"
          "create trigger noted after insert on plain begin insert into keyed values(new.v,0); end;"
          "pragma application_id=77; analyze;");
}

TEST_F(ConversionTest, TheEncryptedStoreHoldsTheSameRowsAndNoPlainText) {
  add_foreign_content(store_folder());
  const auto before = contents();
  encrypt();
  EXPECT_EQ(before, contents());
  EXPECT_EQ("", files_with_planted_text(store_folder()));
  EXPECT_TRUE(opens());
  EXPECT_EQ(1U, files_of(store_folder()).size());
  EXPECT_EQ(std::vector<std::string>(), log.take());
}

TEST_F(ConversionTest, DecryptingGivesTheRowsBackAsAPlainStore) {
  add_foreign_content(store_folder());
  const auto before = contents();
  encrypt();
  EXPECT_EQ(ConversionResult::kDone, decrypt_store(pathname()).result);
  EXPECT_EQ(before, contents());
  EXPECT_EQ(0U, read_file(file()).find("SQLite format 3"));
  EXPECT_TRUE(opens());
}

TEST_F(ConversionTest, AnotherKeyReplacesTheFirst) {
  const auto before = contents();
  encrypt(1);
  EXPECT_EQ(ConversionResult::kDone, rekey_store(pathname(), test_key(1), test_key(2)).result);
  EXPECT_EQ(before, contents());
  StoreKeys::set(pathname(), test_key(1));
  EXPECT_FALSE(opens());
  StoreKeys::set(pathname(), test_key(2));
  EXPECT_TRUE(opens());
}

TEST_F(ConversionTest, APassphraseIsAKey) {
  const auto before = contents();
  std::string text = "don't \"say\" it; \xc3\xa4";
  const Corvan::StoreKey key = Corvan::StoreKey::from_passphrase(text);
  EXPECT_EQ(ConversionResult::kDone, encrypt_store(pathname(), key).result);
  EXPECT_EQ(before, contents());
  EXPECT_EQ(ConversionResult::kDone, rekey_store(pathname(), key, test_key(1)).result);
  EXPECT_EQ(before, contents());
}

TEST_F(ConversionTest, ASecondCallFindsTheStoreConverted) {
  encrypt();
  const auto files = files_of(store_folder());
  EXPECT_EQ(ConversionResult::kAlreadyDone, encrypt_store(pathname(), test_key(1)).result);
  EXPECT_EQ(ConversionResult::kAlreadyDone,
            rekey_store(pathname(), test_key(9), test_key(1)).result);
  EXPECT_EQ(files, files_of(store_folder()));
  EXPECT_EQ(ConversionResult::kDone, decrypt_store(pathname()).result);
  EXPECT_EQ(ConversionResult::kAlreadyDone, decrypt_store(pathname()).result);
}

TEST_F(ConversionTest, IdsAreNotUsedAgain) {
  run_sql(store_folder(), "delete from t_message where id>50");
  encrypt();
  fill_store(store_folder(), 0);
  Corvan::CvDbSingleton& store = *Corvan::CvDbSingleton::get_instance();
  ASSERT_TRUE(store.init_open_db(pathname(), "", "me"));
  EXPECT_EQ(61, store.save_message("room-1", Corvan::CV_GROUP, "CV:TxtMsg", "u", "new", true, 0, 0,
                                   false, 5000, 0, "server-new", false, false, true));
}

// A killed client leaves a log with messages that are not in the file yet.
TEST_F(ConversionTest, TheLogOfAKilledProcessIsPartOfTheStore) {
  const auto before = contents();
  Corvan::CvDbSingleton& store = *Corvan::CvDbSingleton::get_instance();
  ASSERT_TRUE(store.init_open_db(pathname(), "", "me"));
  store.set_message_draft("room-2", Corvan::CV_GROUP, kPlanted + " late");
  const std::string killed = folder.file("killed/");
  std::filesystem::create_directory(killed);
  for (const char* const name : {"corvan", "corvan-wal"}) {
    std::filesystem::copy_file(store_folder() + name, killed + name);
  }
  store.close_db();
  const cvrtc::Pathname copy(killed);
  EXPECT_EQ(ConversionResult::kDone, encrypt_store(copy, test_key(1)).result);
  EXPECT_NE(before, contents());
  EXPECT_EQ(contents(), corvan_test::contents(killed + "corvan"));
  EXPECT_EQ("", files_with_planted_text(killed));
  StoreKeys::forget(copy);
}

TEST_F(ConversionTest, AnUnfinishedCopyIsRemoved) {
  for (const char* const suffix : {"", "-journal", "-wal", "-shm"}) {
    write_file(file() + ".converting" + suffix, kPlanted);
  }
  encrypt();
  EXPECT_EQ(1U, files_of(store_folder()).size());
  write_file(file() + ".converting", kPlanted);
  EXPECT_EQ(ConversionResult::kAlreadyDone, encrypt_store(pathname(), test_key(1)).result);
  EXPECT_EQ(1U, files_of(store_folder()).size());
}

// What a refused conversion must leave as it was.
class RefusedConversionTest : public ConversionTest {
 protected:
  void SetUp() override {
    ConversionTest::SetUp();
    if (!IsSkipped()) files_ = files_of(store_folder());
  }
  void remember() { files_ = files_of(store_folder()); }
  void expect_refused(ConversionResult expected, const Corvan::Conversion& conversion) {
    EXPECT_EQ(expected, conversion.result) << conversion.detail;
    EXPECT_EQ(files_, files_of(store_folder()));
    EXPECT_EQ(1U, log.take().size());
  }

 private:
  std::map<std::string, std::string> files_;
};

TEST_F(RefusedConversionTest, WrongKeys) {
  encrypt(1);
  remember();
  expect_refused(ConversionResult::kAlreadyEncrypted, encrypt_store(pathname(), test_key(2)));
  expect_refused(ConversionResult::kWrongKey, rekey_store(pathname(), test_key(2), test_key(3)));
  StoreKeys::set(pathname(), test_key(2));
  expect_refused(ConversionResult::kWrongKey, decrypt_store(pathname()));
  StoreKeys::clear(pathname());
  expect_refused(ConversionResult::kNoKey, decrypt_store(pathname()));
  expect_refused(ConversionResult::kNoKey, encrypt_store(pathname(), Corvan::StoreKey()));
  expect_refused(ConversionResult::kNoKey,
                 rekey_store(pathname(), test_key(1), Corvan::StoreKey()));
}

TEST_F(RefusedConversionTest, APlainStoreHasNoKeyToReplace) {
  expect_refused(ConversionResult::kNotEncrypted,
                 rekey_store(pathname(), test_key(1), test_key(2)));
}

TEST_F(RefusedConversionTest, NoStore) {
  std::filesystem::remove(file());
  remember();
  expect_refused(ConversionResult::kNoStore, encrypt_store(pathname(), test_key(1)));
  write_file(file(), "");
  remember();
  expect_refused(ConversionResult::kNoStore, decrypt_store(pathname()));
  std::filesystem::remove(file());
  std::filesystem::create_directory(file());
  remember();
  expect_refused(ConversionResult::kNoStore, rekey_store(pathname(), test_key(1), test_key(2)));
}

TEST_F(RefusedConversionTest, AnOpenStore) {
  Corvan::CvDbSingleton& store = *Corvan::CvDbSingleton::get_instance();
  ASSERT_TRUE(store.init_open_db(pathname(), "", "me"));
  EXPECT_EQ(ConversionResult::kInUse, encrypt_store(pathname(), test_key(1)).result);
  EXPECT_NE(0, store.save_message("room-1", Corvan::CV_GROUP, "CV:TxtMsg", "u", "new", true, 0, 0,
                                  false, 5000, 0, "server-new", false, false, true));
  store.close_db();
  EXPECT_EQ(1U, files_of(store_folder()).size());
  EXPECT_EQ(0U, read_file(file()).find("SQLite format 3"));
}

TEST_F(RefusedConversionTest, TooLittleRoom) {
  fill_file_system(true);
  expect_refused(ConversionResult::kNoSpace, encrypt_store(pathname(), test_key(1)));
  fill_file_system(false);
  encrypt();
  remember();
  fill_file_system(true);
  expect_refused(ConversionResult::kNoSpace, decrypt_store(pathname()));
  expect_refused(ConversionResult::kNoSpace, rekey_store(pathname(), test_key(1), test_key(2)));
  fill_file_system(false);
}

TEST_F(RefusedConversionTest, HardLinksWouldKeepThePlainText) {
  std::filesystem::create_hard_link(file(), folder.file("other"));
  expect_refused(ConversionResult::kFailed, encrypt_store(pathname(), test_key(1)));
}

TEST_F(RefusedConversionTest, ADamagedStore) {
  std::string bytes = read_file(file());
  for (std::size_t at = 4096; at < bytes.size(); ++at) bytes[at] = '\x55';
  write_file(file(), bytes);
  EXPECT_EQ(ConversionResult::kDamaged, encrypt_store(pathname(), test_key(1)).result);
  // The first page says how the file is journalled.
  EXPECT_EQ(bytes.substr(4096), read_file(file()).substr(4096));
  EXPECT_EQ(1U, files_of(store_folder()).size());
}

TEST_F(RefusedConversionTest, AFileThatIsNoDatabase) {
  write_file(file(), std::string(9000, 'x'));
  remember();
  expect_refused(ConversionResult::kAlreadyEncrypted, encrypt_store(pathname(), test_key(1)));
}

// Whether the text contains eight hexadecimal digits of the key that test_key() makes.
bool shows_key(const std::string& text, int number) {
  const std::string digits = test_key_digits(number);
  for (std::size_t at = 0; at + 8 <= digits.size(); ++at) {
    if (text.find(digits.substr(at, 8)) != std::string::npos) return true;
  }
  return false;
}

TEST_F(RefusedConversionTest, TheLogLineHasThePathAndTheReasonButNoKey) {
  encrypt(1);
  encrypt_store(pathname(), test_key(2));
  const auto lines = log.take();
  ASSERT_EQ(1U, lines.size());
  EXPECT_NE(std::string::npos, lines[0].find(file())) << lines[0];
  EXPECT_NE(std::string::npos, lines[0].find("encrypted with another key")) << lines[0];
  EXPECT_FALSE(shows_key(lines[0], 1) || shows_key(lines[0], 2)) << lines[0];
  EXPECT_TRUE(shows_key(test_key_digits(1), 1));
}

}  // namespace

}  // namespace corvan_test
