// The exact SQL texts that each operation passes to SQLite, in order.

#include "base/cv_database.h"
#include "tests/support/operations/operation.h"
#include "tests/support/operations/small_store.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;
using Texts = std::vector<std::string>;

class Ledger : public StoreTest, public testing::WithParamInterface<Statements> {
 protected:
  void SetUp() override {
    StoreTest::SetUp();
    fill_ledger_store(store());
    take_ledger();
  }
};

TEST_P(Ledger, TextsInOrder) {
  GetParam().run(store());
  EXPECT_EQ(take_ledger(), sql_of(GetParam().texts));
  EXPECT_EQ(open_statements(), 0);
}

std::string statements_name(const testing::TestParamInfo<Statements>& info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Operations, Ledger, testing::ValuesIn(all_cases(&Operation::statements)),
                         statements_name);

class LedgerOfOpening : public testing::Test {
 protected:
  LedgerOfOpening() { take_ledger(); }
  ~LedgerOfOpening() override { CvDbSingleton::delete_instance(); }

  bool open(const std::string& user) {
    return CvDbSingleton::get_instance()->init_open_db(cvrtc::Pathname(folder_.path()), "", user);
  }

  TemporaryFolder folder_;
};

// The statements that follow the schema at every opening. Secure deletion is switched on only if it
// is off by default in this SQLite library.
Texts end_of_opening() {
  Texts texts = {"pragma secure_delete"};
  if (!deletes_securely()) texts.emplace_back("pragma secure_delete=ON");
  texts.emplace_back(kMarkFailed.sql);
  texts.emplace_back(kCommit.sql);
  return texts;
}

Texts operator+(Texts texts, const Texts& more) {
  texts.insert(texts.end(), more.begin(), more.end());
  return texts;
}

TEST_F(LedgerOfOpening, NewFile) {
  ASSERT_TRUE(open("me"));
  Texts schema;
  for (const auto& entry : Corvan::CvDatabase::table_index()) schema.push_back(entry.second);
  const Texts before = {"pragma journal_mode=WAL",
                        "pragma wal_autocheckpoint=5000",
                        "pragma temp_store=2",
                        kVersionTable.sql,
                        kBegin.sql,
                        "pragma page_size=4096"};
  EXPECT_EQ(take_ledger(), before + schema + Texts{"pragma user_version=1"} + end_of_opening());
  EXPECT_EQ(open_statements(), 0);
}

TEST_F(LedgerOfOpening, ExistingFile) {
  ASSERT_TRUE(open("me"));
  CvDbSingleton::get_instance()->close_db();
  take_ledger();
  ASSERT_TRUE(open("me"));
  const Texts before = {"pragma journal_mode=WAL",
                        "pragma wal_autocheckpoint=5000",
                        "pragma temp_store=2",
                        kVersionTable.sql,
                        kVersion.sql,
                        kBegin.sql};
  EXPECT_EQ(take_ledger(), before + end_of_opening());
}

TEST_F(LedgerOfOpening, SameUserAgain) {
  ASSERT_TRUE(open("me"));
  take_ledger();
  ASSERT_TRUE(open("me"));
  EXPECT_EQ(take_ledger(), Texts{kMarkFailed.sql});
}

TEST_F(LedgerOfOpening, CopyData) {
  const std::string older = folder_.file("older");
  plant(older,
        "create table t_message(id integer primary key);create table t_sync(user_id);"
        "create table t_session(session_id);create table extra(a);create index extra_a on extra(a);"
        "create view v as select 1;pragma user_version=7");
  ASSERT_TRUE(open("me"));
  CvDbSingleton& store = *CvDbSingleton::get_instance();
  store.execute_none_query("attach '" + older + "' as odb");
  take_ledger();
  const LogCapture quiet(cvrtc::LS_NONE);
  store.createdb_copydata();
  EXPECT_EQ(take_ledger(),
            (Texts{kBegin.sql, "select type,tbl_name,sql from odb.sqlite_master",
                   "CREATE TABLE t_message(id integer primary key)", "CREATE TABLE t_sync(user_id)",
                   "CREATE TABLE t_session(session_id)", "CREATE TABLE extra(a)",
                   "CREATE INDEX extra_a on extra(a)",
                   "insert or replace into t_sync select * from odb.t_sync;",
                   "insert or replace into t_message select * from odb.t_message;",
                   "insert or replace into t_session select * from odb.t_session;",
                   "pragma odb.user_version", "pragma user_version=7", kCommit.sql}));
  EXPECT_EQ(open_statements(), 0);
  store.execute_none_query("detach odb");
}

}  // namespace
}  // namespace corvan_test
