#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "base/cv_database.h"
#include "tests/support/store_library.h"
#include "tests/support/store_test.h"
#include "tests/support/unrecorded.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;
using cvrtc::Pathname;

const std::string mark_failed = "update t_message set sent_status=2 where sent_status=1";

class Lifecycle : public StoreTest {
 protected:
  // The files of the folder, sorted.
  Rows files() const {
    Rows names;
    for (const auto& entry : std::filesystem::directory_iterator(folder.path())) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  void remove_store_files() const {
    for (const char* name : {"corvan", "corvan-wal", "corvan-shm"}) {
      std::filesystem::remove(folder.file(name));
    }
  }

  // The statements of an opening, except secure_delete, which depends on how SQLite was built.
  static Rows opening_statements() {
    Rows statements = take_ledger();
    const auto end = std::remove(statements.begin(), statements.end(), "pragma secure_delete=ON");
    statements.erase(end, statements.end());
    return statements;
  }

  bool is_open() { return store().get_pragma("select 1") == 1; }

  // The store's connection, which some tests must close because the store leaks it.
  sqlite3* connection() {
    int32_t rc = 0;
    sqlite3_stmt* stmt = store().prepare_sql("select 1", rc);
    sqlite3* db = sqlite3_db_handle(stmt);
    store().finalize(stmt);
    return db;
  }

  // An older store "old" with the same schema, attached as "odb" when it is ready.
  std::string create_old_store() const {
    const std::string old = folder.file("old");
    for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) corvan_test::plant(old, sql);
    return old;
  }
  void copy_from(const std::string& old) {
    ASSERT_EQ(store().execute_none_query("attach '" + old + "' as odb"), SQLITE_DONE);
    take_ledger();
    store().createdb_copydata();
    ASSERT_FALSE(in_transaction());
    ASSERT_EQ(store().execute_none_query("detach odb"), SQLITE_DONE);
  }
};

// ---- The instance -------------------------------------------------------------------------------

TEST_F(Lifecycle, InstanceIsAlwaysTheSame) {
  ASSERT_NE(CvDbSingleton::get_instance(), nullptr);
  EXPECT_EQ(CvDbSingleton::get_instance(), CvDbSingleton::get_instance());
}

TEST_F(Lifecycle, NewInstanceIsClosed) {
  CvDbSingleton::delete_instance();
  EXPECT_FALSE(is_open());
}

TEST_F(Lifecycle, DeletingTheInstanceClosesItsFile) {
  EXPECT_EQ(files(), (Rows{"corvan", "corvan-shm", "corvan-wal"}));
  CvDbSingleton::delete_instance();
  EXPECT_EQ(files(), Rows{"corvan"});
}

TEST_F(Lifecycle, DeletingWithoutAnInstanceIsHarmless) {
  CvDbSingleton::delete_instance();
  CvDbSingleton::delete_instance();
  EXPECT_NE(CvDbSingleton::get_instance(), nullptr);
}

TEST_F(Lifecycle, NewInstanceOpensTheSameFile) {
  save(NewMessage());
  CvDbSingleton::delete_instance();
  ASSERT_TRUE(open());
  EXPECT_EQ(store().get_pragma("select count(*) from t_message"), 1);
}

// ---- Opening a new file -------------------------------------------------------------------------

TEST_F(Lifecycle, FirstOpeningCreatesTheFileWithoutExtension) {
  const TemporaryFolder fresh;
  store().close_db();
  EXPECT_TRUE(store().init_open_db(Pathname(fresh.path()), "", "me"));
  EXPECT_TRUE(file_exists(fresh.file("corvan")));
  EXPECT_FALSE(file_exists(fresh.file("corvan.db")));
  EXPECT_EQ(corvan_test::rows(fresh.file("corvan"), "select count(*) from t_version"), Rows{"1"});
}

TEST_F(Lifecycle, NewFileHasItsSettings) {
  EXPECT_EQ(rows("pragma journal_mode"), Rows{"wal"});
  EXPECT_EQ(rows("pragma page_size"), Rows{"4096"});
  EXPECT_EQ(rows("pragma user_version"), Rows{"1"});
}

TEST_F(Lifecycle, ConnectionHasItsSettings) {
  EXPECT_EQ(store().get_pragma("pragma wal_autocheckpoint"), 5000);
  EXPECT_EQ(store().get_pragma("pragma temp_store"), 2);
}

TEST_F(Lifecycle, ConnectionIsOpenedReadWriteCreateAndSerialised) {
  EXPECT_EQ(open_flags(), 0x10006);
}

// Starts each new connection with secure deletion on or off, regardless of the library's default.
class SecureDeletion {
 public:
  explicit SecureDeletion(bool on) {
    setting = on ? "pragma main.secure_delete=1" : "pragma main.secure_delete=0";
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(apply));
  }
  SecureDeletion(const SecureDeletion&) = delete;
  SecureDeletion& operator=(const SecureDeletion&) = delete;
  ~SecureDeletion() { sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(apply)); }

 private:
  static int apply(sqlite3* db, char** /*error*/, const sqlite3_api_routines* /*api*/) {
    sqlite3_stmt* stmt = nullptr;
    const int rc = prepare_unrecorded(db, setting, &stmt);
    sqlite3_step(stmt);
    sqlite3_finalize(stmt);
    return rc;
  }

  static inline const char* setting = nullptr;
};

TEST_F(Lifecycle, SecureDeletionIsEnabledIfOff) {
  store().close_db();
  take_ledger();
  const SecureDeletion off(false);
  ASSERT_TRUE(open());
  const Rows ledger = take_ledger();
  EXPECT_EQ(std::count(ledger.begin(), ledger.end(), "pragma secure_delete=ON"), 1);
  EXPECT_EQ(store().get_pragma("pragma secure_delete"), 1);
}

TEST_F(Lifecycle, SecureDeletionIsKeptIfOn) {
  store().close_db();
  take_ledger();
  const SecureDeletion on(true);
  ASSERT_TRUE(open());
  const Rows ledger = take_ledger();
  EXPECT_EQ(std::count(ledger.begin(), ledger.end(), "pragma secure_delete=ON"), 0);
}

TEST_F(Lifecycle, NewFileReceivesTheSchemaInOneTransaction) {
  store().close_db();
  remove_store_files();
  ASSERT_TRUE(open());
  Rows expected{"pragma journal_mode=WAL",
                "pragma wal_autocheckpoint=5000",
                "pragma temp_store=2",
                "select name from sqlite_master where type='table' and name='t_version'",
                "begin transaction",
                "pragma page_size=4096"};
  for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) expected.push_back(sql);
  const Rows end{"pragma user_version=1", "pragma secure_delete", mark_failed,
                 "commit transaction"};
  expected.insert(expected.end(), end.begin(), end.end());
  EXPECT_EQ(opening_statements(), expected);
}

TEST_F(Lifecycle, ReopeningDoesNotRunTheSchema) {
  store().close_db();
  ASSERT_TRUE(open());
  EXPECT_EQ(
      opening_statements(),
      (Rows{"pragma journal_mode=WAL", "pragma wal_autocheckpoint=5000", "pragma temp_store=2",
            "select name from sqlite_master where type='table' and name='t_version'",
            "select database_version from t_version", "begin transaction", "pragma secure_delete",
            mark_failed, "commit transaction"}));
}

TEST_F(Lifecycle, FileNameInThePathIsReplaced) {
  const TemporaryFolder fresh;
  store().close_db();
  EXPECT_TRUE(store().init_open_db(Pathname(fresh.file("old.db")), "", "me"));
  EXPECT_TRUE(file_exists(fresh.file("corvan")));
}

TEST_F(Lifecycle, FileWithAVersionKeepsItsSchemaAndUserVersion) {
  plant("drop index t_session_list; pragma user_version=5");
  store().close_db();
  ASSERT_TRUE(open());
  EXPECT_EQ(rows("select count(*) from sqlite_master where name='t_session_list'"), Rows{"0"});
  EXPECT_EQ(rows("pragma user_version"), Rows{"5"});
}

TEST_F(Lifecycle, FileWithoutAVersionCountsAsNew) {
  for (const char* damage :
       {"drop table t_version", "delete from t_version", "update t_version set database_version=''",
        "update t_version set database_version=null"}) {
    plant(std::string(damage) + "; drop index t_session_list; pragma user_version=5");
    store().close_db();
    ASSERT_TRUE(open());
    EXPECT_EQ(rows("select count(*) from sqlite_master where name='t_session_list'"), Rows{"1"})
        << damage;
    EXPECT_EQ(rows("select count(*) from t_version where database_version<>''"), Rows{"1"})
        << damage;
    EXPECT_EQ(rows("pragma user_version"), Rows{"1"}) << damage;
  }
}

TEST_F(Lifecycle, FailedSchemaStatementIsLoggedAndOpeningSucceeds) {
  plant("alter table t_version rename column database_version to other");
  store().close_db();
  EXPECT_TRUE(open());
  EXPECT_EQ(store().get_database_version(), "");
  const Rows lines = log.take();
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string& line) {
                            return line.find("no column named database_version") !=
                                   std::string::npos;
                          }),
            1);
}

TEST_F(Lifecycle, IncompleteSchemaIsCompletedByALaterOpening) {
  const TemporaryFolder older;
  corvan_test::plant(older.file("corvan"), "create table t_message(id integer primary key)");
  store().close_db();
  ASSERT_TRUE(store().init_open_db(Pathname(older.path()), "", "me"));
  EXPECT_EQ(store().get_database_version(), "");  // its indexes lack their columns
  store().close_db();
  corvan_test::plant(older.file("corvan"), "drop table t_message");
  ASSERT_TRUE(store().init_open_db(Pathname(older.path()), "", "me"));
  EXPECT_EQ(store().get_database_version(), "1");
  const std::string schema = "select name,sql from sqlite_master order by name";
  EXPECT_EQ(corvan_test::rows(older.file("corvan"), schema), rows(schema));
}

TEST_F(Lifecycle, OpeningMarksMessagesBeingSentAsFailed) {
  plant("insert into t_message(direction,sent_status) values(0,0),(0,1),(1,1),(0,3)");
  store().close_db();
  ASSERT_TRUE(open());
  EXPECT_EQ(rows("select sent_status from t_message order by id"), (Rows{"0", "2", "2", "3"}));
}

TEST_F(Lifecycle, OpeningThatCannotCreateTheFileFailsWithoutLogging) {
  store().close_db();
  LogCapture all;
  EXPECT_FALSE(store().init_open_db(Pathname(folder.file("missing/")), "", "me"));
  EXPECT_FALSE(is_open());
  EXPECT_EQ(store().open_db(), SQLITE_CANTOPEN);
  EXPECT_EQ(all.take(), Rows{});
}

TEST_F(Lifecycle, FolderInPlaceOfTheFileFails) {
  store().close_db();
  remove_store_files();
  std::filesystem::create_directory(file());
  EXPECT_FALSE(open());
  EXPECT_FALSE(is_open());
}

TEST_F(Lifecycle, FileThatIsNotADatabaseIsReplacedByTheNextOpening) {
  store().close_db();
  write_file(file(), std::string(8192, 'x'));
  if (is_refused(SQLITE_NOTADB)) return;
  EXPECT_TRUE(open());
  EXPECT_EQ(log.take().size(), 1U);
  EXPECT_FALSE(is_open());
  EXPECT_FALSE(file_exists(file()));
  EXPECT_TRUE(open());
  EXPECT_TRUE(is_open());
  EXPECT_EQ(rows("pragma user_version"), Rows{"1"});
}

// ---- Opening again ------------------------------------------------------------------------------

TEST_F(Lifecycle, OpenStoreOnlyMarksMessagesForTheSameUser) {
  save(NewMessage().own(1).status(1));
  take_ledger();
  EXPECT_TRUE(open());
  EXPECT_EQ(take_ledger(), Rows{mark_failed});
  EXPECT_EQ(rows("select sent_status from t_message"), Rows{"2"});
}

TEST_F(Lifecycle, AppKeyIsNotUsed) {
  EXPECT_TRUE(store().init_open_db(Pathname(folder.path()), "another key", "me"));
  EXPECT_EQ(take_ledger(), Rows{mark_failed});
}

TEST_F(Lifecycle, AnotherUserReopensTheFileUnderItsName) {
  ASSERT_TRUE(store().set_sync_time(1000, true));
  store().close_db();
  ASSERT_TRUE(open("you"));
  ASSERT_TRUE(store().set_sync_time(2000, true));
  EXPECT_EQ(rows("select * from t_sync order by user_id"), (Rows{"me|1000|0", "you|2000|0"}));
}

TEST_F(Lifecycle, OpenStoreReopensForAnotherUserWithoutClosing) {
  sqlite3* previous = connection();
  take_ledger();
  EXPECT_TRUE(open("you"));
  EXPECT_NE(connection(), previous);
  EXPECT_EQ(take_ledger().front(), "pragma journal_mode=WAL");
  ASSERT_TRUE(store().set_sync_time(2000, true));
  EXPECT_EQ(rows("select * from t_sync"), Rows{"you|2000|0"});
  EXPECT_EQ(close_connection(previous), SQLITE_OK);
}

TEST_F(Lifecycle, FileWithExtensionIsNotOpened) {
  store().close_db();
  remove_store_files();
  write_file(folder.file("corvan.db"), "");
  EXPECT_TRUE(open());
  EXPECT_EQ(rows("select count(*) from t_version"), Rows{"1"});
  EXPECT_EQ(read_file(folder.file("corvan.db")), "");
}

TEST_F(Lifecycle, FileNameWithExtensionKeepsTheOpenConnection) {
  remove_store_files();
  write_file(folder.file("corvan.db"), "");
  EXPECT_TRUE(open());
  EXPECT_EQ(take_ledger(), Rows{mark_failed});
  EXPECT_FALSE(file_exists(file()));
}

TEST_F(Lifecycle, OpeningAnOpenStoreRecreatesAMissingFile) {
  sqlite3* previous = connection();
  save(NewMessage());
  remove_store_files();
  EXPECT_TRUE(open());
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"0"});
  EXPECT_EQ(rows("pragma user_version"), Rows{"1"});
  store().close_db();
  EXPECT_EQ(close_connection(previous), SQLITE_OK);
}

// ---- Closing ------------------------------------------------------------------------------------

TEST_F(Lifecycle, ClosedStoreHasNoConnection) {
  store().close_db();
  EXPECT_FALSE(is_open());
  EXPECT_EQ(files(), Rows{"corvan"});
}

TEST_F(Lifecycle, ClosingTwiceIsHarmless) {
  store().close_db();
  store().close_db();
  EXPECT_TRUE(open());
}

TEST_F(Lifecycle, ClosingInterruptsARunningStatement) {
  int32_t rc = 0;
  sqlite3_stmt* stmt = store().prepare_sql("select 1 union all select 2", rc);
  ASSERT_EQ(store().step(stmt, false), SQLITE_ROW);
  sqlite3* db = sqlite3_db_handle(stmt);
  store().close_db();
  EXPECT_FALSE(is_open());
  EXPECT_EQ(sqlite3_step(stmt), SQLITE_INTERRUPT);
  sqlite3_finalize(stmt);
  EXPECT_EQ(close_connection(db), SQLITE_OK);
}

// ---- Version and tables -------------------------------------------------------------------------

TEST_F(Lifecycle, VersionIsTheTextOfTheFirstRow) {
  plant("update t_version set database_version='7.1'; insert into t_version values('8')");
  EXPECT_EQ(store().get_database_version(), "7.1");
}

TEST_F(Lifecycle, VersionIsEmptyWithoutARow) {
  plant("delete from t_version");
  EXPECT_EQ(store().get_database_version(), "");
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(Lifecycle, VersionIsNotQueriedWithoutItsTable) {
  ASSERT_EQ(store().execute_none_query("drop table t_version"), SQLITE_DONE);
  EXPECT_EQ(store().get_database_version(), "");
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(Lifecycle, TableExistsOnlyAsATable) {
  plant("create view t_view as select 1");
  EXPECT_TRUE(store().is_table_exist("t_sync"));
  EXPECT_FALSE(store().is_table_exist("t_missing"));
  EXPECT_FALSE(store().is_table_exist("t_view"));
  EXPECT_FALSE(store().is_table_exist("t_session_list"));
  EXPECT_FALSE(store().is_table_exist(""));
}

TEST_F(Lifecycle, TableNameIsPastedUnescaped) {
  EXPECT_TRUE(store().is_table_exist("t_missing' or 'a'='a"));
  EXPECT_FALSE(store().is_table_exist("it's"));
  EXPECT_EQ(log.take().size(), 1U);
}

// ---- Integrity ----------------------------------------------------------------------------------

TEST_F(Lifecycle, SoundFileReportsOk) {
  std::string result;
  EXPECT_TRUE(store().check_integrity(result));
  EXPECT_EQ(result, "ok");
}

TEST_F(Lifecycle, IntegrityIsAppendedToTheCallersText) {
  std::string result = "before";
  EXPECT_FALSE(store().check_integrity(result));
  EXPECT_EQ(result, "before_ok");
}

TEST_F(Lifecycle, FindingsAreJoined) {
  plant(
      "create table t_checked(a check(a>0)); pragma ignore_check_constraints=on;"
      "insert into t_checked values(-1),(-2)");
  std::string result;
  EXPECT_FALSE(store().check_integrity(result));
  EXPECT_EQ(result, "CHECK constraint failed in t_checked_CHECK constraint failed in t_checked");
}

TEST_F(Lifecycle, IntegrityOfAFileThatIsNotADatabaseReplacesTheCallersText) {
  store().close_db();
  write_file(file(), std::string(8192, 'x'));
  if (is_refused(SQLITE_NOTADB)) return;
  ASSERT_EQ(store().open_db(), SQLITE_OK);
  std::string result = "before";
  EXPECT_FALSE(store().check_integrity(result));
  EXPECT_EQ(result, "not a database file");
}

TEST_F(Lifecycle, ReadableFileIsUnlockedWhateverThePassword) {
  EXPECT_EQ(store().is_db_unlocked(""), SQLITE_OK);
  EXPECT_EQ(store().is_db_unlocked("secret"), SQLITE_OK);
}

TEST_F(Lifecycle, FileThatIsNotADatabaseIsNotUnlockedAndIsKept) {
  store().close_db();
  write_file(file(), std::string(8192, 'x'));
  if (is_refused(SQLITE_NOTADB)) return;
  ASSERT_EQ(store().open_db(), SQLITE_OK);
  EXPECT_EQ(store().is_db_unlocked(""), SQLITE_NOTADB);
  EXPECT_EQ(store().is_db_unlocked("secret"), SQLITE_NOTADB);
  EXPECT_EQ(log.take(), Rows{});
  EXPECT_TRUE(file_exists(file()));
}

// ---- Copying an older store ---------------------------------------------------------------------

TEST_F(Lifecycle, CopyKeepsIdsAndWholeRows) {
  const std::string old = create_old_store();
  corvan_test::plant(old,
                     "insert into t_message values(77,'room',2,'kind','body','u01',2,1,0,1,100,6,"
                     "'S-1');"
                     "insert into t_session values('room',2,'title','draft',1,100,3,1,1,77,50,60);"
                     "insert into t_sync values('me',1000,500)");
  copy_from(old);
  EXPECT_EQ(rows("select * from t_message"), Rows{"77|room|2|kind|body|u01|2|1|0|1|100|6|S-1"});
  EXPECT_EQ(rows("select * from t_session"), Rows{"room|2|title|draft|1|100|3|1|1|77|50|60"});
  EXPECT_EQ(rows("select * from t_sync"), Rows{"me|1000|500"});
}

TEST_F(Lifecycle, CopyReplacesRowsOfEqualKeysAndKeepsOthers) {
  plant(
      "insert into t_message(id,content) values(1,'new'),(2,'new');"
      "insert into t_sync values('me',1,1),('you',2,2)");
  plant_session("room", 2, 1, -1);
  plant_session("other", 2, 1, -1);
  const std::string old = create_old_store();
  corvan_test::plant(old,
                     "insert into t_message(id,content) values(1,'old'),(3,'old');"
                     "insert into t_session(session_id,session_type,session_time) "
                     "values('room',2,100);"
                     "insert into t_sync values('me',1000,500)");
  copy_from(old);
  EXPECT_EQ(rows("select id,content from t_message order by id"),
            (Rows{"1|old", "2|new", "3|old"}));
  EXPECT_EQ(rows("select session_id,session_time from t_session order by session_id"),
            (Rows{"other|1", "room|100"}));
  EXPECT_EQ(rows("select * from t_sync order by user_id"), (Rows{"me|1000|500", "you|2|2"}));
}

TEST_F(Lifecycle, CopyCreatesTablesAndIndexesThatAreMissing) {
  const std::string old = create_old_store();
  corvan_test::plant(old, "create table t_extra(a); create index t_extra_a on t_extra(a)");
  copy_from(old);
  EXPECT_EQ(rows("select type,name from sqlite_master where tbl_name='t_extra' order by rowid"),
            (Rows{"table|t_extra", "index|t_extra_a"}));
}

TEST_F(Lifecycle, CopyCreatesNeitherViewsNorTriggers) {
  const std::string old = create_old_store();
  corvan_test::plant(old,
                     "create view t_view as select 1;"
                     "create trigger t_trigger after insert on t_sync begin select 1; end");
  copy_from(old);
  EXPECT_EQ(rows("select name from sqlite_master where type in('view','trigger')"), Rows{});
}

TEST_F(Lifecycle, CopyKeepsTheTablesThatExist) {
  const Rows before = rows("select name,sql from sqlite_master order by name");
  copy_from(create_old_store());
  EXPECT_EQ(rows("select name,sql from sqlite_master order by name"), before);
}

TEST_F(Lifecycle, CopySkipsTheStatementsOfSqlitesOwnTables) {
  const std::string old = create_old_store();
  corvan_test::plant(old, "insert into t_message(id) values(5)");
  copy_from(old);
  for (const std::string& sql : take_ledger()) {
    EXPECT_EQ(sql.find("sqlite_sequence"), std::string::npos) << sql;
  }
}

TEST_F(Lifecycle, CopyHandlesTheTablesInOrderInOneTransaction) {
  const std::string old = folder.file("old");
  corvan_test::plant(old, "create table t_extra(a); pragma user_version=3");
  copy_from(old);
  EXPECT_EQ(
      take_ledger(),
      (Rows{"begin transaction", "select type,tbl_name,sql from odb.sqlite_master",
            "CREATE TABLE t_extra(a)", "insert or replace into t_sync select * from odb.t_sync;",
            "insert or replace into t_message select * from odb.t_message;",
            "insert or replace into t_session select * from odb.t_session;",
            "pragma odb.user_version", "pragma user_version=3", "commit transaction",
            "detach odb"}));
  EXPECT_EQ(log.take().size(), 3U);
}

TEST_F(Lifecycle, CopyContinuesAfterAMissingTable) {
  const std::string old = create_old_store();
  corvan_test::plant(old,
                     "drop table t_sync; insert into t_message(id) values(5);"
                     "insert into t_session(session_id,session_type) values('room',2)");
  copy_from(old);
  EXPECT_EQ(rows("select id from t_message"), Rows{"5"});
  EXPECT_EQ(rows("select session_id from t_session"), Rows{"room"});
}

TEST_F(Lifecycle, CopySetsTheUserVersion) {
  const std::string old = create_old_store();
  corvan_test::plant(old, "pragma user_version=12");
  copy_from(old);
  EXPECT_EQ(rows("pragma user_version"), Rows{"12"});
}

TEST_F(Lifecycle, CopyKeepsTheUserVersionWhenTheOldOneIsNotPositive) {
  const std::string old = create_old_store();
  for (const char* version : {"0", "-1"}) {
    corvan_test::plant(old, std::string("pragma user_version=") + version);
    copy_from(old);
    EXPECT_EQ(rows("pragma user_version"), Rows{"1"}) << version;
  }
}

TEST_F(Lifecycle, CopyWithoutAnOldStoreCommitsAndStops) {
  store().createdb_copydata();
  EXPECT_EQ(take_ledger(),
            (Rows{"begin transaction", "select type,tbl_name,sql from odb.sqlite_master",
                  "commit transaction"}));
  const Rows lines = log.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_NE(lines[0].find("no such table: odb.sqlite_master"), std::string::npos) << lines[0];
}

// ---- Building blocks ----------------------------------------------------------------------------

TEST_F(Lifecycle, OpeningTheLastFileAgainReturnsZero) {
  store().close_db();
  EXPECT_EQ(store().open_db(), SQLITE_OK);
  EXPECT_EQ(store().get_pragma("pragma user_version"), 1);
}

TEST_F(Lifecycle, OpeningAnyFileCreatesIt) {
  store().close_db();
  EXPECT_EQ(store().open_db(folder.file("any.name")), SQLITE_OK);
  EXPECT_EQ(store().execute_none_query("create table t(a)"), SQLITE_DONE);
  EXPECT_TRUE(file_exists(folder.file("any.name")));
}

TEST_F(Lifecycle, OpeningAnyFileThatCannotBeOpenedReturnsItsCode) {
  store().close_db();
  EXPECT_EQ(store().open_db(folder.file("missing/any")), SQLITE_CANTOPEN);
  store().close_db();
}

TEST_F(Lifecycle, FileExistsOnlyAsARegularFile) {
  EXPECT_TRUE(CvDbSingleton::is_file_exist(Pathname(file())));
  EXPECT_FALSE(CvDbSingleton::is_file_exist(Pathname(folder.file("missing"))));
  EXPECT_FALSE(CvDbSingleton::is_file_exist(Pathname(folder.path())));
}

TEST_F(Lifecycle, MarkingAsFailedIgnoresItsFlag) {
  for (const bool flag : {false, true}) {
    plant("update t_message set sent_status=1; insert into t_message(sent_status) values(1)");
    store().clear_sendstatus(flag);
    EXPECT_EQ(rows("select distinct sent_status from t_message"), Rows{"2"}) << flag;
  }
}

}  // namespace
}  // namespace corvan_test
