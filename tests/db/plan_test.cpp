// Each statement uses the expected index, and neither scans a table nor sorts, unless the table of
// operations gives a reason. Without statistics, a plan depends only on the schema and, among equal
// indexes, on the order of their creation, so other orders are tried as well. Stores of several
// shapes show that the plans do not depend on the stored rows.

#include <algorithm>
#include <map>

#include "base/cv_database.h"
#include "tests/support/operations/operation.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

// Every text that an operation passes to SQLite.
std::vector<Text> texts() {
  std::vector<Text> texts = {kMarkFailed};
  for (const Statements& each : all_cases(&Operation::statements)) {
    texts.insert(texts.end(), each.texts.begin(), each.texts.end());
  }
  return texts;
}

// The expected plan of each text that SQLite can plan.
std::map<std::string, std::string> plans() {
  std::map<std::string, std::string> plans;
  for (const Text& text : texts()) {
    if (text.plan.shown != nullptr) plans.emplace(text.sql, text.plan.shown);
  }
  return plans;
}

struct Shape {
  std::string name;
  std::string sql;  // creates the rows
};

void PrintTo(const Shape& shape, std::ostream* out) {
  *out << shape.name;
}

std::string shape_name(const testing::TestParamInfo<Shape>& shape) {
  return shape.param.name;
}

const Shape kEmpty = {"Empty", ""};

std::vector<Shape> shapes() {
  const std::string c =
      "with recursive c(i) as (select 1 union all select i+1 from c where i<5000) ";
  return {
      kEmpty,
      {"OneConversationHoldsAll",
       "insert into t_session(session_id,session_type,session_time) values('room',2,9);" + c +
           "insert into t_message(session_id,session_type,direction,sent_time,server_uid,"
           "object_name) select 'room',2,1,i,'s'||i,'CV:TxtMsg' from c"},
      {"OneMessageAConversation",
       c +
           "insert into t_session(session_id,session_type,session_time,latest_id,is_top) "
           "select 'c'||i,1+i%5,i,i,i<20 from c;" +
           c +
           "insert into t_message(session_id,session_type,direction,sent_time) "
           "select 'c'||i,1+i%5,1,i from c"},
      {"OwnMessagesOnly",
       c + "insert into t_message(session_id,session_type,direction,sent_status,sent_time,"
           "client_uid,sender) select 'room',2,0,i%4,i,i,'me' from c"},
      {"UnreadMentionsOfAnOlderStore",
       c + "insert into t_message(session_id,session_type,direction,is_mention,sent_time) "
           "select 'c'||i%3,2,2,i%2,i from c"},
      {"EqualTimesAndNoIds",
       c + "insert into t_message(session_id,session_type) select '',1 from c"},
      {"AllPinned",
       c + "insert into t_session(session_id,session_type,is_top) select i,1+i%2,1 from c"},
  };
}

class Plan : public StoreTest, public testing::WithParamInterface<Shape> {
 protected:
  std::string plan(const std::string& text) const {
    std::string plan;
    for (const std::string& row : rows("explain query plan " + text)) {
      if (!plan.empty()) plan += "; ";
      plan += row.substr(row.find('|', row.find('|', row.find('|') + 1) + 1) + 1);
    }
    return plan;
  }

  void expect_plans() const {
    for (const auto& [sql, expected] : plans()) EXPECT_EQ(plan(sql), expected) << sql;
  }

  void make_indexes_in_another_order(unsigned seed) const {
    std::vector<std::string> indexes;
    for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) {
      if (sql.find("create index") != 0) continue;
      plant("drop index " + name);
      indexes.push_back(sql);
    }
    // Not std::shuffle, whose result differs from library to library.
    for (std::size_t i = indexes.size() - 1; i > 0; --i) {
      seed = seed * 1664525 + 1013904223;
      std::swap(indexes[i], indexes[(seed >> 16) % (i + 1)]);
    }
    for (const std::string& sql : indexes) plant(sql);
  }
};

TEST_P(Plan, EveryStatementHasTheExpectedPlan) {
  plant(GetParam().sql);
  expect_plans();
}

INSTANTIATE_TEST_SUITE_P(Shapes, Plan, testing::ValuesIn(shapes()), shape_name);

class PlanWithOtherIndexOrder : public Plan {};

TEST_P(PlanWithOtherIndexOrder, EveryStatementHasTheExpectedPlan) {
  for (unsigned seed = 1; seed <= 10; ++seed) {
    make_indexes_in_another_order(seed);
    expect_plans();
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, PlanWithOtherIndexOrder, testing::Values(kEmpty), shape_name);

class PlanOfOlderStore : public Plan {};

// Opening a store changes no index.
TEST_P(PlanOfOlderStore, TestByClientKeyUsesTheIndexByConversation) {
  plant(
      "drop index t_message_client_uid;create index t_message_client_uid "
      "on t_message(session_id,session_type,client_uid,sender)");
  for (const auto& [sql, expected] : plans()) {
    EXPECT_EQ(plan(sql), sql != kByClientKey.sql
                             ? expected
                             : "SEARCH t_message USING INDEX t_message_client_uid (session_id=? "
                               "AND session_type=? AND client_uid=? AND sender=?)")
        << sql;
  }
}

INSTANTIATE_TEST_SUITE_P(Shapes, PlanOfOlderStore, testing::Values(kEmpty), shape_name);

TEST(PlanExceptions, OnlyScansAndTextsWithoutPlansHaveReasons) {
  for (const Text& text : texts()) {
    const bool planned = text.plan.shown != nullptr;
    const bool scans = planned && std::string(text.plan.shown).find("SCAN") == 0;
    EXPECT_EQ(text.plan.reason != nullptr, scans || !planned) << text.sql;
  }
}

TEST(PlanExceptions, EachTextHasOnePlan) {
  const std::map<std::string, std::string> expected = plans();
  for (const Text& text : texts()) {
    const auto found = expected.find(text.sql);
    ASSERT_EQ(found != expected.end(), text.plan.shown != nullptr) << text.sql;
    if (found != expected.end()) {
      EXPECT_EQ(found->second, text.plan.shown) << text.sql;
    }
  }
}

}  // namespace
}  // namespace corvan_test
