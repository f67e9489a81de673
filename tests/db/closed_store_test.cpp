// Every operation fails on a closed store as its contract says. It passes nothing to SQLite, logs
// no SQLite failure and keeps the caller's values. The table of operations lists the exceptions: a
// few log lines that are written before a statement is prepared, and one text that is passed to
// SQLite anyway.

#include "tests/support/operations/operation.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

const char* const kAllRows = "select * from t_message union all select *,0 from t_session";

class ClosedStore : public StoreTest, public testing::WithParamInterface<Call> {
 protected:
  ClosedStore() : everything_(cvrtc::LS_SENSITIVE) {}
  void SetUp() override {
    StoreTest::SetUp();
    save(NewMessage().named("s1"));
    store().close_db();
    before_ = rows(kAllRows);
    take_ledger();
    everything_.take();
  }

  LogCapture everything_;
  Rows before_;
};

TEST_P(ClosedStore, FailsWithoutCallingSqlite) {
  const ClosedAnswer& expected = GetParam().closed;
  EXPECT_EQ(GetParam().run(store()), expected.result);
  EXPECT_EQ(take_ledger(), expected.texts);
  EXPECT_EQ(everything_.take(), expected.log);
  EXPECT_EQ(rows(kAllRows), before_);
}

std::vector<Call> calls_of_an_open_store() {
  std::vector<Call> calls;
  for (Call& each : all_cases(&Operation::calls)) {
    if (each.start == Call::kOpen) calls.push_back(std::move(each));
  }
  return calls;
}

std::string call_name(const testing::TestParamInfo<Call>& info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Operations, ClosedStore, testing::ValuesIn(calls_of_an_open_store()),
                         call_name);

}  // namespace
}  // namespace corvan_test
