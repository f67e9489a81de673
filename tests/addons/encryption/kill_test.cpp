// The log of a killed process beside the store: whatever is tried without the right key, the
// messages in the log survive.

#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "tests/addons/encryption/keys_fixture.h"

namespace corvan_test {

namespace {

class KilledStore : public Keys {
 protected:
  static constexpr int kCount = 40;

  void SetUp() override { CORVAN_NEED_CIPHER(); }

  // A store whose last messages are only in its log, as a killed process leaves it.
  void fill_and_kill(int in_file, int in_log) {
    fill(folder.path(), 1, in_file);
    ASSERT_TRUE(open());
    for (int i = in_file; i < in_file + in_log; ++i) ASSERT_TRUE(save(i));
    files = files_in(folder.path());
    close();
    put_files(folder.path(), files);
    ASSERT_EQ(files.count("corvan-wal"), 1U);
    EXPECT_EQ(files_with_plaintext(folder.path()), "");
  }

  // Refused, with the file and the log as they were.
  void expect_log_kept(KeyRefusal reason) {
    expect_refused(folder.path(), reason);
    EXPECT_TRUE(files_in(folder.path()) == files);
  }

  Files files;
};

TEST_F(KilledStore, WrongKeyLeavesLog) {
  for (const int in_file : {0, kCount}) {
    fill_and_kill(in_file, kCount);
    for (const unsigned wrong : {2U, 3U}) {
      StoreKeys::set(path(folder.path()), key(wrong));
      expect_log_kept(KeyRefusal::kWrongKey);
    }
    expect_messages(folder.path(), 1, in_file + kCount);
    expect_no_plaintext();
    put_files(folder.path(), {});
  }
}

TEST_F(KilledStore, MissingKeyLeavesLog) {
  fill_and_kill(kCount, kCount);
  StoreKeys::clear(path(folder.path()));
  expect_log_kept(KeyRefusal::kNoKey);
  StoreKeys::forget(path(folder.path()));
  expect_log_kept(KeyRefusal::kNoKey);
  StoreKeys::expect(path(folder.path()));
  expect_log_kept(KeyRefusal::kNoKey);
  expect_messages(folder.path(), 1, 2 * kCount);
  expect_no_plaintext();
}

TEST_F(KilledStore, PlainStoreWithLogIsLeftAlone) {
  fill_plain(folder.path(), kCount);
  ASSERT_TRUE(open());
  ASSERT_TRUE(save(kCount));
  files = files_in(folder.path());
  close();
  put_files(folder.path(), files);
  StoreKeys::set(path(folder.path()), key(1));
  expect_log_kept(KeyRefusal::kNotEncrypted);
  StoreKeys::forget(path(folder.path()));
  ASSERT_TRUE(open());
  EXPECT_EQ(messages(), expected_messages(kCount + 1));
}

// The log of the killed process holds all pages, so a damaged page of the file shows only when a
// wrong key, or the right one, reads it.
TEST_F(KilledStore, DamagedFirstPageBesideLogIsKept) {
  fill_and_kill(kCount, kCount);
  files["corvan"].replace(100, 64, 64, 'x');
  put_files(folder.path(), files);
  for (const unsigned number : {2U, 1U}) {
    StoreKeys::set(path(folder.path()), key(number));
    open();
    close();
    EXPECT_EQ(files_in(folder.path()).count("corvan"), 1U);
    EXPECT_TRUE(number == 1 || files_in(folder.path()) == files);
  }
  StoreKeys::clear(path(folder.path()));
  const Files before = files_in(folder.path());
  EXPECT_FALSE(open());
  EXPECT_TRUE(files_in(folder.path()) == before);
}

// The log is cut off or damaged in many places: SQLite drops its end, and keeps the file.
TEST_F(KilledStore, DamagedLogKeepsTheFile) {
  fill_and_kill(kCount, 6);
  const std::string log_file = files.at("corvan-wal");
  for (std::size_t place = 0; place < log_file.size(); place += place < 80 ? 24 : 4603) {
    SCOPED_TRACE(place);
    for (const bool is_cut : {false, true}) {
      std::string& damaged = files["corvan-wal"];
      damaged = log_file;
      damaged[place] = static_cast<char>(damaged[place] ^ 4);
      if (is_cut) damaged.resize(place);
      for (const unsigned number : {2U, 1U}) {
        put_files(folder.path(), files);
        StoreKeys::set(path(folder.path()), key(number));
        const bool opened = open();
        EXPECT_EQ(opened, number == 1);
        EXPECT_EQ(plaintext_below(folder.path()), "");
        EXPECT_TRUE(!opened || messages().size() >= kCount);
        close();
      }
    }
  }
}

// A rollback journal: page by page, SQLite puts the old pages back when it next reads the file.
// Another program than the store has written it.
TEST_F(KilledStore, HotJournalSurvivesWrongKey) {
  fill(folder.path(), 1, kCount);
  {
    const Connection writer(folder.file("corvan"));
    ASSERT_EQ(writer.run("pragma journal_mode=delete"), SQLITE_OK);
    ASSERT_EQ(writer.run("pragma cache_size=5"), SQLITE_OK);
    ASSERT_EQ(writer.run("begin; update t_message set content=content||content||sender"),
              SQLITE_OK);
    files = files_in(folder.path());
    EXPECT_EQ(files_with_plaintext(folder.path()), "");
  }
  ASSERT_EQ(files.count("corvan-journal"), 1U);
  ASSERT_GT(files.at("corvan-journal").size(), 4096U);
  put_files(folder.path(), files);
  for (int i = 0; i < 2; ++i) {
    StoreKeys::set(path(folder.path()), key(2));
    EXPECT_FALSE(open());
    EXPECT_EQ(files_in(folder.path()).count("corvan"), 1U);
  }
  StoreKeys::clear(path(folder.path()));
  EXPECT_FALSE(open());
  expect_messages(folder.path(), 1, kCount);
}

// A process of its own saves until it is killed.
int saved_until_killed(const std::string& place, int count, int end) {
  int pipe_ends[2];
  if (pipe(pipe_ends) != 0) return -1;
  const pid_t child = fork();
  if (child == 0) {
    StoreKeys::set(cvrtc::Pathname(place), key(1));
    Corvan::CvDbSingleton& store = *Corvan::CvDbSingleton::get_instance();
    const bool opened = store.init_open_db(cvrtc::Pathname(place), "", "me");
    for (int i = 0; opened && i < count; ++i) {
      const std::string number = std::to_string(i);
      const std::string text = planted_word() + " " + number;
      const auto id =
          store.save_message(planted_word(), Corvan::CV_PRIVATE, "CV:TxtMsg", "peer", text, true, 0,
                             0, false, 1 + i, 0, number, false, false, true);
      if (id <= 0 || write(pipe_ends[1], "+", 1) != 1) break;
    }
    if (end != 0) raise(end);
    _exit(1);
  }
  ::close(pipe_ends[1]);
  int saved = 0;
  char mark = 0;
  while (read(pipe_ends[0], &mark, 1) == 1) ++saved;
  ::close(pipe_ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == end);
  return saved;
}

TEST_F(KilledStore, KilledProcessLosesNothing) {
  for (const int count : {0, 1, 30}) {
    close();
    put_files(folder.path(), {});
    ASSERT_EQ(saved_until_killed(folder.path(), count, SIGKILL), count);
    expect_no_plaintext();
    files = files_in(folder.path());
    StoreKeys::clear(path(folder.path()));
    EXPECT_FALSE(open());
    StoreKeys::set(path(folder.path()), key(2));
    EXPECT_FALSE(open());
    EXPECT_EQ(files_in(folder.path()).count("corvan"), 1U);
    StoreKeys::forget(path(folder.path()));
    EXPECT_FALSE(open());
    StoreKeys::set(path(folder.path()), key(1));
    ASSERT_TRUE(open());
    EXPECT_EQ(messages().size(), static_cast<std::size_t>(count));
    close();
    expect_no_plaintext();
  }
}

}  // namespace

}  // namespace corvan_test
