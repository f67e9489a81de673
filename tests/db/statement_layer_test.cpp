#include <sqlite3.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/grouping_locale.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;
using Corvan::SessionType;

constexpr int32_t kNoConnection = -1;
constexpr const char* kInsert = "insert into t_sync values('me',1,2)";

// The line of each operation, up to the result code.
const std::string prepare_line =
    "4 sqlite3_stmt *Corvan::CvDbSingleton::prepare_sql(const std::string &, int32_t &): "
    "P-more-C;;;prepare_db;;;";
const std::string step_line =
    "3 int32_t Corvan::CvDbSingleton::step(sqlite3_stmt *, bool): P-more-C;;;step;;;";
const std::string reset_line =
    "3 void Corvan::CvDbSingleton::reset(sqlite3_stmt *): P-more-C;;;reset;;;";
const std::string finalize_line =
    "3 void Corvan::CvDbSingleton::finalize(sqlite3_stmt *): P-more-C;;;finalize;;;";

const std::string syntax_error = "1;;;near \"selct\": syntax error";
const std::string duplicate_user = "19;;;UNIQUE constraint failed: t_sync.user_id";

class StatementLayer : public StoreTest {
 protected:
  sqlite3_stmt* prepare(const std::string& sql) {
    int32_t rc = 7;
    sqlite3_stmt* stmt = store().prepare_sql(sql, rc);
    EXPECT_EQ(rc, SQLITE_OK);
    return stmt;
  }

  // The code of a prepare that fails and must return no statement.
  int32_t prepare_failure(const std::string& sql) {
    int32_t rc = 7;
    EXPECT_EQ(store().prepare_sql(sql, rc), nullptr);
    return rc;
  }

  // A statement that has been stepped to its only row.
  sqlite3_stmt* on_row(const std::string& sql) {
    sqlite3_stmt* stmt = prepare(sql);
    EXPECT_EQ(store().step(stmt, false), SQLITE_ROW);
    return stmt;
  }

  // Replaces the store's file by something else and opens it. False if it is refused.
  bool overwrite_file(const std::string& content) {
    store().close_db();
    write_file(file(), content);
    if (is_refused(SQLITE_NOTADB)) return false;
    EXPECT_EQ(store().open_db(), SQLITE_OK);
    return true;
  }

  // Replaces the file's definition of t_sync by one that SQLite cannot read, and opens the file.
  // False if it is refused.
  bool damage_schema() {
    plant(
        "pragma writable_schema=on;"
        "update sqlite_master set sql='create table t_sync(' where name='t_sync'");
    store().close_db();
    if (is_refused(SQLITE_CORRUPT)) return false;
    EXPECT_EQ(store().open_db(), SQLITE_OK);
    return true;
  }

  // Overwrites the first page of t_message with random bytes.
  void damage_messages() {
    const auto page =
        std::stoul(rows("select rootpage from sqlite_master where name='t_message'").front());
    store().close_db();
    std::string content = read_file(file());
    content.replace((page - 1) * 4096, 4096, 4096, '\xff');
    write_file(file(), content);
    ASSERT_EQ(store().open_db(), SQLITE_OK);
  }

  bool is_open() { return store().get_pragma("select 1") == 1; }
};

using StatementLayerDeath = StatementLayer;

// ---- Preparing ----------------------------------------------------------------------------------

TEST_F(StatementLayer, PrepareWithoutConnectionFailsWithoutLogging) {
  store().close_db();
  LogCapture all;
  EXPECT_EQ(prepare_failure("select 1"), kNoConnection);
  EXPECT_EQ(all.take(), Rows{});
}

TEST_F(StatementLayer, PreparedStatementReportsZero) {
  sqlite3_stmt* stmt = prepare("select 1");
  EXPECT_NE(stmt, nullptr);
  store().finalize(stmt);
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(StatementLayer, TextWithoutStatementPreparesToNull) {
  EXPECT_EQ(prepare(""), nullptr);
  EXPECT_EQ(prepare("-- nothing"), nullptr);
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(StatementLayer, OnlyTheFirstStatementOfATextRuns) {
  EXPECT_EQ(store().execute_none_query(
                "insert into t_sync values('a',1,2);insert into t_sync values('b',1,2)"),
            SQLITE_DONE);
  EXPECT_EQ(rows("select user_id from t_sync"), Rows{"a"});
}

TEST_F(StatementLayer, SyntaxErrorIsLoggedAndDeletesNothing) {
  EXPECT_EQ(prepare_failure("selct 1"), SQLITE_ERROR);
  EXPECT_EQ(log.take(), Rows{prepare_line + syntax_error});
  EXPECT_TRUE(file_exists(file()));
  EXPECT_TRUE(is_open());
}

TEST_F(StatementLayer, FailedPrepareIsNotLoggedBelowTheAcceptedSeverity) {
  LogCapture none(cvrtc::LS_NONE);
  EXPECT_EQ(prepare_failure("selct 1"), SQLITE_ERROR);
  EXPECT_EQ(none.take(), Rows{});
}

TEST_F(StatementLayer, FailedPrepareIsLoggedAsAnError) {
  LogCapture errors(cvrtc::LS_ERROR);
  EXPECT_EQ(prepare_failure("selct 1"), SQLITE_ERROR);
  EXPECT_EQ(errors.take(), Rows{prepare_line + syntax_error});
}

// ---- A damaged file -----------------------------------------------------------------------------

TEST_F(StatementLayer, FileThatIsNotADatabaseIsClosedAndDeletedAtPrepare) {
  if (!overwrite_file(std::string(8192, 'x'))) return;
  EXPECT_EQ(prepare_failure("select * from t_sync"), SQLITE_NOTADB);
  EXPECT_EQ(log.take(), Rows{prepare_line + "26;;;" + sqlite3_errstr(SQLITE_NOTADB)});
  EXPECT_FALSE(file_exists(file()));
  EXPECT_EQ(prepare_failure("select 1"), kNoConnection);
}

TEST_F(StatementLayer, FileWithADamagedSchemaIsClosedAndDeletedAtPrepare) {
  if (!damage_schema()) return;
  EXPECT_EQ(prepare_failure("select * from t_sync"), SQLITE_CORRUPT);
  const Rows lines = log.take();
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].find(prepare_line + "11;;;malformed database schema (t_sync)"), 0U)
      << lines[0];
  EXPECT_FALSE(file_exists(file()));
  EXPECT_EQ(prepare_failure("select 1"), kNoConnection);
}

TEST_F(StatementLayer, DamagedFileIsDeletedEvenIfNothingIsLogged) {
  if (!overwrite_file(std::string(8192, 'x'))) return;
  const LogCapture none(cvrtc::LS_NONE);
  EXPECT_EQ(prepare_failure("select * from t_sync"), SQLITE_NOTADB);
  EXPECT_FALSE(file_exists(file()));
}

TEST_F(StatementLayer, DamagedFileThatIsAlreadyMissingIsOnlyClosed) {
  if (!overwrite_file(std::string(8192, 'x'))) return;
  const std::string moved = folder.file("moved");
  ASSERT_EQ(std::rename(file().c_str(), moved.c_str()), 0);
  EXPECT_EQ(prepare_failure("select * from t_sync"), SQLITE_NOTADB);
  EXPECT_TRUE(file_exists(moved));
  EXPECT_EQ(prepare_failure("select 1"), kNoConnection);
}

TEST_F(StatementLayer, OnlyARegularFileIsDeleted) {
  if (!overwrite_file(std::string(8192, 'x'))) return;
  ASSERT_EQ(std::rename(file().c_str(), folder.file("moved").c_str()), 0);
  std::filesystem::create_symlink("missing", file());
  EXPECT_EQ(prepare_failure("select * from t_sync"), SQLITE_NOTADB);
  EXPECT_TRUE(std::filesystem::is_symlink(file()));
}

TEST_F(StatementLayer, DamageDeletesTheFileLastOpenedByPath) {
  store().close_db();
  const std::string other = folder.file("other");
  write_file(other, std::string(8192, 'x'));
  ASSERT_EQ(store().open_db(other), SQLITE_OK);
  EXPECT_EQ(prepare_failure("select * from t_sync"), SQLITE_NOTADB);
  EXPECT_TRUE(file_exists(other));
  EXPECT_FALSE(file_exists(file()));
}

TEST_F(StatementLayer, OpeningAfterADeletionCreatesANewStore) {
  save(NewMessage());
  if (!damage_schema()) return;
  EXPECT_EQ(prepare_failure("select * from t_sync"), SQLITE_CORRUPT);
  ASSERT_TRUE(open());
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"0"});
  EXPECT_GT(save(NewMessage()), 0);
}

TEST_F(StatementLayer, DamageFoundWhileSteppingIsOnlyLogged) {
  damage_messages();
  sqlite3_stmt* stmt = prepare("select * from t_message");
  EXPECT_EQ(store().step(stmt, true), SQLITE_CORRUPT);
  EXPECT_EQ(log.take(), (Rows{step_line + "11;;;database disk image is malformed",
                              finalize_line + "11;;;database disk image is malformed"}));
  EXPECT_TRUE(file_exists(file()));
  EXPECT_TRUE(is_open());
}

// ---- Binding ------------------------------------------------------------------------------------

TEST_F(StatementLayer, BoundValuesAreReadBack) {
  const std::string text = "hello";
  sqlite3_stmt* stmt = prepare("select ?,?,?,typeof(?1),typeof(?3)");
  EXPECT_EQ(CvDbSingleton::bind(stmt, 1, std::numeric_limits<int32_t>::min()), SQLITE_OK);
  EXPECT_EQ(CvDbSingleton::bind(stmt, 2, std::numeric_limits<int64_t>::min()), SQLITE_OK);
  EXPECT_EQ(CvDbSingleton::bind(stmt, 3, text), SQLITE_OK);
  ASSERT_EQ(store().step(stmt, false), SQLITE_ROW);
  EXPECT_EQ(CvDbSingleton::get_int(stmt, 0), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(CvDbSingleton::get_int64(stmt, 1), std::numeric_limits<int64_t>::min());
  EXPECT_EQ(CvDbSingleton::get_text(stmt, 2), "hello");
  EXPECT_EQ(CvDbSingleton::get_text(stmt, 3), "integer");
  EXPECT_EQ(CvDbSingleton::get_text(stmt, 4), "text");
  store().finalize(stmt);
}

TEST_F(StatementLayer, EmptyTextIsNotBoundAsNull) {
  const std::string empty;
  sqlite3_stmt* stmt = prepare("select typeof(?)");
  EXPECT_EQ(CvDbSingleton::bind(stmt, 1, empty), SQLITE_OK);
  ASSERT_EQ(store().step(stmt, false), SQLITE_ROW);
  EXPECT_EQ(CvDbSingleton::get_text(stmt, 0), "text");
  store().finalize(stmt);
}

TEST_F(StatementLayer, BoundTextEndsAtItsFirstZeroByte) {
  const std::string text("ab\0cd", 5);
  sqlite3_stmt* stmt = prepare("select length(cast(? as blob))");
  EXPECT_EQ(CvDbSingleton::bind(stmt, 1, text), SQLITE_OK);
  ASSERT_EQ(store().step(stmt, false), SQLITE_ROW);
  EXPECT_EQ(CvDbSingleton::get_int(stmt, 0), 2);
  store().finalize(stmt);
}

TEST_F(StatementLayer, BoundTextIsNotCopied) {
  std::string text = "hello";
  sqlite3_stmt* stmt = prepare("select ?");
  EXPECT_EQ(CvDbSingleton::bind(stmt, 1, text), SQLITE_OK);
  text[0] = 'J';
  ASSERT_EQ(store().step(stmt, false), SQLITE_ROW);
  EXPECT_EQ(CvDbSingleton::get_text(stmt, 0), "Jello");
  store().finalize(stmt);
}

TEST_F(StatementLayer, FailedBindIsReturnedWithoutLogging) {
  const std::string text = "hello";
  sqlite3_stmt* stmt = prepare("select ?");
  EXPECT_EQ(CvDbSingleton::bind(stmt, 0, 1), SQLITE_RANGE);
  EXPECT_EQ(CvDbSingleton::bind(stmt, 2, int64_t{1}), SQLITE_RANGE);
  EXPECT_EQ(CvDbSingleton::bind(stmt, 2, text), SQLITE_RANGE);
  store().finalize(stmt);
  EXPECT_EQ(log.take(), Rows{});
}

// ---- Stepping -----------------------------------------------------------------------------------

TEST_F(StatementLayer, StepReturnsRowsThenDoneWithoutLogging) {
  LogCapture all;
  sqlite3_stmt* stmt = on_row("select 1 union all select 2");
  EXPECT_EQ(store().step(stmt, false), SQLITE_ROW);
  EXPECT_EQ(store().step(stmt, false), SQLITE_DONE);
  store().finalize(stmt);
  EXPECT_EQ(all.take(), Rows{});
}

TEST_F(StatementLayer, FailedStepIsLoggedOnceAndReturned) {
  plant(kInsert);
  sqlite3_stmt* stmt = prepare(kInsert);
  EXPECT_EQ(store().step(stmt, false), SQLITE_CONSTRAINT);
  EXPECT_EQ(log.take(), Rows{step_line + duplicate_user});
  EXPECT_EQ(open_statements(), 1);
  store().finalize(stmt);
}

TEST_F(StatementLayer, StepFinalizesOnlyIfAsked) {
  EXPECT_EQ(store().step(prepare("select 1"), true), SQLITE_ROW);
  EXPECT_EQ(store().step(prepare(kInsert), true), SQLITE_DONE);
  EXPECT_EQ(open_statements(), 0);
}

TEST_F(StatementLayer, StepFinalizesAfterAFailure) {
  plant(kInsert);
  EXPECT_EQ(store().step(prepare(kInsert), true), SQLITE_CONSTRAINT);
  EXPECT_EQ(open_statements(), 0);
  EXPECT_EQ(log.take(), (Rows{step_line + duplicate_user, finalize_line + duplicate_user}));
}

TEST_F(StatementLayer, FailedStepIsNotLoggedBelowTheAcceptedSeverity) {
  plant(kInsert);
  LogCapture errors(cvrtc::LS_ERROR);
  sqlite3_stmt* stmt = prepare(kInsert);
  EXPECT_EQ(store().step(stmt, false), SQLITE_CONSTRAINT);
  store().reset(stmt);
  EXPECT_EQ(store().step(stmt, true), SQLITE_CONSTRAINT);
  EXPECT_EQ(errors.take(), Rows{});
}

TEST_F(StatementLayer, BusyFileFailsWithoutWaitOrRetry) {
  sqlite3* other = nullptr;
  ASSERT_EQ(sqlite3_open(file().c_str(), &other), SQLITE_OK);
  const std::unique_ptr<sqlite3, int (*)(sqlite3*)> closer(other, sqlite3_close_v2);
  ASSERT_EQ(sqlite3_exec(other, "begin immediate", nullptr, nullptr, nullptr), SQLITE_OK);
  sqlite3_stmt* stmt = prepare(kInsert);
  EXPECT_EQ(store().step(stmt, false), SQLITE_BUSY);
  EXPECT_EQ(log.take(), Rows{step_line + "5;;;database is locked"});
  store().reset(stmt);
  EXPECT_EQ(log.take(), Rows{reset_line + "5;;;database is locked"});
  store().finalize(stmt);
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(StatementLayer, StoreSetsNoBusyTimeout) {
  EXPECT_EQ(store().get_pragma("pragma busy_timeout"), 0);
}

TEST_F(StatementLayer, ResetStatementRunsAgainWithNewValues) {
  sqlite3_stmt* stmt = prepare("insert into t_sync values('u'||?,?,0)");
  for (const int32_t n : {1, 2}) {
    CvDbSingleton::bind(stmt, 1, n);
    CvDbSingleton::bind(stmt, 2, n);
    EXPECT_EQ(store().step(stmt, false), SQLITE_DONE);
    store().reset(stmt);
  }
  store().finalize(stmt);
  EXPECT_EQ(rows("select * from t_sync"), (Rows{"u1|1|0", "u2|2|0"}));
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(StatementLayer, ResetStatementKeepsItsBindings) {
  sqlite3_stmt* stmt = prepare("select ?");
  CvDbSingleton::bind(stmt, 1, 42);
  EXPECT_EQ(store().step(stmt, false), SQLITE_ROW);
  store().reset(stmt);
  EXPECT_EQ(store().step(stmt, false), SQLITE_ROW);
  EXPECT_EQ(CvDbSingleton::get_int(stmt, 0), 42);
  store().finalize(stmt);
}

TEST_F(StatementLayer, FailedResetIsLogged) {
  plant(kInsert);
  sqlite3_stmt* stmt = prepare(kInsert);
  EXPECT_EQ(store().step(stmt, false), SQLITE_CONSTRAINT);
  log.take();
  store().reset(stmt);
  EXPECT_EQ(log.take(), Rows{reset_line + duplicate_user});
  store().finalize(stmt);
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(StatementLayer, FailedFinalizeIsLogged) {
  plant(kInsert);
  sqlite3_stmt* stmt = prepare(kInsert);
  EXPECT_EQ(store().step(stmt, false), SQLITE_CONSTRAINT);
  log.take();
  store().finalize(stmt);
  EXPECT_EQ(log.take(), Rows{finalize_line + duplicate_user});
}

TEST_F(StatementLayer, FinalizingNullDoesNothing) {
  store().finalize(nullptr);
  EXPECT_EQ(log.take(), Rows{});
}

// ---- Reading ------------------------------------------------------------------------------------

TEST_F(StatementLayer, NullColumnReadsAsZeroAndEmpty) {
  sqlite3_stmt* stmt = on_row("select null");
  EXPECT_EQ(CvDbSingleton::get_int(stmt, 0), 0);
  EXPECT_EQ(CvDbSingleton::get_int64(stmt, 0), 0);
  EXPECT_EQ(CvDbSingleton::get_text(stmt, 0), "");
  store().finalize(stmt);
}

TEST_F(StatementLayer, IntReaderTruncatesTo32Bits) {
  sqlite3_stmt* stmt = on_row("select 4294967303");
  EXPECT_EQ(CvDbSingleton::get_int(stmt, 0), 7);
  EXPECT_EQ(CvDbSingleton::get_int64(stmt, 0), 4294967303);
  store().finalize(stmt);
}

TEST_F(StatementLayer, TextEndsAtItsFirstZeroByte) {
  sqlite3_stmt* stmt = on_row("select 'ab'||char(0)||'cd',''");
  EXPECT_EQ(CvDbSingleton::get_text(stmt, 0), "ab");
  EXPECT_EQ(CvDbSingleton::get_text(stmt, 1), "");
  store().finalize(stmt);
}

TEST_F(StatementLayer, ErrorTextIsThatOfTheConnection) {
  EXPECT_EQ(store().get_error(), "not an error");
  prepare_failure("selct 1");
  EXPECT_EQ(store().get_error(), "near \"selct\": syntax error");
}

// ---- Statements without rows --------------------------------------------------------------------

TEST_F(StatementLayer, SuccessfulInsertReturnsDone) {
  EXPECT_EQ(store().execute_none_query(kInsert), SQLITE_DONE);
  EXPECT_EQ(rows("select * from t_sync"), Rows{"me|1|2"});
}

TEST_F(StatementLayer, StatementWithARowReturnsRow) {
  EXPECT_EQ(store().execute_none_query("select 1 union all select 2"), SQLITE_ROW);
  EXPECT_EQ(open_statements(), 0);
}

TEST_F(StatementLayer, StatementThatCannotBePreparedReturnsItsCode) {
  EXPECT_EQ(store().execute_none_query("selct 1"), SQLITE_ERROR);
  EXPECT_EQ(log.take(), Rows{prepare_line + syntax_error});
}

TEST_F(StatementLayer, StatementThatFailsReturnsItsCode) {
  plant(kInsert);
  EXPECT_EQ(store().execute_none_query(kInsert), SQLITE_CONSTRAINT);
  EXPECT_EQ(log.take(), (Rows{step_line + duplicate_user, finalize_line + duplicate_user}));
}

TEST_F(StatementLayer, StatementWithoutConnectionReturnsMinusOneWithoutLogging) {
  store().close_db();
  EXPECT_EQ(store().execute_none_query("select 1"), kNoConnection);
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(StatementLayer, PragmaOfANewFileReadsZero) {
  store().close_db();
  ASSERT_EQ(store().open_db(folder.file("new")), SQLITE_OK);
  EXPECT_EQ(store().get_pragma("pragma user_version"), 0);
}

TEST_F(StatementLayer, PragmaIsTheFirstColumnOfTheFirstRow) {
  EXPECT_EQ(store().get_pragma("select 7,8 union all select 9,10"), 7);
  EXPECT_EQ(store().get_pragma("select -7"), -7);
  EXPECT_EQ(store().get_pragma("select null"), 0);
  EXPECT_EQ(open_statements(), 0);
}

TEST_F(StatementLayer, PragmaWithoutRowIsMinusOne) {
  EXPECT_EQ(store().get_pragma("select 1 where 0"), -1);
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(StatementLayer, PragmaThatCannotBePreparedIsMinusOne) {
  EXPECT_EQ(store().get_pragma("selct 1"), -1);
  EXPECT_EQ(log.take(), Rows{prepare_line + syntax_error});
}

TEST_F(StatementLayer, PragmaThatFailsIsMinusOne) {
  EXPECT_EQ(store().get_pragma("select abs(-9223372036854775808)"), -1);
  EXPECT_EQ(log.take(),
            (Rows{step_line + "1;;;integer overflow", finalize_line + "1;;;integer overflow"}));
}

TEST_F(StatementLayer, PragmaWithoutConnectionIsMinusOneWithoutLogging) {
  store().close_db();
  EXPECT_EQ(store().get_pragma("select 1"), -1);
  EXPECT_EQ(log.take(), Rows{});
}

// ---- Texts --------------------------------------------------------------------------------------

std::string decimal(int64_t number) {
  std::string text = "replaced";
  CvDbSingleton::number_to_string(text, number);
  return text;
}

TEST_F(StatementLayer, NumbersAreWrittenInPlainDecimal) {
  EXPECT_EQ(decimal(-42), "-42");
  EXPECT_EQ(decimal(0), "0");
  EXPECT_EQ(decimal(1234567), "1234567");
  EXPECT_EQ(decimal(std::numeric_limits<int64_t>::max()), "9223372036854775807");
  EXPECT_EQ(decimal(std::numeric_limits<int64_t>::min()), "-9223372036854775808");
}

TEST_F(StatementLayer, PlainIntegersAreWrittenInPlainDecimal) {
  std::string text = "replaced";
  CvDbSingleton::number_to_string<int>(text, std::numeric_limits<int>::min());
  EXPECT_EQ(text, "-2147483648");
}

TEST_F(StatementLayer, NumbersAreNotGroupedUnderAnyGlobalLocale) {
  const GroupingLocale grouping;
  std::string narrow;
  CvDbSingleton::number_to_string<int>(narrow, -1234567);
  const std::string wide = decimal(1234567);
  EXPECT_EQ(wide, "1234567");
  EXPECT_EQ(narrow, "-1234567");
}

// The escaped text and the flag, which starts as given.
using Escaped = std::pair<std::string, bool>;

Escaped escaped(const std::string& keyword, bool flag = false) {
  std::string text = CvDbSingleton::escape_char(keyword, flag);
  return {std::move(text), flag};
}

TEST_F(StatementLayer, WildcardsAndQuoteAreEscapedTogether) {
  EXPECT_EQ(escaped("a_b%c'd"), Escaped("a\\_b\\%c''d", true));
}

TEST_F(StatementLayer, EveryWildcardIsEscaped) {
  EXPECT_EQ(escaped("__"), Escaped("\\_\\_", true));
  EXPECT_EQ(escaped("%%"), Escaped("\\%\\%", true));
}

TEST_F(StatementLayer, DoubledQuoteKeepsTheFlag) {
  EXPECT_EQ(escaped("it's", false), Escaped("it''s", false));
  EXPECT_EQ(escaped("it's", true), Escaped("it''s", true));
}

TEST_F(StatementLayer, BackslashIsNotEscaped) {
  EXPECT_EQ(escaped("a\\b"), Escaped("a\\b", false));
  EXPECT_EQ(escaped("\\_"), Escaped("\\\\_", true));
}

TEST_F(StatementLayer, EscapeFlagIsNeverCleared) {
  EXPECT_EQ(escaped("plain", true), Escaped("plain", true));
  EXPECT_EQ(escaped("", true), Escaped("", true));
}

TEST_F(StatementLayer, WildcardAfterAZeroByteIsIgnored) {
  const std::string hidden("a\0_%'", 5);
  EXPECT_EQ(escaped(hidden), Escaped(hidden, false));
}

TEST_F(StatementLayer, WildcardIsEscapedAfterAZeroByteIfItAlsoOccursBefore) {
  EXPECT_EQ(escaped(std::string("_\0_", 3)), Escaped(std::string("\\_\0\\_", 5), true));
}

std::string joined(const std::vector<int32_t>& kinds, std::string list) {
  std::vector<SessionType> entry;
  entry.reserve(kinds.size());
  for (const int32_t kind : kinds) entry.push_back(static_cast<SessionType>(kind));
  CvDbSingleton::get_instance()->join_type(entry, list);
  return list;
}

TEST_F(StatementLayer, KindsAreJoinedAndInvalidKindsSkipped) {
  EXPECT_EQ(joined({1, 0, 3, 9, 5}, ""), "1,3,5");
}

TEST_F(StatementLayer, KindsAreAppendedToTheList) {
  EXPECT_EQ(joined({1, 0, 3, 9, 5}, "2"), "2,1,3,5");
}

TEST_F(StatementLayer, KindsAreJoinedInTheirOrder) {
  EXPECT_EQ(joined({5, 4, 3, 2, 1, 5}, ""), "5,4,3,2,1,5");
}

TEST_F(StatementLayer, NoValidKindKeepsTheList) {
  EXPECT_EQ(joined({}, ""), "");
  EXPECT_EQ(joined({0, 6, -1}, "2"), "2");
}

// ---- Fatal checks -------------------------------------------------------------------------------

TEST_F(StatementLayerDeath, BindNeedsAStatement) {
  const std::string text = "hello";
  const char* const message = "Check failed: stmt != nullptr\n# bind stmt nullptr\n";
  EXPECT_DEATH(CvDbSingleton::bind(nullptr, 1, 1), message);
  EXPECT_DEATH(CvDbSingleton::bind(nullptr, 1, int64_t{1}), message);
  EXPECT_DEATH(CvDbSingleton::bind(nullptr, 1, text), message);
}

TEST_F(StatementLayerDeath, StepNeedsAStatement) {
  const char* const message = "Check failed: stmt != nullptr\n# step stmt nullptr\n";
  EXPECT_DEATH(store().step(nullptr, false), message);
  EXPECT_DEATH(store().step(nullptr, true), message);
}

TEST_F(StatementLayerDeath, ResetNeedsAStatement) {
  EXPECT_DEATH(store().reset(nullptr), "Check failed: stmt != nullptr\n# reset stmt nullptr\n");
}

TEST_F(StatementLayerDeath, ReadersNeedAStatement) {
  const char* const message = "Check failed: stmt != nullptr\n# get stmt nullptr\n";
  EXPECT_DEATH(CvDbSingleton::get_int(nullptr, 0), message);
  EXPECT_DEATH(CvDbSingleton::get_int64(nullptr, 0), message);
  EXPECT_DEATH(CvDbSingleton::get_text(nullptr, 0), message);
}

TEST_F(StatementLayerDeath, ErrorTextNeedsAConnection) {
  store().close_db();
  EXPECT_DEATH(store().get_error(), "Check failed: db_ != nullptr\n# db nullptr\n");
}

TEST_F(StatementLayerDeath, TextWithoutStatementCannotBeRun) {
  EXPECT_DEATH(store().execute_none_query(""),
               "Check failed: stmt != nullptr\n# step stmt nullptr\n");
}

}  // namespace
}  // namespace corvan_test
