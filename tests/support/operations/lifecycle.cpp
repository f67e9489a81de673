// Lifecycle and opening.

#include <algorithm>
#include <array>
#include <filesystem>
#include <string>

#include "base/cv_database.h"
#include "tests/support/numbers.h"
#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"
#include "tests/support/operations/small_store.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

constexpr int kSchemaRows = 20;  // more than the tables and indexes of the schema

Operation init_open_db(const std::string& folder) {
  Operation op("init_open_db", Commits::kOneTransaction);
  const auto open = [folder](CvDbSingleton& s) {
    return text(s.init_open_db(cvrtc::Pathname(folder), "", "me"));
  };
  const auto opened = [folder](Answers& a) {
    if (a.run(folder + "corvan") != 0) return text(false);
    a.run("pragma journal_mode=WAL");
    a.run("pragma wal_autocheckpoint=5000");
    a.run("pragma temp_store=2");
    const bool has_version = a.row(kVersionTable) && a.row(kVersion);
    a.begin();
    if (!has_version) {
      a.run("pragma page_size=4096");
      for (const auto& entry : Corvan::CvDatabase::table_index()) a.run(entry.second);
      a.run("pragma user_version=1");
    }
    if (!a.row("pragma secure_delete") || !deletes_securely()) a.run("pragma secure_delete=ON");
    a.run(kMarkFailed);
    a.commit();
    return text(true);
  };
  op.calls = {
      {"Create", open, opened, {}, {}, Call::kNoFile},
      {"Open", open, opened, {}, {}, Call::kClosed},
  };
  op.flat = {
      {"InitOpenDb",
       [](FilledStore& s, const Room& room) {
         s.plant("update t_message set sent_status=1 where id=" + std::to_string(room.middle.id));
         s.store().close_db();
         EXPECT_TRUE(s.store().init_open_db(cvrtc::Pathname(s.file()), "", "me"));
         EXPECT_EQ(s.message(room.middle.id, "sent_status"), "2");
       },
       {kLargest, kTiny},
       kSchemaRows},
      {"InitOpenDbOfTheOpenFile",
       [](FilledStore& s, const Room& room) {
         s.plant("update t_message set sent_status=1 where id=" + std::to_string(room.middle.id));
         EXPECT_TRUE(s.store().init_open_db(cvrtc::Pathname(s.file()), "", "me"));
         EXPECT_EQ(s.message(room.middle.id, "sent_status"), "2");
       }},
  };
  op.left_out = {
      {Suite::kStatements, "LedgerOfOpening has its texts, which depend on the file"},
      {Suite::kClosed, "opens the store"},
      {Suite::kModel, "Step::open() calls it"},
      {Suite::kThreads, "driven from one thread"},
      {Suite::kGrowth, "growth.cpp times the opening"},
  };
  return op;
}

Operation close_db() {
  Operation op("close_db", Commits::kNothing);
  op.calls = {
      {"Close",
       [](CvDbSingleton& s) { return s.close_db(), text(""); },
       [](Answers&) { return text(""); },
       {""},
       // A write, so that closing has something to checkpoint.
       [](CvDbSingleton& s) { s.set_silence("room", kRoom, 2); }},
  };
  op.left_out = {
      {Suite::kStatements, "hands no text to SQLite"},
      {Suite::kSteps, "has no statement of its own"},
      {Suite::kModel, "Step::close() calls it"},
      {Suite::kGrowth, "timed with the opening"},
  };
  return op;
}

Operation get_database_version() {
  Operation op("get_database_version", Commits::kNothing);
  op.statements = {
      {"DatabaseVersion",
       [](CvDbSingleton& s) { s.get_database_version(); },
       {kVersionTable, kVersion}},
  };
  op.calls = {
      {"Version",
       [](CvDbSingleton& s) { return s.get_database_version(); },
       [](Answers& a) {
         if (!a.row("select name from sqlite_master")) return text("");
         return text(a.row("select database_version from t_version") ? "1" : "");
       },
       {""}},
  };
  op.flat = {
      {"GetDatabaseVersion",
       [](FilledStore& s, const Room&) { EXPECT_EQ(s.store().get_database_version(), "1"); },
       {kTiny},
       kSchemaRows},
  };
  op.left_out = {
      {Suite::kModel, "the model has no schema"},
  };
  return op;
}

Operation is_table_exist() {
  Operation op("is_table_exist", Commits::kNothing);
  op.statements = {
      {"IsTableExist",
       [](CvDbSingleton& s) { s.is_table_exist("t_sync"); },
       {{"select name from sqlite_master where type='table' and name='t_sync'", kScanOfSchema}}},
  };
  op.calls = {
      {"IsTableExist",
       [](CvDbSingleton& s) { return text(s.is_table_exist("t_message")); },
       {},
       {"false"}},
  };
  op.flat = {
      {"IsTableExist",
       [](FilledStore& s, const Room&) { EXPECT_TRUE(s.store().is_table_exist("t_session")); },
       {kTiny},
       kSchemaRows},
  };
  op.left_out = {
      {Suite::kFaults, "opening and get_database_version() look for a table with it"},
      {Suite::kModel, "the model has no schema"},
  };
  return op;
}

Operation check_integrity() {
  Operation op("check_integrity", Commits::kNothing);
  op.statements = {
      {"CheckIntegrity",
       [](CvDbSingleton& s) {
         std::string result;
         s.check_integrity(result);
       },
       {{"pragma integrity_check;", kNoPlan}}},
  };
  op.calls = {
      {"CheckIntegrity",
       [](CvDbSingleton& s) {
         std::string result;
         const bool sound = s.check_integrity(result);
         const bool named = sound || result == "not a database file";
         return text(sound, named ? result : "findings");
       },
       [](Answers& a) {
         if (!a.prepared("pragma integrity_check;")) {
           return a.run("pragma integrity_check;"), text(false, "not a database file");
         }
         // The store stops after the row "ok"; otherwise it reads all findings.
         return a.row("pragma integrity_check;") ? text(true, "ok") : text(false, "findings");
       },
       {"false, not a database file"}},
  };
  op.growing = {
      {"CheckIntegrity", "the file, which it reads",
       [](FilledStore& s, const Room&) {
         std::string result;
         EXPECT_TRUE(s.store().check_integrity(result));
         EXPECT_EQ(result, "ok");
       }},
  };
  op.left_out = {
      {Suite::kModel, "the model cannot be damaged"},
      {Suite::kThreads, "reads in one statement, as the others do"},
      {Suite::kGrowth, "reads the whole file"},
  };
  return op;
}

Operation is_db_unlocked() {
  Operation op("is_db_unlocked", Commits::kNothing);
  op.statements = {
      {"IsDbUnlocked",
       [](CvDbSingleton& s) { s.is_db_unlocked("secret"); },
       {{"select type from sqlite_master;", kScanOfSchema}}},
  };
  op.calls = {
      {"IsUnlocked",
       [](CvDbSingleton& s) { return text(s.is_db_unlocked("")); },
       [](Answers& a) { return text(a.run("select type from sqlite_master;")); },
       {"21", {}, {"select type from sqlite_master;"}}},
  };
  op.left_out = {
      {Suite::kSteps, "its statement runs inside SQLite and cannot be counted"},
      {Suite::kModel, "the model cannot be damaged"},
  };
  return op;
}

Operation createdb_copydata(const std::string& folder) {
  Operation op("createdb_copydata", Commits::kOneTransaction);
  op.statements = {
      {"CopyDataWithoutOlderStore",
       [](CvDbSingleton& s) { s.createdb_copydata(); },
       {kBegin, {"select type,tbl_name,sql from odb.sqlite_master", kRefused}, kCommit}},
  };
  op.calls = {
      {"CopyOlderStore",
       [](CvDbSingleton& s) { return s.createdb_copydata(), text(""); },
       [](Answers& a) {
         a.begin();
         // The number of CREATE statements by the number of rows: SQLite's own tables and indexes
         // have none.
         constexpr std::array<int, 8> kStatements = {0, 1, 1, 2, 2, 3, 3, 4};
         const int rows = a.rows("select type,tbl_name,sql from odb.sqlite_master");
         const int statements = kStatements.at(static_cast<std::size_t>(std::max(rows, 0)));
         for (int i = 0; i < statements; ++i) a.run("CREATE ");
         if (rows >= 0) {
           a.run("insert or replace into t_sync select");
           a.run("insert or replace into t_message select");
           a.run("insert or replace into t_session select");
           if (a.row("pragma odb.user_version")) a.run("pragma user_version=7");
         }
         a.commit();
         return text("");
       },
       {""},
       [folder](CvDbSingleton& s) { s.execute_none_query("attach '" + folder + "older' as odb"); }},
  };
  op.flat = {
      {"CreatedbCopydata",
       [](FilledStore& s, const Room&) {
         const std::string old = s.file() + ".old";
         std::filesystem::remove(old);
         for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) {
           corvan_test::plant(old, sql);
         }
         corvan_test::plant(old,
                            "insert into t_message(id,session_id,session_type,sent_time) "
                            "values(100001,'copied',2,5),(100002,'copied',2,6);"
                            "insert into t_session(session_id,session_type) values('copied',2)");
         ASSERT_EQ(s.store().execute_none_query("attach '" + old + "' as odb"), kDone);
         s.store().createdb_copydata();
         ASSERT_EQ(s.store().execute_none_query("detach odb"), kDone);
         EXPECT_EQ(s.count("t_message where session_id='copied'"), 2);
         EXPECT_EQ(s.count("t_session where session_id='copied'"), 1);
       },
       {kTiny},
       2 * kSchemaRows},
  };
  op.left_out = {
      {Suite::kModel, "the model has no second store"},
      {Suite::kThreads, "driven from one thread, once"},
      {Suite::kGrowth, "copies a whole store"},
      {Suite::kKill, "power_test covers its one commit"},
  };
  return op;
}

Operation clear_sendstatus() {
  Operation op("clear_sendstatus", Commits::kOnce);
  op.statements = {
      {"ClearSendstatus", [](CvDbSingleton& s) { s.clear_sendstatus(false); }, {kMarkFailed}},
  };
  op.calls = {
      {"MarkFailed",
       [](CvDbSingleton& s) { return s.clear_sendstatus(true), text(""); },
       [](Answers& a) {
         a.run(kMarkFailed);
         return text("");
       },
       {""}},
  };
  op.flat = {
      {"ClearSendstatus",
       [](FilledStore& s, const Room& room) {
         s.plant("update t_message set sent_status=1 where id=" + std::to_string(room.middle.id));
         s.store().clear_sendstatus(true);
         EXPECT_EQ(s.message(room.middle.id, "sent_status"), "2");
       }},
  };
  op.left_out = {
      {Suite::kThreads, "writes in one statement, as the others do"},
      {Suite::kGrowth, "part of the opening, which is timed"},
      {Suite::kKill, "part of the opening"},
      {Suite::kReliability, "part of init_open_db()"},
  };
  return op;
}

}  // namespace

Operations operations_of_lifecycle(const std::string& folder) {
  return {outside_the_suites("get_instance", "creates the object; no file is open yet"),
          outside_the_suites("delete_instance", "closes the store, then destroys the object"),
          init_open_db(folder),
          close_db(),
          get_database_version(),
          is_table_exist(),
          check_integrity(),
          is_db_unlocked(),
          createdb_copydata(folder),
          outside_the_suites("open_db", "init_open_db() opens the file through it"),
          outside_the_suites("open_db", "init_open_db() opens the file through it", "(file_name)"),
          outside_the_suites("is_file_exist", "looks at the file system alone"),
          clear_sendstatus()};
}

}  // namespace corvan_test
