// Which connections a key applies to: those to the folder's own files, by whatever name they are
// opened, and no others.

#include <sqlite3.h>

#include <filesystem>
#include <system_error>

#include "tests/addons/encryption/keys_fixture.h"

namespace corvan_test {

namespace {

namespace fs = std::filesystem;

class KeyedFiles : public Keys {
 protected:
  KeyedFiles() : start_(fs::current_path()) {}
  ~KeyedFiles() override {
    fs::current_path(start_);
    close();
    for (const char* const name : {"store", "link", "elsewhere", "later"}) {
      StoreKeys::forget(path(folder.path() + name + "/"));
    }
  }
  void SetUp() override {
    CORVAN_NEED_CIPHER();
    fs::create_directory(folder.path() + "store");
    fs::create_directory(folder.path() + "elsewhere");
    std::error_code failure;
    fs::create_directory_symlink(folder.path() + "store", folder.path() + "link", failure);
    has_links_ = !failure;
  }

  std::string place() const { return folder.path() + "store/"; }

  // Whether a file that the connection creates is encrypted.
  static bool is_encrypted(const std::string& file) {
    return read_file(file).find(planted_word()) == std::string::npos;
  }
  static void write_word(const std::string& file, int flags = 0) {
    const Connection connection(file, flags);
    EXPECT_EQ(connection.code(), SQLITE_OK) << file;
    EXPECT_EQ(connection.run("create table words(word); insert into words values('" +
                             planted_word() + "')"),
              SQLITE_OK)
        << file;
  }

  const fs::path start_;
  bool has_links_ = false;  // mingw-w64 has no function that creates them
};

#define NEED_LINKS() \
  if (!has_links_) GTEST_SKIP() << "no symbolic link can be created"

TEST_F(KeyedFiles, StoreAndAddonFilesOnly) {
  StoreKeys::set(path(place()), key(1));
  fs::create_directory(place() + "sub");
  for (const char* const name : {"corvan", "corvan-search", "corvan-", "corvan-x.db"}) {
    write_word(place() + name);
    EXPECT_TRUE(is_encrypted(place() + name)) << name;
  }
  for (const char* const name :
       {"corvan.db", "corvan2", "corvan.bak", "Corvan", "xcorvan", "other", "sub/corvan",
        "sub/corvan-search", "../elsewhere/corvan", "../corvan"}) {
    if (fs::exists(place() + name)) continue;  // the file system does not distinguish "Corvan"
    write_word(place() + name);
    EXPECT_FALSE(is_encrypted(place() + name)) << name;
  }
}

TEST_F(KeyedFiles, MemoryAndTemporaryDatabasesAreLeftAlone) {
  StoreKeys::set(path(place()), key(1));
  log.take();
  fs::current_path(place());
  for (const char* const name : {":memory:", ""}) write_word(name);
  EXPECT_EQ(log.take(), std::vector<std::string>{});
}

TEST_F(KeyedFiles, ReadOnlyConnectionIsKeyed) {
  fill(place(), 1, 3);
  const Connection connection(place() + "corvan", SQLITE_OPEN_READONLY);
  EXPECT_EQ(connection.texts("select content from t_message order by id"), expected_messages(3));
}

TEST_F(KeyedFiles, UriNamesAreKeyed) {
  fill(place(), 1, 3);
  const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_URI;
  for (const char* const options : {"", "?mode=ro", "?mode=rw&cache=private", "#fragment"}) {
    const Connection connection("file:" + place() + "corvan" + options, flags);
    EXPECT_EQ(connection.code(), SQLITE_OK) << options;
    EXPECT_EQ(connection.texts("select content from t_message order by id"), expected_messages(3))
        << options;
  }
  const Connection connection("file:" + folder.path() + "s%74ore/corv%61n", flags);
  EXPECT_EQ(connection.texts("select content from t_message order by id"), expected_messages(3));
}

TEST_F(KeyedFiles, EverySpellingOfTheFolderFindsTheKey) {
  NEED_LINKS();
  fill(place(), 1, 3);
  StoreKeys::forget(path(place()));
  fs::current_path(folder.path());
  const std::vector<std::string> spellings = {place(),
                                              folder.path() + "link/",
                                              folder.path() + "/store//",
                                              folder.path() + "elsewhere/../store/",
                                              folder.path() + "./store/./",
                                              folder.path() + "link/../store/",
                                              "store/",
                                              "./store/",
                                              "link/",
                                              "elsewhere/../link/"};
  for (const std::string& set_as : spellings) {
    ASSERT_TRUE(StoreKeys::set(path(set_as), key(1)));
    for (const std::string& opened_as : spellings) {
      EXPECT_TRUE(open(opened_as)) << set_as << " / " << opened_as;
      EXPECT_EQ(messages(), expected_messages(3)) << set_as << " / " << opened_as;
      close();
    }
    for (const std::string& forgotten_as : {spellings[1], spellings[3]}) {
      StoreKeys::forget(path(forgotten_as));
      expect_refused(place(), KeyRefusal::kNoKey);
      StoreKeys::set(path(set_as), key(1));
    }
    StoreKeys::clear(path(set_as));
    expect_refused(place(), KeyRefusal::kNoKey);
    StoreKeys::forget(path(place()));
  }
}

TEST_F(KeyedFiles, NewFolderByAnySpellingIsEncrypted) {
  NEED_LINKS();
  for (const std::string& set_as : {place(), folder.path() + "link/"}) {
    for (const std::string& opened_as : {place(), folder.path() + "link/"}) {
      put_files(place(), {});
      StoreKeys::set(path(set_as), key(1));
      ASSERT_TRUE(open(opened_as));
      ASSERT_TRUE(save(0));
      close();
      EXPECT_EQ(plaintext_below(folder.path()), "");
      StoreKeys::forget(path(place()));
    }
  }
}

TEST_F(KeyedFiles, RelativeFolderIsThatOfTheCallToSet) {
  fs::current_path(place());
  StoreKeys::set(path("./"), key(1));
  fs::current_path(folder.path() + "elsewhere");
  ASSERT_TRUE(open(place()));
  ASSERT_TRUE(save(0));
  ASSERT_TRUE(open("./"));  // another folder, without a key
  close();
  EXPECT_TRUE(is_encrypted(place() + "corvan"));
  EXPECT_EQ(read_file("corvan").substr(0, 6), "SQLite");
  fs::current_path(place());
  expect_messages("./", 1, 1);
}

TEST_F(KeyedFiles, FolderMayBeCreatedLater) {
  StoreKeys::set(path(folder.path() + "later/"), key(1));
  fs::create_directory(folder.path() + "later");
  ASSERT_TRUE(open(folder.path() + "later/"));
  ASSERT_TRUE(save(0));
  close();
  EXPECT_EQ(plaintext_below(folder.path()), "");
}

TEST_F(KeyedFiles, FolderMayBeCreatedLaterAsLink) {
  NEED_LINKS();
  StoreKeys::set(path(folder.path() + "later/"), key(1));
  fs::create_directory_symlink(folder.path() + "elsewhere", folder.path() + "later");
  for (const char* const name : {"later/", "elsewhere/"}) {
    ASSERT_TRUE(open(folder.path() + name));
    ASSERT_TRUE(save(0) || name[0] == 'e');
    close();
  }
  EXPECT_EQ(plaintext_below(folder.path()), "");
}

TEST_F(KeyedFiles, StoreThatIsLinkToFileElsewhere) {
  NEED_LINKS();
  for (const bool exists : {false, true}) {
    const std::string target = folder.path() + "elsewhere/data";
    if (exists) write_file(target, "");
    fs::create_symlink(target, place() + "corvan");
    StoreKeys::set(path(place()), key(1));
    ASSERT_TRUE(open(place()));
    ASSERT_TRUE(save(0));
    close();
    EXPECT_EQ(plaintext_below(folder.path()), "");
    EXPECT_TRUE(fs::is_symlink(place() + "corvan"));
    StoreKeys::clear(path(place()));
    EXPECT_FALSE(open(place()));
    StoreKeys::set(path(place()), key(2));
    EXPECT_FALSE(open(place()));
    EXPECT_TRUE(fs::exists(target) && fs::is_symlink(place() + "corvan"));
    expect_messages(place(), 1, 1);
    fs::remove(target);
    fs::remove(place() + "corvan");
  }
}

TEST_F(KeyedFiles, StoreThatIsHardLink) {
  fill(place(), 1, 3);
  fs::create_hard_link(place() + "corvan", folder.path() + "elsewhere/corvan");
  ASSERT_TRUE(open(folder.path() + "elsewhere/"));
  EXPECT_EQ(messages(), expected_messages(3));
  close();
  StoreKeys::clear(path(place()));
  expect_refused(folder.path() + "elsewhere/", KeyRefusal::kNoKey);
}

// createdb_copydata() copies from an attached database. A plain one needs an empty key.
TEST_F(KeyedFiles, CopiesFromPlainStore) {
  const std::string old = folder.path() + "elsewhere/";
  fill_plain(old, 5);
  StoreKeys::set(path(place()), key(1));
  ASSERT_TRUE(open(place()));
  EXPECT_EQ(store().execute_none_query("attach '" + old + "corvan' as odb key ''"), SQLITE_DONE);
  store().createdb_copydata();
  EXPECT_EQ(store().execute_none_query("detach odb"), SQLITE_DONE);
  EXPECT_EQ(messages(), expected_messages(5));
  close();
  EXPECT_EQ(plaintext_below(place()), "");
  expect_messages(place(), 1, 5);
  EXPECT_EQ(read_file(old + "corvan").substr(0, 6), "SQLite");
}

TEST_F(KeyedFiles, CopiesFromEncryptedStore) {
  const std::string old = folder.path() + "elsewhere/";
  fill(old, 2, 5);
  std::string literal = "\"x'";
  for (const unsigned char byte : key_bytes(2)) {
    literal += "0123456789abcdef"[byte >> 4U];
    literal += "0123456789abcdef"[byte & 15U];
  }
  literal += "'\"";
  StoreKeys::set(path(place()), key(1));
  ASSERT_TRUE(open(place()));
  // SQLCipher 3 would expect pages of 1024 bytes in an attached file.
  if (cipher() == Cipher::kSqlcipher) {
    store().execute_none_query("pragma cipher_default_page_size=4096");
  }
  EXPECT_EQ(store().execute_none_query("attach '" + old + "corvan' as odb key " + literal),
            SQLITE_DONE);
  if (cipher() == Cipher::kSqlcipher) {
    store().execute_none_query("pragma cipher_default_page_size=1024");
  }
  store().createdb_copydata();
  EXPECT_EQ(messages(), expected_messages(5));
  close();
  EXPECT_EQ(plaintext_below(folder.path()), "");
  expect_messages(place(), 1, 5);
}

// Attaching fails when it is stepped, so the store does not take its own file for damaged.
TEST_F(KeyedFiles, FailedAttachingKeepsTheStore) {
  const std::string old = folder.path() + "elsewhere/";
  fill(place(), 1, 3);
  for (const bool is_plain : {true, false}) {
    put_files(old, {});
    is_plain ? fill_plain(old, 5) : fill(old, 2, 5);
    const Files files = files_in(old);
    ASSERT_TRUE(open(place()));
    for (const char* const clause : {"", " key 'wrong'", " key ''"}) {
      store().execute_none_query("attach '" + old + "corvan' as odb" + clause);
      if (!is_plain) store().createdb_copydata();
      store().execute_none_query("detach odb");
    }
    EXPECT_EQ(messages(), expected_messages(3));
    close();
    EXPECT_TRUE(files_in(old) == files);
    expect_messages(place(), 1, 3);
  }
}

TEST_F(KeyedFiles, FileWithExtensionDoesNotCount) {
  StoreKeys::set(path(place()), key(1));
  write_file(place() + "corvan.db", "something else");
  ASSERT_TRUE(open(place()));
  ASSERT_TRUE(save(0));
  close();
  EXPECT_EQ(read_file(place() + "corvan.db"), "something else");
  expect_messages(place(), 1, 1);
  EXPECT_EQ(plaintext_below(folder.path()), "");
}

}  // namespace

}  // namespace corvan_test
