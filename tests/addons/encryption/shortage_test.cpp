// Memory runs out, or a read fails, while a store is opened. The opening may fail, but no file is
// lost, nothing is stored in plain text, and the key still opens the store.

#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "tests/addons/encryption/keys_fixture.h"
#include "tests/addons/encryption/sqlite_faults.h"
#include "tests/support/bounds.h"

namespace corvan_test {

namespace {

// Runs `attempt` in a child process. SQLCipher 3.4 can crash when it has no memory: -1 then.
int in_child(const std::function<int()>& attempt) {
  const pid_t child = fork();
  if (child == 0) _exit(attempt());
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  EXPECT_EQ(cipher(), Cipher::kSqlcipher) << "signal " << WTERMSIG(status);
  return -1;
}

class Shortage : public Keys {
 protected:
  static constexpr int kCount = 12;

  void SetUp() override {
    CORVAN_NEED_CIPHER();
    files = fill(folder.path(), 1, kCount);
    files_with_log();
  }
  // The last message is only in the log.
  void files_with_log() {
    ASSERT_TRUE(open());
    ASSERT_TRUE(save(kCount));
    files = files_in(folder.path());
    close();
  }

  // SQLCipher 3.4 does not survive failures in its first connection, so the others come later.
  class OtherStore {
   public:
    OtherStore() : key_(place_.path()), connection_(place_.file("corvan")) {}

   private:
    struct Key {
      explicit Key(const std::string& place) : place_(place) { StoreKeys::set(place_, key(9)); }
      ~Key() { StoreKeys::forget(place_); }
      cvrtc::Pathname place_;
    };
    TemporaryFolder place_;
    Key key_;
    Connection connection_;
  };

  // SQLite3 Multiple Ciphers hides some failures of its pragmas; it then looks like no cipher.
  static void expect_shortage(int code) {
    EXPECT_TRUE(code == SQLITE_OK || code == SQLITE_NOMEM || code == SQLITE_AUTH) << code;
  }

  std::string file() const { return folder.file("corvan"); }

  // After a fault: the file is there, its messages too, and nothing is plain text.
  void expect_complete() const {
    ASSERT_EQ(files_in(folder.path()).count("corvan"), 1U);
    expect_messages(folder.path(), 1, kCount + 1);
    EXPECT_EQ(plaintext_below(folder.path()), "");
  }

  // Opens the file with a connection of its own. 0 if nothing failed any more, otherwise 1 plus
  // SQLite's result code.
  int open_with_fault(int number, bool all_later) const {
    FailingMemory::fail(number, all_later);
    const Connection connection(file());
    const bool failed = FailingMemory::stop();
    // What the connection stores, if it was opened at all, must be encrypted with the key.
    if (connection.code() == SQLITE_OK) {
      connection.run("create table kept(word)");
      connection.run("insert into kept values('" + planted_word() + "')");
    }
    return failed ? 1 + connection.code() : 0;
  }
  void expect_kept(bool was_opened) const {
    EXPECT_EQ(plaintext_below(folder.path()), "");
    const Connection again(file());
    ASSERT_EQ(again.code(), SQLITE_OK) << to_text(StoreKeys::last_refusal());
    if (was_opened) {
      EXPECT_EQ(again.texts("select word from kept"), std::vector<std::string>{planted_word()});
    }
  }

  // Lets each allocation of sqlite3_open_v2(), and of the function that it calls, fail in a child
  // process. Starts with these files each time, and calls `check` afterwards.
  void at_each_allocation_of_opening(const Files& before,
                                     const std::function<void(bool was_opened)>& check) {
    const FailingMemory memory;
    const OtherStore other;
    ASSERT_TRUE(StoreKeys::set(path(folder.path()), key(1)));
    for (const bool all_later : {false, true}) {
      int result = 1;
      for (int number = 1; result != 0 && !HasFailure(); ++number) {
        SCOPED_TRACE(testing::Message() << "allocation " << number << " all later " << all_later);
        put_files(folder.path(), before);
        result = in_child([this, number, all_later] { return open_with_fault(number, all_later); });
        if (result >= 0) expect_shortage(result == 0 ? SQLITE_OK : result - 1);
        check(result == 0 || result == 1 + SQLITE_OK);
      }
    }
  }

  Files files;
};

TEST_F(Shortage, OfMemoryWhileStoreIsOpened) {
  const uint64_t share = bound("CORVAN_KEYS_MEMORY_SHARE", 9, 1);
  const FailingMemory memory;
  const OtherStore other;
  ASSERT_TRUE(StoreKeys::set(path(folder.path()), key(1)));
  for (const bool all_later : {false, true}) {
    bool failed = true;
    for (int number = 1; failed && !HasFailure(); number += static_cast<int>(share)) {
      SCOPED_TRACE(testing::Message() << "allocation " << number << " all later " << all_later);
      put_files(folder.path(), files);
      FailingMemory::fail(number, all_later);
      const bool opened = open();
      failed = FailingMemory::stop();
      EXPECT_TRUE(opened || files_in(folder.path()) == files);
      close();
      expect_complete();
    }
  }
}

TEST_F(Shortage, OfMemoryWhileNewFileIsKeyed) {
  at_each_allocation_of_opening({}, [this](bool was_opened) { expect_kept(was_opened); });
}

TEST_F(Shortage, OfMemoryWhileEncryptedFileIsKeyed) {
  at_each_allocation_of_opening(files, [this](bool /*was_opened*/) {
    if (files_in(folder.path()) != files) expect_complete();
  });
  expect_complete();
}

// SQLite's log can quote the text of a statement that fails.
TEST_F(Shortage, OfMemoryPutsNoKeyIntoSqlitesLog) {
  const FailingMemory memory;
  const SqliteLog sqlite_log;
  const OtherStore other;
  ASSERT_TRUE(StoreKeys::set(path(folder.path()), key(1)));
  put_files(folder.path(), {});
  for (const bool all_later : {false, true}) {
    int result = 1;
    for (int number = 1; result != 0 && !HasFailure(); ++number) {
      SCOPED_TRACE(testing::Message() << "allocation " << number << " all later " << all_later);
      result = in_child([this, number, all_later, &sqlite_log] {
        FailingMemory::fail(number, all_later);
        const Connection connection(file());
        const bool failed = FailingMemory::stop();
        for (const std::string& line : sqlite_log.lines()) {
          if (contains_key(line)) return 2;
        }
        return failed ? 1 : 0;
      });
      EXPECT_LT(result, 2) << "SQLite's log has the key";
    }
  }
}

// With a wrong key, without a key, and with only a mark, a shortage must not open the file.
TEST_F(Shortage, OfMemoryDoesNotAcceptWrongKey) {
  const FailingMemory memory;
  const OtherStore other;
  const auto know = [this](int state) {
    StoreKeys::forget(path(folder.path()));
    if (state == 1) StoreKeys::expect(path(folder.path()));
    if (state == 2) StoreKeys::set(path(folder.path()), key(2));
    StoreKeys::install();
  };
  for (int state = 0; state < 3; ++state) {
    know(state);
    int result = 1;
    for (int number = 1; result != 0 && !HasFailure(); ++number) {
      SCOPED_TRACE(testing::Message() << "allocation " << number << " state " << state);
      put_files(folder.path(), files);
      result = in_child([this, number] {
        FailingMemory::fail(number, false);
        const bool opened = open();
        return (FailingMemory::stop() ? 1 : 0) + (opened ? 2 : 0);
      });
      EXPECT_LT(result, 2);
      EXPECT_TRUE(files_in(folder.path()) == files);
    }
  }
  expect_complete();
}

class FailingRead : public Shortage {
 protected:
  // Opens with each read failing in turn.
  template <typename Check>
  void fail_each_read(const Check& check) {
    for (const bool all_later : {false, true}) {
      bool failed = true;
      for (int number = 1; failed && !HasFailure(); ++number) {
        SCOPED_TRACE(testing::Message() << "read " << number << " all later " << all_later);
        put_files(folder.path(), files);
        bool opened = false;
        {
          const FailingReads reads(number, all_later);
          opened = open();
          failed = FailingReads::has_failed();
        }
        check(opened);
        close();
      }
    }
  }
};

TEST_F(FailingRead, LosesNothingWithTheKey) {
  StoreKeys::set(path(folder.path()), key(1));
  // With the right key, older releases write the log back when the connection is closed.
  const bool may_write = sqlite3_libversion_number() < 3016000;
  fail_each_read([this, may_write](bool opened) {
    EXPECT_TRUE(opened || may_write || files_in(folder.path()) == files);
    expect_complete();
  });
}

TEST_F(FailingRead, LosesNothingWithWrongKey) {
  StoreKeys::set(path(folder.path()), key(2));
  fail_each_read([this](bool opened) {
    EXPECT_FALSE(opened);
    EXPECT_TRUE(files_in(folder.path()) == files);
  });
  expect_complete();
}

TEST_F(FailingRead, LosesNothingWithoutKey) {
  StoreKeys::forget(path(folder.path()));
  fail_each_read([this](bool opened) {
    EXPECT_FALSE(opened);
    EXPECT_TRUE(files_in(folder.path()) == files);
  });
  expect_complete();
}

TEST_F(FailingRead, LosesNothingOfPlainStoreWithKey) {
  put_files(folder.path(), {});
  files = fill_plain(folder.path(), kCount);
  StoreKeys::set(path(folder.path()), key(1));
  fail_each_read([this](bool opened) {
    EXPECT_FALSE(opened);
    EXPECT_TRUE(files_in(folder.path()) == files);
  });
}

// The lock of another connection, in exclusive mode, makes the probe fail.
TEST_F(Shortage, OfAccessWhileFileIsLocked) {
  StoreKeys::set(path(folder.path()), key(1));
  {
    const Connection holder(file());
    ASSERT_EQ(holder.run("pragma locking_mode=exclusive; begin exclusive; "
                         "update t_message set sent_status=0"),
              SQLITE_OK);
    EXPECT_FALSE(open());
    EXPECT_EQ(StoreKeys::last_refusal(), KeyRefusal::kUnreadable);
    StoreKeys::set(path(folder.path()), key(2));
    EXPECT_FALSE(open());
    StoreKeys::forget(path(folder.path()));
    EXPECT_FALSE(open());
    EXPECT_EQ(StoreKeys::last_refusal(), KeyRefusal::kNoKey);
    ASSERT_EQ(holder.run("commit"), SQLITE_OK);
  }
  expect_complete();
}

}  // namespace

}  // namespace corvan_test
