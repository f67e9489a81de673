// Opens files that are not stores, or only partly, and checks what happens to each.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "db/cv_db_singleton.h"
#include "tests/damage/child.h"
#include "tests/damage/examination.h"
#include "tests/damage/files.h"
#include "tests/support/encryption.h"
#include "tests/support/log_capture.h"
#include "tests/support/privileges.h"
#include "tests/support/rows.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

namespace fs = std::filesystem;

// What happened to a file, in words.
std::string fate(const Ended& ended) {
  const Outcome& outcome = ended.outcome;
  const std::string breach = ended.otherwise + outcome.complaint.data();
  if (!breach.empty()) return breach;
  if (outcome.deleted) return std::string("deleted by ") + outcome.deleted_by.data();
  if (!outcome.opened) return outcome.changed ? "not opened, and changed" : "not opened";
  std::string text = outcome.changed ? "kept and written" : "kept as it was";
  if (outcome.wrong) text += ", other rows read";
  if (outcome.failed) text += ", failing";
  return text;
}

// What happens to a file that SQLite takes for damaged as soon as it reads it. If the stores are
// encrypted, it does so when the key is tried, before the store's first statement.
std::string lost() {
  return stores_are_encrypted() ? "not opened" : "deleted by init_open_db";
}

// What happens to a file on which the key cannot be tried; the store would open it.
std::string unreadable() {
  return stores_are_encrypted() ? "not opened" : "kept as it was, failing";
}

// What the line in the log contains: `text`, or SQLite's name of `code` if the key was refused.
std::string logged(const std::string& text, int code) {
  return stores_are_encrypted() ? std::string("(") + sqlite3_errstr(code) + ")" : text;
}

const std::string kWorks = "kept and written";
const std::string kWorksInPart = "kept and written, failing";

class FileKinds : public testing::Test {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }
  FileKinds() { other_store(); }

  // Examines the files in the folder.
  const Ended& examined(const Expected& expected = {}) {
    last_ = in_child([&](Outcome& outcome) { examine(folder.path(), expected, outcome); });
    return last_;
  }
  std::string fate_here(const Expected& expected = {}) { return fate(examined(expected)); }

  // The same in a new folder.
  std::string fate_of(const Files& files, const Expected& expected = {}) {
    const TemporaryFolder own;
    write_files(own.path(), files);
    last_ = in_child([&](Outcome& outcome) { examine(own.path(), expected, outcome); });
    return fate(last_);
  }
  std::string fate_of(const std::string& content) { return fate_of(Files{{"", content}}); }

  // The first failure that was logged.
  std::string failure() const { return last_.outcome.failure.data(); }

  std::string file() const { return folder.file("corvan"); }
  void plant_file(const std::string& sql) const { plant(file(), sql); }

  static Expected closed_answers() { return {answers_of(closed_store()), true}; }
  static Expected crashed_answers() { return {answers_of(crashed_store()), true}; }

  TemporaryFolder folder;

 private:
  Ended last_;
};

// The closed store with `bytes` written into its file header. In an encrypted file these can be
// there already; then the first is another one.
std::string with_header(std::size_t at, const std::string& bytes) {
  const std::string& store = closed_store().at("");
  std::string changed = overwritten(store, at, bytes);
  if (changed == store) changed[at] = static_cast<char>(changed[at] ^ 1);
  return changed;
}

// ---- Other formats ------------------------------------------------------------------------------

TEST_F(FileKinds, FileOfAnotherFormatIsDeletedAtPrepare) {
  Random random(1);
  const std::map<std::string, std::string> formats{
      {"PNG", "\x89PNG\r\n\x1a\n" + random.bytes(6000)},
      {"ZIP", "PK\x03\x04" + random.bytes(6000)},
      {"gzip", "\x1f\x8b\x08" + random.bytes(6000)},
      {"text", std::string(5000, 't')},
      {"a short text", "no database\n"},
      {"encrypted", random.bytes(10 * kPage)},
  };
  for (const auto& [name, content] : formats) {
    EXPECT_EQ(fate_of(content), lost()) << name;
    const std::string text = std::string(";;;26;;;") + sqlite3_errstr(SQLITE_NOTADB);
    EXPECT_NE(failure().find(logged(text, SQLITE_NOTADB)), std::string::npos) << failure();
  }
}

// An encrypted file begins with random bytes that nothing depends on.
TEST_F(FileKinds, FileOfAnOlderFormatOfSqliteIsDeletedAtPrepare) {
  const std::string content = with_header(0, "SQLite format 2");
  if (stores_are_encrypted()) {
    EXPECT_EQ(fate_of({{"", content}}, closed_answers()), kWorks);
    return;
  }
  EXPECT_EQ(fate_of(content), lost());
  const std::string text = std::string(";;;26;;;") + sqlite3_errstr(SQLITE_NOTADB);
  EXPECT_NE(failure().find(logged(text, SQLITE_NOTADB)), std::string::npos) << failure();
}

TEST_F(FileKinds, EmptyFileBecomesAStore) {
  EXPECT_EQ(fate_of(""), kWorks);
}

// SQLite treats it as an empty file.
TEST_F(FileKinds, FileOfOneByteBecomesAStore) {
  EXPECT_EQ(fate_of("x"), kWorks);
}

TEST_F(FileKinds, HeaderWithAnImpossiblePageSizeIsDeleted) {
  EXPECT_EQ(fate_of(with_header(16, std::string("\x00\x00", 2))), lost());
  EXPECT_EQ(fate_of(with_header(16, std::string("\x03\xe8", 2))), lost());
}

TEST_F(FileKinds, HeaderWithThePageSizeOfAnotherFileIsDeleted) {
  EXPECT_EQ(fate_of(with_header(16, std::string("\x02\x00", 2))), lost());
  EXPECT_EQ(fate_of(with_header(16, std::string("\x20\x00", 2))), lost());
}

TEST_F(FileKinds, HeaderWithAnotherTextEncodingIsDeleted) {
  for (const char encoding : {'\2', '\3'}) {
    EXPECT_EQ(fate_of(with_header(59, std::string(1, encoding))), lost());
    EXPECT_NE(failure().find(logged(";;;11;;;malformed database schema", SQLITE_NOTADB)),
              std::string::npos)
        << failure();
  }
}

// This also deletes files that a later release of SQLite wrote.
TEST_F(FileKinds, HeaderWithALaterReadVersionIsDeleted) {
  EXPECT_EQ(fate_of(with_header(19, "\x63")), lost());
  EXPECT_NE(failure().find(logged(";;;26;;;", SQLITE_NOTADB)), std::string::npos) << failure();
}

// This byte is neither encrypted nor authenticated.
TEST_F(FileKinds, HeaderWithALaterWriteVersionIsReadOnly) {
  EXPECT_EQ(fate_of({{"", with_header(18, "\x63")}}, closed_answers()), "kept as it was, failing");
  const char* const text = "step;;;8;;;attempt to write a readonly database";
  EXPECT_NE(failure().find(text), std::string::npos) << failure();
}

// SQLite does not report damage here: every operation fails, and nothing is deleted.
TEST_F(FileKinds, HeaderWithALaterSchemaFormatFailsAndIsKept) {
  write_file(file(), with_header(47, "\x05"));
  EXPECT_EQ(fate_here(), stores_are_encrypted() ? "not opened" : kWorksInPart);
  EXPECT_NE(failure().find(logged(";;;1;;;unsupported file format", SQLITE_NOTADB)),
            std::string::npos)
      << failure();
  EXPECT_EQ(read_file(file()).size(), closed_store().at("").size());
}

// ---- Files cut short ----------------------------------------------------------------------------

TEST_F(FileKinds, FileTruncatedAtAPageIsDeleted) {
  const std::string& whole = closed_store().at("");
  for (const std::size_t pages :
       {std::size_t{1}, std::size_t{2}, whole.size() / kPage / 2, whole.size() / kPage - 1}) {
    EXPECT_EQ(fate_of(whole.substr(0, pages * kPage)), lost()) << pages;
    EXPECT_NE(failure().find(logged(";;;11;;;", SQLITE_CORRUPT)), std::string::npos) << failure();
  }
}

TEST_F(FileKinds, FileTruncatedWithinTheFirstPageIsDeleted) {
  for (const std::size_t size :
       std::vector<std::size_t>{2, 15, 16, 50, 99, 100, 101, 511, 512, 513, 4095}) {
    EXPECT_EQ(fate_of(closed_store().at("").substr(0, size)), lost()) << size;
  }
}

TEST_F(FileKinds, TruncatedFileBecomesAnEmptyStoreWithoutALogLine) {
  EXPECT_EQ(fate_of({{"", ""}}, closed_answers()), "kept and written, other rows read");
}

// ---- Sound databases of other programs ----------------------------------------------------------

TEST_F(FileKinds, DatabaseWithOtherTablesReceivesTheSchemaAndKeepsItsRows) {
  plant_file("create table t_theirs(a); insert into t_theirs values('x')");
  EXPECT_EQ(fate_here(), kWorks);
  EXPECT_EQ(rows(file(), "select * from t_theirs"), Rows{"x"});
  EXPECT_EQ(rows(file(), "select database_version from t_version"), Rows{"1"});
}

// Everything works except copying an older store, which is in UTF-8.
TEST_F(FileKinds, Utf16DatabaseWorks) {
  plant_file("pragma encoding='UTF-16le'; create table t_theirs(a)");
  EXPECT_EQ(fate_here(), kWorksInPart);
  EXPECT_NE(failure().find("attached databases must use the same text encoding as main"),
            std::string::npos)
      << failure();
  EXPECT_EQ(rows(file(), "pragma encoding"), Rows{"UTF-16le"});
}

TEST_F(FileKinds, DatabaseWithAnotherPageSizeWorks) {
  plant_file("pragma page_size=1024; create table t_theirs(a)");
  EXPECT_EQ(fate_here(), kWorks);
  EXPECT_EQ(rows(file(), "pragma page_size"), Rows{"1024"});
}

TEST_F(FileKinds, MessageTableWithOtherColumnsFailsAndIsKept) {
  plant_file("create table t_message(a,b); insert into t_message values(1,2)");
  EXPECT_EQ(fate_here(), kWorksInPart);
  EXPECT_NE(failure().find(";;;1;;;"), std::string::npos) << failure();
  EXPECT_EQ(rows(file(), "select * from t_message"), Rows{"1|2"});
}

// The version makes it count as a store, so missing tables are not created.
TEST_F(FileKinds, VersionWithoutTheOtherTablesFailsAndIsKept) {
  plant_file("create table t_version(database_version); insert into t_version values('9')");
  EXPECT_EQ(fate_here(), kWorksInPart);
  EXPECT_NE(failure().find(";;;1;;;no such table: t_message"), std::string::npos) << failure();
  EXPECT_EQ(rows(file(), "select * from t_version"), Rows{"9"});
}

TEST_F(FileKinds, TriggersAndViewsOnOurTablesAreKeptAndRun) {
  write_files(folder.path(), closed_store());
  plant_file(
      "create table t_seen(id); create view t_view as select id from t_message;"
      "create trigger t_trigger after insert on t_message begin "
      "insert into t_seen values(new.id); end");
  EXPECT_EQ(fate_here(closed_answers()), kWorks);
  EXPECT_NE(rows(file(), "select count(*) from t_seen"), Rows{"0"});
  EXPECT_EQ(rows(file(), "select count(*) from sqlite_master where name in('t_view','t_trigger')"),
            Rows{"2"});
}

TEST_F(FileKinds, ViewInPlaceOfATableFailsAndIsKept) {
  plant_file("create view t_session as select 1 as session_id");
  EXPECT_EQ(fate_here(), kWorksInPart);
  EXPECT_NE(failure().find(";;;1;;;"), std::string::npos) << failure();
}

// ---- Names that are not regular files -----------------------------------------------------------

TEST_F(FileKinds, DirectoryFailsToOpen) {
  fs::create_directory(file());
  EXPECT_EQ(fate_here(), "not opened");
  EXPECT_TRUE(fs::is_directory(file()));
}

TEST_F(FileKinds, LinkToASoundFileIsFollowed) {
  write_file(folder.file("target"), closed_store().at(""));
  fs::create_symlink("target", file());
  EXPECT_EQ(fate_here(closed_answers()), kWorks);
  EXPECT_TRUE(fs::is_symlink(file()));
  EXPECT_EQ(rows(folder.file("target"), "select count(*) from t_session where session_id='pinned'"),
            Rows{"1"});
}

// The link is deleted; its target does not change.
TEST_F(FileKinds, LinkToADamagedFileIsDeletedWithoutItsTarget) {
  const std::string noise(2 * kPage, 'x');
  write_file(folder.file("target"), noise);
  fs::create_symlink("target", file());
  EXPECT_EQ(fate_here(), lost());
  EXPECT_EQ(fs::is_symlink(file()), stores_are_encrypted());
  EXPECT_EQ(read_file(folder.file("target")), noise);
}

TEST_F(FileKinds, LinkToNothingCreatesItsTarget) {
  fs::create_symlink("target", file());
  EXPECT_EQ(fate_here(), kWorks);
  EXPECT_TRUE(fs::is_regular_file(folder.file("target")));
}

TEST_F(FileKinds, LinkToItselfFailsToOpen) {
  fs::create_symlink("corvan", file());
  EXPECT_EQ(fate_here(), "not opened");
}

// ---- "-wal", "-shm" and "-journal" --------------------------------------------------------------

TEST_F(FileKinds, LogOfACrashedStoreIsReplayed) {
  EXPECT_EQ(fate_of(crashed_store(), crashed_answers()), kWorks);
}

TEST_F(FileKinds, RandomLogIsIgnored) {
  Random random(1);
  for (const std::size_t size : std::vector<std::size_t>{1, 31, 32, 5000, 50000}) {
    EXPECT_EQ(
        fate_of({{"", closed_store().at("")}, {"-wal", random.bytes(size)}}, closed_answers()),
        kWorks)
        << size;
  }
}

TEST_F(FileKinds, LogOfAnotherStoreBesideANewFileIsIgnored) {
  const std::string& log = other_store().at("-wal");
  const Expected empty{answers_of({}), true};
  EXPECT_EQ(fate_of({{"-wal", log}}, empty), kWorks);
  EXPECT_EQ(fate_of({{"", ""}, {"-wal", log}}, empty), kWorks);
}

// SQLite replays it, so its pages replace those with the same numbers, at first without an error.
TEST_F(FileKinds, LogOfAnotherStoreBesideASoundFileReplacesItsPages) {
  const std::string log = other_store().at("-wal");
  const std::string text = fate_of({{"", closed_store().at("")}, {"-wal", log}}, closed_answers());
  EXPECT_EQ(text.rfind("kept and written, other rows read", 0), 0U) << text;
}

// The log contains the first page, so SQLite accepts any file beside it.
TEST_F(FileKinds, LogWithTheFirstPageProtectsAFileThatIsNotADatabase) {
  const std::string log = crashed_store().at("-wal");
  const std::string text = fate_of({{"", std::string(2 * kPage, 'x')}, {"-wal", log}});
  EXPECT_EQ(text.rfind("kept and written", 0), 0U) << text;
}

TEST_F(FileKinds, RandomIndexIsRebuilt) {
  Random random(1);
  for (const std::size_t size : std::vector<std::size_t>{1, 136, 32768, 40000}) {
    Files files = crashed_store();
    files["-shm"] = random.bytes(size);
    EXPECT_EQ(fate_of(files, crashed_answers()), kWorks) << size;
  }
}

TEST_F(FileKinds, IndexWithoutItsLogIsRebuilt) {
  EXPECT_EQ(fate_of({{"", closed_store().at("")}, {"-shm", crashed_store().at("-shm")}},
                    closed_answers()),
            kWorks);
}

// Without a usable log nothing can be read; without its index nothing can be written.
TEST_F(FileKinds, DirectoryInPlaceOfTheLogFailsAndKeepsTheFile) {
  write_files(folder.path(), closed_store());
  fs::create_directory(folder.file("corvan-wal"));
  EXPECT_EQ(fate_here(), unreadable());
  EXPECT_NE(failure().find(logged(";;;14;;;unable to open database file", SQLITE_CANTOPEN)),
            std::string::npos)
      << failure();
  EXPECT_TRUE(fs::is_directory(folder.file("corvan-wal")));
}

TEST_F(FileKinds, DirectoryInPlaceOfTheIndexMakesTheFileReadOnly) {
  write_files(folder.path(), closed_store());
  fs::create_directory(folder.file("corvan-shm"));
  EXPECT_EQ(fate_here(closed_answers()), "kept as it was, failing");
  EXPECT_NE(failure().find(";;;8;;;attempt to write a readonly database"), std::string::npos)
      << failure();
  EXPECT_TRUE(fs::is_directory(folder.file("corvan-shm")));
}

// The store with half of a transaction in its file, and the journal that rolls it back.
Files store_with_hot_journal() {
  const TemporaryFolder folder;
  write_files(folder.path(), closed_store());
  plant(folder.file("corvan"), "pragma journal_mode=delete");
  const Files before = read_files(folder.path());
  sqlite3* db = nullptr;
  sqlite3_open(folder.file("corvan").c_str(), &db);
  // A cache so small that pages are written before the transaction ends.
  sqlite3_exec(db, "pragma cache_size=5; begin; update t_message set content='torn'", nullptr,
               nullptr, nullptr);
  Files files = read_files(folder.path());
  sqlite3_close_v2(db);
  const bool written = stores_are_encrypted() ? files.at("") != before.at("")
                                              : files.at("").find("torn") != std::string::npos;
  if (!written) throw std::runtime_error("nothing was written");
  return files;
}

TEST_F(FileKinds, HotRollbackJournalIsRolledBack) {
  write_files(folder.path(), store_with_hot_journal());
  EXPECT_EQ(fate_here(closed_answers()), kWorks);
  EXPECT_FALSE(file_exists(folder.file("corvan-journal")));
}

TEST_F(FileKinds, RandomJournalIsIgnored) {
  Random random(1);
  EXPECT_EQ(
      fate_of({{"", closed_store().at("")}, {"-journal", random.bytes(20000)}}, closed_answers()),
      kWorks);
  EXPECT_EQ(fate_of({{"-journal", random.bytes(20000)}}, {answers_of({}), true}), kWorks);
}

// ---- Without permission to write ----------------------------------------------------------------

// Files that must not be written, and some that must not be deleted.
class WithoutPermission : public FileKinds {
 protected:
  void lay(const Files& files, fs::perms folder_rights) const {
    write_files(folder.path(), files);
    write_file(folder.file("old"), other_store().at(""));
    for (const auto& entry : fs::directory_iterator(folder.path())) {
      fs::permissions(entry.path(), fs::perms(0444));
    }
    fs::permissions(folder.path(), folder_rights);
  }
  static constexpr auto kFolderOfAll = fs::perms(0777);
  static constexpr auto kFolderToRead = fs::perms(0555);

  Ended examined_without_rights(const Expected& expected) const {
    return in_child([&](Outcome& outcome) {
      if (!drop_privileges()) return complain(outcome, "cannot drop the privileges of root");
      examine(folder.path(), expected, outcome);
    });
  }
};

TEST_F(WithoutPermission, ReadOnlyFileIsReadAndKept) {
  Expected expected = closed_answers();
  lay(closed_store(), kFolderOfAll);
  EXPECT_EQ(fate(examined_without_rights(expected)), "kept as it was, failing");
}

TEST_F(WithoutPermission, FileInAReadOnlyFolderIsKept) {
  Expected expected = closed_answers();
  lay(closed_store(), kFolderToRead);
  EXPECT_EQ(fate(examined_without_rights(expected)), unreadable());
}

TEST_F(WithoutPermission, MissingFileInAReadOnlyFolderFailsToOpen) {
  lay({}, kFolderToRead);
  EXPECT_EQ(fate(examined_without_rights({})), "not opened");
}

// Deleting a file requires permission for its folder, not for the file.
TEST_F(WithoutPermission, DamagedReadOnlyFileIsDeleted) {
  lay({{"", std::string(2 * kPage, 'x')}}, kFolderOfAll);
  EXPECT_EQ(fate(examined_without_rights({})), lost());
}

TEST_F(WithoutPermission, DamagedFileInAReadOnlyFolderIsKept) {
  lay({{"", std::string(2 * kPage, 'x')}}, kFolderToRead);
  Expected expected;
  expected.can_unlink = false;
  EXPECT_EQ(fate(examined_without_rights(expected)), unreadable());
}

}  // namespace
}  // namespace corvan_test
