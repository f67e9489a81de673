// What conversions must not do to connections that others have to the same files.

#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "db/cv_db_singleton.h"
#include "tests/addons/encryption/conversion_fixture.h"

namespace corvan_test {

namespace {

using Corvan::ConversionResult;
using Corvan::encrypt_store;
using Corvan::StoreKeys;

using Connection = std::unique_ptr<sqlite3, int (*)(sqlite3*)>;

Connection connection_to(const std::string& file) {
  sqlite3* db = nullptr;
  EXPECT_EQ(SQLITE_OK, sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr));
  return {db, sqlite3_close};
}

int run(const Connection& connection, const char* sql) {
  return sqlite3_exec(connection.get(), sql, nullptr, nullptr, nullptr);
}

// How a child process that does the work has ended.
int status_of_child(const std::function<int()>& work) {
  const pid_t child = fork();
  if (child == 0) _exit(work());
  int status = 0;
  waitpid(child, &status, 0);
  return status;
}

class ConversionLocksTest : public ConversionTest {};

// Closing any descriptor of a file releases all locks that the process has on it.
TEST_F(ConversionLocksTest, ARefusedConversionKeepsTheLocksOfTheOpenStore) {
  Corvan::CvDbSingleton& store = *Corvan::CvDbSingleton::get_instance();
  ASSERT_TRUE(store.init_open_db(pathname(), "", "me"));
  EXPECT_EQ(ConversionResult::kInUse, encrypt_store(pathname(), test_key(1)).result);
  EXPECT_EQ(ConversionResult::kInUse, encrypt_store(pathname(), test_key(1)).result);
  const int status = status_of_child([this] {
    const Connection other = connection_to(file());
    return run(other, "pragma journal_mode=delete");
  });
  EXPECT_EQ(SQLITE_BUSY, WEXITSTATUS(status));
  EXPECT_TRUE(std::filesystem::exists(file() + "-wal"));
}

// A connection that has opened the old file and not read it yet must not find it damaged: the store
// would then delete the new file.
TEST_F(ConversionLocksTest, AConnectionToTheOldFileFindsNoDamage) {
  const Connection late = connection_to(file());
  encrypt();
  EXPECT_EQ(SQLITE_OK, run(late, "select count(*) from sqlite_master"));
  EXPECT_EQ(SQLITE_OK, run(late, "pragma integrity_check"));
  EXPECT_NE(SQLITE_OK, run(late, "create table t(a)"));
  EXPECT_TRUE(opens());
}

TEST_F(ConversionLocksTest, AConversionThatWaitedForTheOldFileDoesNotReplaceTheNewOne) {
  const auto before = contents();
  EXPECT_EQ(0, status_of_child([this] {
              const Connection late = connection_to(file());
              if (encrypt_store(pathname(), test_key(1)).result != ConversionResult::kDone)
                return 1;
              return run(late, "begin exclusive") == SQLITE_OK ? 0 : 2;
            }));
  StoreKeys::set(pathname(), test_key(1));
  EXPECT_EQ(before, contents());
}

// With a wrong key, SQLite would write the pages of the journal back in another form.
TEST_F(ConversionLocksTest, AWrongKeyLeavesTheJournalOfAKilledTransaction) {
  encrypt(1);
  const auto before = contents();
  const int status = status_of_child([this] {
    const Connection killed = connection_to(file());
    run(killed, "pragma journal_mode=delete");
    run(killed, "pragma cache_size=1");
    run(killed, "begin");
    run(killed, "update t_message set content=content||hex(randomblob(2000))");
    raise(SIGKILL);
    return 0;
  });
  ASSERT_TRUE(WIFSIGNALED(status));
  ASSERT_TRUE(std::filesystem::exists(file() + "-journal"));
  const auto files = files_of(store_folder());
  StoreKeys::set(pathname(), test_key(2));
  EXPECT_FALSE(opens());
  EXPECT_EQ(Corvan::KeyRefusal::kWrongKey, StoreKeys::last_refusal());
  EXPECT_TRUE(files == files_of(store_folder()));
  StoreKeys::set(pathname(), test_key(1));
  EXPECT_EQ(before, contents());
}

}  // namespace

}  // namespace corvan_test
