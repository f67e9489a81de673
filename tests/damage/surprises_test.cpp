// Behaviour with damaged files that may surprise callers.

#include <sqlite3.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/damage/child.h"
#include "tests/damage/examination.h"
#include "tests/damage/files.h"
#include "tests/support/failures.h"
#include "tests/support/store_library.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::MessageResponse;

const std::string kNoise(2 * kPage, 'x');
const std::string kMalformed = "database disk image is malformed";

class DamageSurprises : public StoreTest {
 protected:
  // A process has one store, so the files are made with it before the test opens it.
  static void SetUpTestSuite() {
    prefer_memory();
    closed_store();
    other_store();
  }

  // Closes the store and replaces its files.
  void lay(const Files& files) {
    store().close_db();
    for (const char* name : {"corvan", "corvan-wal", "corvan-shm"}) {
      std::filesystem::remove(folder.file(name));
    }
    write_files(folder.path(), files);
    log.take();
  }
  void lay(const std::string& content) { lay(Files{{"", content}}); }

  // Whether a file is open. Reads a row, because a statement that reads nothing notices no damage.
  bool is_open() { return store().is_table_exist("t_message"); }
  bool deleted() const { return !file_exists(file()); }
  // The names of the folder's files, sorted.
  Rows files() const {
    Rows names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  // Whether damage at a prepare has been logged since the last call.
  bool met_at_prepare() {
    const Rows lines = log.take();
    return std::any_of(lines.begin(), lines.end(), tells_of_damage_at_prepare);
  }

  // Changes a byte of the page that contains the oldest messages.
  void expect_changed_byte_noticed() {
    lay(closed_store());
    const auto page = std::stoul(rows("select pageno from dbstat where name='t_message' and "
                                      "pagetype='leaf' order by path limit 1")
                                     .front());
    Files files = closed_store();
    char& byte = files[""][(page - 1) * kPage + kPage / 2];
    byte = static_cast<char>(byte ^ 1);
    lay(files);
    ASSERT_EQ(store().open_db(), SQLITE_OK);
    MessageResponse message;
    message.msg_id_ = 2;
    EXPECT_FALSE(store().get_message_by_id(message));
    EXPECT_EQ(log.take(), run_failed(SQLITE_CORRUPT, kMalformed));
    std::string result;
    EXPECT_FALSE(store().check_integrity(result));
    store().close_db();
    EXPECT_EQ(read_file(file()), files[""]);
  }

  // Opens the closed store's file. This reads no more than its schema.
  void open_closed_store() {
    lay(closed_store());
    ASSERT_TRUE(open());
    store().close_db();
    ASSERT_TRUE(open());
    ASSERT_EQ(log.take(), Rows{});
  }
};

// ---- Opening a damaged file deletes it ----------------------------------------------------------

TEST_F(DamageSurprises, OpeningReturnsTrueAlthoughItDeletedTheFileAndClosedTheStore) {
  lay(kNoise);
  if (is_refused(SQLITE_NOTADB)) return;
  EXPECT_TRUE(open());
  EXPECT_EQ(log.take(), Rows{prepare_failed(sqlite3_errstr(SQLITE_NOTADB), SQLITE_NOTADB)});
  EXPECT_TRUE(deleted());
  EXPECT_FALSE(is_open());
  EXPECT_EQ(save(NewMessage()), -1);
  EXPECT_TRUE(open());
  EXPECT_TRUE(is_open());
  EXPECT_EQ(save(NewMessage()), 1);
  EXPECT_EQ(rows("select content from t_message"), Rows{"hello"});
}

// ---- Damage of another file deletes the open one ------------------------------------------------

TEST_F(DamageSurprises, DamagedOlderStoreIsNotAttachedAndNothingIsDeleted) {
  for (const std::string& damaged : {kNoise, closed_store().at("").substr(0, 2 * kPage)}) {
    write_file(folder.file("old"), damaged);
    EXPECT_LT(store().execute_none_query("attach '" + folder.file("old") + "' as odb"), SQLITE_ROW);
    EXPECT_EQ(log.take().size(), 2U);  // of the step
    store().createdb_copydata();
    EXPECT_EQ(log.take(), Rows{no_table("odb.sqlite_master")});
    EXPECT_TRUE(is_open());
    EXPECT_EQ(read_file(folder.file("old")), damaged);
  }
  EXPECT_EQ(save(NewMessage()), 1);
}

// Attaches a sound older store and then damages it. SQLite reads its schema again after the open
// store has been compacted.
class DamagedWhileAttached : public DamageSurprises {
 protected:
  void SetUp() override {
    DamageSurprises::SetUp();
    ASSERT_EQ(save(NewMessage()), 1);
    write_file(folder.file("old"), closed_store().at(""));
    ASSERT_EQ(store().execute_none_query("attach '" + folder.file("old") + "' as odb"),
              SQLITE_DONE);
    write_file(folder.file("old"), kNoise);
    log.take();
  }

  void expect_only_the_sound_file_deleted() {
    EXPECT_TRUE(met_at_prepare());
    EXPECT_FALSE(is_open());
    EXPECT_TRUE(deleted());
    EXPECT_EQ(read_file(folder.file("old")), kNoise);
    EXPECT_TRUE(open());
    EXPECT_EQ(rows("select count(*) from t_message"), Rows{"0"});
  }
};

TEST_F(DamagedWhileAttached, AnyStatementDeletesTheSoundOpenFile) {
  store().execute_none_query("vacuum");
  int32_t unread = 0;
  EXPECT_FALSE(store().get_total_unread_count(unread));
  expect_only_the_sound_file_deleted();
}

TEST_F(DamagedWhileAttached, CopyDeletesTheSoundOpenFile) {
  store().execute_none_query("vacuum");
  store().createdb_copydata();
  expect_only_the_sound_file_deleted();
}

// SQLite still knows the schema that it read when attaching.
TEST_F(DamagedWhileAttached, CopyThatFindsDamageWhileSteppingKeepsBothFiles) {
  store().createdb_copydata();
  EXPECT_FALSE(met_at_prepare());
  EXPECT_TRUE(is_open());
  EXPECT_EQ(rows("select content from t_message"), Rows{"hello"});
  EXPECT_EQ(read_file(folder.file("old")), kNoise);
}

TEST_F(DamageSurprises, OpeningADamagedFileByNameDeletesThePreviouslyOpenedFile) {
  ASSERT_EQ(save(NewMessage()), 1);
  store().close_db();
  write_file(folder.file("other"), kNoise);
  ASSERT_EQ(store().open_db(folder.file("other")), SQLITE_OK);
  EXPECT_FALSE(is_open());
  EXPECT_TRUE(met_at_prepare());
  EXPECT_TRUE(deleted());
  EXPECT_EQ(read_file(folder.file("other")), kNoise);
}

// ---- Damage found while stepping ----------------------------------------------------------------

// The damage is outside the first page, which contains the schema that SQLite reads when it
// prepares a statement.
TEST_F(DamageSurprises, DamageFoundWhileSteppingIsLoggedAndTheFileKept) {
  Files files = closed_store();
  files[""].replace(kPage, std::string::npos, files[""].size() - kPage, '\xff');
  lay(files);
  ASSERT_EQ(store().open_db(), SQLITE_OK);
  MessageResponse message;
  message.msg_id_ = 1;
  EXPECT_FALSE(store().get_message_by_id(message));
  EXPECT_EQ(log.take(), run_failed(SQLITE_CORRUPT, kMalformed));
  EXPECT_EQ(save(NewMessage()), -1);
  EXPECT_FALSE(met_at_prepare());
  EXPECT_TRUE(is_open());
  store().close_db();
  EXPECT_EQ(read_file(file()), files[""]);
  ASSERT_TRUE(open());
  EXPECT_FALSE(met_at_prepare());
  EXPECT_TRUE(is_open());
}

// ---- "-wal" and "-shm" of a deleted file --------------------------------------------------------

// Closing the connection deletes them, whatever they contain.
TEST_F(DamageSurprises, LogAndIndexAreDeletedWithTheFile) {
  lay({{"", kNoise}, {"-wal", kNoise}, {"-shm", kNoise}});
  if (is_refused(SQLITE_NOTADB)) return;
  EXPECT_TRUE(open());
  EXPECT_TRUE(met_at_prepare());
  EXPECT_EQ(files(), Rows{});
}

// The next opening deletes a log beside an empty file.
TEST_F(DamageSurprises, NewStoreIgnoresTheLogOfTheDeletedFile) {
  lay(kNoise);
  if (is_refused(SQLITE_NOTADB)) return;
  EXPECT_TRUE(open());
  ASSERT_TRUE(deleted());
  write_file(folder.file("corvan-wal"), crashed_store().at("-wal"));
  write_file(folder.file("corvan-shm"), crashed_store().at("-shm"));
  EXPECT_TRUE(open());
  EXPECT_TRUE(is_open());
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"0"});
  EXPECT_EQ(rows("pragma integrity_check"), Rows{"ok"});
  EXPECT_EQ(save(NewMessage()), 1);
  store().close_db();
  EXPECT_EQ(files(), Rows{"corvan"});
}

// The files that a crashed process leaves, with an unreadable schema that is only in "-wal".
Files store_with_damaged_schema_in_log() {
  const TemporaryFolder own;
  write_files(own.path(), closed_store());
  sqlite3* db = nullptr;
  sqlite3_open(own.file("corvan").c_str(), &db);
  sqlite3_exec(db,
               "pragma writable_schema=on;"
               "update sqlite_master set sql='create nonsense' where name='t_session'",
               nullptr, nullptr, nullptr);
  const Files files = read_files(own.path());
  sqlite3_close_v2(db);
  return files;
}

TEST_F(DamageSurprises, LogWithADamagedSchemaIsDeletedWithTheFile) {
  const Files damaged = store_with_damaged_schema_in_log();
  ASSERT_EQ(damaged.at(""), closed_store().at(""));
  lay(damaged);
  if (is_refused(SQLITE_CORRUPT)) return;
  EXPECT_TRUE(open());
  EXPECT_TRUE(met_at_prepare());
  EXPECT_EQ(files(), Rows{});
}

// They stay as long as another connection has the file open. The store itself never opens a second
// one.
TEST_F(DamageSurprises, LogAndIndexAreKeptWhileAnotherConnectionIsOpen) {
  SKIP_IF_ENCRYPTED("no other connection can be opened to this file");
  const Files damaged = store_with_damaged_schema_in_log();
  lay(damaged);
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(file().c_str(), &other), SQLITE_OK);
  sqlite3_exec(other, "pragma user_version", nullptr, nullptr, nullptr);
  EXPECT_TRUE(open());
  EXPECT_TRUE(met_at_prepare());
  EXPECT_EQ(files(), (Rows{"corvan-shm", "corvan-wal"}));
  EXPECT_EQ(read_file(folder.file("corvan-wal")), damaged.at("-wal"));
  sqlite3_close_v2(other);
  EXPECT_EQ(files(), (Rows{"corvan-shm", "corvan-wal"}));
  EXPECT_TRUE(open());
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"0"});
  EXPECT_EQ(rows("pragma integrity_check"), Rows{"ok"});
}

// A statement that the caller holds keeps the old connection open. It can be finalised after the
// next opening without disturbing it.
TEST_F(DamageSurprises, HeldStatementOutlivesTheDeletedFile) {
  ASSERT_EQ(save(NewMessage()), 1);
  int32_t rc = 0;
  sqlite3_stmt* held = store().prepare_sql("select content from t_message", rc);
  sqlite3* old_connection = sqlite3_db_handle(held);
  plant(
      "pragma writable_schema=on; pragma schema_version=100;"
      "update sqlite_master set sql='create nonsense' where name='t_session'");
  store().is_table_exist("t_message");  // notices the changed schema
  EXPECT_FALSE(is_open());
  EXPECT_TRUE(met_at_prepare());
  EXPECT_EQ(files(), (Rows{"corvan-shm", "corvan-wal"}));
  EXPECT_TRUE(open());
  EXPECT_EQ(save(NewMessage().text("new")), 1);
  EXPECT_EQ(sqlite3_finalize(held), SQLITE_OK);
  EXPECT_EQ(close_connection(old_connection), SQLITE_OK);
  EXPECT_EQ(save(NewMessage().text("newer")), 2);
  EXPECT_EQ(rows("select content from t_message"), (Rows{"new", "newer"}));
  EXPECT_EQ(rows("pragma integrity_check"), Rows{"ok"});
}

// ---- A file cut short while it is open ----------------------------------------------------------

// SQLite has read the schema already, so every statement can be prepared.
TEST_F(DamageSurprises, FileTruncatedWhileOpenFailsAndIsKept) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{100}, kPage, 20 * kPage + 7}) {
    open_closed_store();
    std::filesystem::resize_file(file(), size);
    int32_t count = 0;
    store().get_message_count("room1", Corvan::CV_GROUP, count);
    EXPECT_EQ(log.take(), run_failed(SQLITE_CORRUPT, kMalformed)) << size;
    EXPECT_EQ(save(NewMessage()), -1) << size;
    EXPECT_NE(store_connection(), nullptr) << size;
    store().close_db();
    EXPECT_FALSE(met_at_prepare()) << size;
    EXPECT_EQ(std::filesystem::file_size(file()), size);
  }
}

// The next opening deletes what is left, or makes a new store if nothing is left.
TEST_F(DamageSurprises, FileTruncatedWhileOpenIsLostAtTheNextOpening) {
  for (const std::size_t size : {std::size_t{0}, std::size_t{100}, kPage, 20 * kPage + 7}) {
    open_closed_store();
    std::filesystem::resize_file(file(), size);
    store().close_db();
    if (size > 0 && is_refused(size < kPage ? SQLITE_NOTADB : SQLITE_CORRUPT)) continue;
    EXPECT_TRUE(open());
    EXPECT_EQ(met_at_prepare(), size > 0) << size;
    EXPECT_EQ(deleted(), size > 0) << size;
    EXPECT_TRUE(open());
    EXPECT_EQ(rows("select count(*) from t_message"), Rows{"0"}) << size;
  }
}

// This also deletes an encrypted file: the key was tried when the file was opened.
TEST_F(DamageSurprises, FirstPageDamagedWhileOpenDeletesTheFileIfTheSchemaIsReadAgain) {
  open_closed_store();
  write_file(file(), overwritten(closed_store().at(""), 100, std::string(8, '\xff')));
  store().execute_none_query("pragma shrink_memory");  // SQLite forgets the page,
  store().execute_none_query("vacuum");                // and then the schema
  EXPECT_FALSE(is_open());
  EXPECT_TRUE(met_at_prepare());
  EXPECT_TRUE(deleted());
}

// ---- Checking for damage ------------------------------------------------------------------------

TEST_F(DamageSurprises, IntegrityCheckDeletesAFileWhoseSchemaItCannotRead) {
  for (const std::string& damaged :
       {kNoise, overwritten(closed_store().at(""), 100, std::string(8, '\xff'))}) {
    lay(damaged);
    if (is_refused(SQLITE_NOTADB)) continue;
    ASSERT_EQ(store().open_db(), SQLITE_OK);
    std::string result;
    EXPECT_FALSE(store().check_integrity(result));
    EXPECT_EQ(result, "not a database file");
    EXPECT_TRUE(met_at_prepare());
    EXPECT_TRUE(deleted());
  }
}

TEST_F(DamageSurprises, IntegrityCheckReportsADamagedPageAndKeepsTheFile) {
  Files files = closed_store();
  files[""].replace(kPage, kPage, kPage, '\xff');
  lay(files);
  ASSERT_EQ(store().open_db(), SQLITE_OK);
  std::string result;
  EXPECT_FALSE(store().check_integrity(result));
  EXPECT_NE(result, "");
  EXPECT_NE(result, "not a database file");
  EXPECT_FALSE(met_at_prepare());
  store().close_db();
  EXPECT_EQ(read_file(file()), files[""]);
}

// A cipher that authenticates pages notices it.
TEST_F(DamageSurprises, IntegrityCheckDoesNotNoticeAChangedText) {
  if (stores_are_encrypted()) return expect_changed_byte_noticed();
  Files files = closed_store();
  const std::size_t at = files[""].find("room1:b");
  ASSERT_NE(at, std::string::npos);
  files[""][at + 6] = 'B';
  lay(files);
  ASSERT_TRUE(open());
  std::string result;
  EXPECT_TRUE(store().check_integrity(result));
  MessageResponse message;
  message.msg_id_ = 2;
  EXPECT_TRUE(store().get_message_by_id(message));
  EXPECT_EQ(message.content_, "room1:B");
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(DamageSurprises, UnlockCheckNeverDeletesTheFile) {
  const std::string malformed = overwritten(closed_store().at(""), 100, std::string(8, '\xff'));
  for (const auto& [damaged, code] :
       {std::pair{kNoise, SQLITE_NOTADB}, std::pair{malformed, SQLITE_CORRUPT}}) {
    lay(damaged);
    if (is_refused(SQLITE_NOTADB)) continue;
    ASSERT_EQ(store().open_db(), SQLITE_OK);
    EXPECT_EQ(store().is_db_unlocked(""), code);
    EXPECT_EQ(log.take(), Rows{});
    store().close_db();
    EXPECT_EQ(read_file(file()), damaged);
  }
}

}  // namespace
}  // namespace corvan_test
