// Every command on an encrypted store: with its key, with a wrong one, and without one.

#include <unistd.h>

#include <filesystem>
#include <random>
#include <set>
#include <sstream>
#include <string>

#include "tests/tools/encrypted_fixture.h"
#include "tests/tools/store_pages.h"
#include "tools/store/key.h"

namespace corvan_test {
namespace {

class EncryptedCommandsTest : public EncryptedTest {
 protected:
  // What a command says without the key.
  static std::string without_key(const std::string& command) {
    if (command == "encrypt") return "name the new key with --key-file";
    if (command == "rekey") return "name the present key with --key-file";
    return "encrypted or damaged";
  }

  static std::string with_wrong_key(const std::string& command) {
    return command == "encrypt" ? "encrypted with another key" : "the key is wrong";
  }

  void write_log_beside() {
    std::string log;
    {
      const WriteAhead writer(file(), "update t_message set content='planted again'");
      log = read_file(file() + "-wal");
    }
    write_file(file() + "-wal", log);
    std::filesystem::remove(file() + "-shm");
  }
};

TEST_F(EncryptedCommandsTest, TheTableHasEveryCommand) {
  std::istringstream help(output({"--help"}));
  std::set<std::string> missing;
  bool in_list = false;
  for (std::string text; std::getline(help, text);) {
    if (in_list && text.empty()) break;
    if (in_list) missing.insert(text.substr(2, text.find(' ', 2) - 2));
    in_list = in_list || text == "Subcommands:";
  }
  EXPECT_GE(missing.size(), 18U);
  for (const Arguments& arguments : commands()) missing.erase(arguments[0]);
  EXPECT_EQ(missing, std::set<std::string>{"restore"});  // it opens no store
}

TEST_F(EncryptedCommandsTest, RefuseTheStoreWithoutItsKey) {
  make_store();
  for (const Arguments& arguments : commands()) {
    expect_refused(arguments, "", without_key(arguments[0]));
    expect_no_plain_file(arguments[0]);
  }
}

TEST_F(EncryptedCommandsTest, RefuseAWrongKey) {
  make_store();
  for (Arguments arguments : commands()) {
    if (arguments[0] == "rekey") arguments.back() = write("third", std::string(64, '3'));
    expect_refused(arguments, other(), with_wrong_key(arguments[0]));
    expect_no_plain_file(arguments[0]);
  }
}

TEST_F(EncryptedCommandsTest, RefuseBothWithALogBesideTheFile) {
  make_store();
  write_log_beside();
  for (const Arguments& arguments : commands()) {
    if (arguments[0] == "encrypt" || arguments[0] == "rekey" || arguments[0] == "decrypt") continue;
    expect_refused(arguments, "", without_key(arguments[0]));
    expect_refused(arguments, other(), with_wrong_key(arguments[0]));
    expect_no_plain_file(arguments[0]);
  }
  EXPECT_EQ(rows("select count(*) from t_message where content='planted again'"), Rows{"300"});
}

TEST_F(EncryptedCommandsTest, RefuseAKeyForAPlainStore) {
  make_plain_store();
  for (const Arguments& arguments : commands()) {
    if (arguments[0] == "encrypt" || arguments[0] == "decrypt") continue;
    expect_refused(arguments, key(), "not encrypted");
  }
}

TEST_F(EncryptedCommandsTest, LeaveNoPlainTextInAnyFile) {
  make_store();
  expect_no_plain_file("import");
  for (const Arguments& arguments : commands()) {
    if (arguments[0] == "rekey" || arguments[0] == "decrypt") continue;
    const Outcome outcome = run_with(key(), arguments);
    EXPECT_EQ(outcome.status, 0) << arguments[0] << outcome.err;
    EXPECT_EQ(outcome.err, "");
    if (!is_export(arguments)) expect_no_plain_file(arguments[0]);
    if (arguments[0] == "backup" || arguments[0] == "salvage") {
      EXPECT_EQ(corvan_test::rows(new_store() + "/corvan", "select count(*) from t_message"),
                Rows{"300"});
    }
    std::filesystem::remove_all(new_store());
  }
}

TEST_F(EncryptedCommandsTest, RepairsWithABackupThatIsEncrypted) {
  make_store();
  plant("update t_session set unread_count=1000");
  const Outcome outcome = run_with(
      key(), {"verify", store(), "--repair", "counters", "--backup", new_store(), "--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(rows("select max(unread_count) from t_session"), Rows{"100"});
  EXPECT_EQ(corvan_test::rows(new_store() + "/corvan", "select max(unread_count) from t_session"),
            Rows{"1000"});
  expect_no_plain_file("verify --repair");
}

TEST_F(EncryptedCommandsTest, RestoresAnExportToAnEncryptedStore) {
  make_store();
  const Outcome exported = run_with(key(), {"export", store(), "--format", "jsonl"});
  const Outcome outcome = run_with(key(), {"restore", "-", new_store()}, exported.out);
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  expect_no_plain_file("restore");
  EXPECT_EQ(corvan_test::rows(new_store() + "/corvan", "select * from t_message"),
            rows("select * from t_message"));
}

TEST_F(EncryptedCommandsTest, AcceptTheKeyBeforeTheCommand) {
  make_store();
  EXPECT_EQ(output({"--key-file", key(), "check", store()}), "ok\n");
}

// The copy that a reading command works on, while the command waits for its reader.
TEST_F(EncryptedCommandsTest, LeaveNoPlainTextWhenTheyAreKilled) {
  make_store();
  std::string more;
  for (int i = 0; i < 2000; ++i) more += line({{"content", "planted" + std::string(100, 'y')}});
  ASSERT_EQ(run_with(key(), {"import", store(), "--user", "me", "-"}, more).status, 0);
  const Pipe pipe = make_pipe();
  const pid_t process =
      start({"export", store(), "--format", "csv", "--key-file", key()}, pipe.write_end);
  char first = '\0';
  ASSERT_EQ(read(pipe.read_end, &first, 1), 1);
  EXPECT_NE(listing(copies()), Listing{});
  expect_no_plain_file("export, running");
  EXPECT_TRUE(kill_process(process));
  close(pipe.read_end);
  expect_no_plain_file("export, killed");
  EXPECT_EQ(run_with(key(), {"check", store()}).status, 0);  // removes the abandoned folder
}

// An import that waits for more lines: the log holds what it has saved.
TEST_F(EncryptedCommandsTest, LeaveNoPlainTextInTheLogOfAKilledImport) {
  const Pipe pipe = make_pipe();
  std::string lines;
  for (int i = 0; i < 20; ++i) lines += line({{"content", "planted"}});
  write_all(pipe.write_end, lines);
  const pid_t process =
      start({"import", store(), "--user", "me", "--batch", "10", "-", "--key-file", key()},
            null_output(), pipe.read_end);
  while (!file_exists(file() + "-wal") || read_file(file() + "-wal").size() < 100000) usleep(1000);
  expect_no_plain_file("import, running");
  EXPECT_TRUE(kill_process(process));
  close(pipe.write_end);
  expect_no_plain_file("import, killed");
  EXPECT_EQ(run_with("", {"list", store()}).status, 2);
  EXPECT_EQ(run_with(other(), {"list", store()}).status, 2);
  EXPECT_EQ(run_with(key(), {"check", store()}).out, "ok\n");
  EXPECT_EQ(rows("select count(*)>=10 from t_message"), Rows{"1"});
}

// With any SQLite: a file of random bytes can be an encrypted store.
class RandomFileTest : public EncryptedTest {
 protected:
  void SetUp() override {
    std::mt19937_64 random(7);
    std::filesystem::create_directory(store());
    write_file(file(), random_bytes(random, 8 * kPageSize));
  }
};

TEST_F(RandomFileTest, IsRefusedAsEncryptedOrDamaged) {
  for (const Arguments& arguments : commands()) {
    if (arguments[0] == "encrypt" || arguments[0] == "rekey" || arguments[0] == "decrypt") continue;
    expect_refused(arguments, "", "encrypted or damaged");
  }
}

TEST_F(RandomFileTest, IsRefusedAlsoIfItsPageSizeIsReadable) {
  std::string content = read_file(file());
  content.replace(16, 8, std::string("\x10\x00\x02\x02\x20\x40\x20\x20", 8));
  write_file(file(), content);
  expect_refused({"salvage", store(), new_store()}, "", "encrypted or damaged");
  write_file(file(), content.substr(0, content.size() - 1000));
  expect_refused({"salvage", store(), new_store()}, "", "encrypted or damaged");
}

TEST_F(RandomFileTest, AKeyIsRefusedIfSqliteHasNoCipher) {
  if (corvan_tool::has_cipher()) GTEST_SKIP() << "this SQLite has a cipher";
  for (const Arguments& arguments : commands()) {
    expect_refused(arguments, key(), "SQLite that has no cipher");
  }
  expect_refused({"list", store(), "--passphrase"}, "", "SQLite that has no cipher");
  expect_refused({"decrypt", store()}, "", "encrypted or damaged");
}

}  // namespace
}  // namespace corvan_test
