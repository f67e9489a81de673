// Statement layer.

#include <cstdint>
#include <string>

#include "tests/support/numbers.h"
#include "tests/support/operations/operation.h"
#include "tests/support/operations/results.h"

namespace corvan_test {

using Corvan::CvDbSingleton;

namespace {

Operation prepare_sql() {
  Operation op("prepare_sql", Commits::kNothing);
  op.calls = {
      {"PrepareSql",
       [](CvDbSingleton& s) {
         int32_t success = -7;
         const bool none = s.prepare_sql("select 1", success) == nullptr;
         return text(none, success);
       },
       {},
       {"true, -1"}},
  };
  op.left_out = {
      {Suite::kStatements, "every operation prepares with it"},
      {Suite::kFaults, "every operation prepares with it"},
      {Suite::kSteps, "only prepares"},
      {Suite::kModel, "the model has no statements"},
      {Suite::kGrowth, "only prepares"},
  };
  return op;
}

Operation finalize() {
  Operation op("finalize", Commits::kNothing);
  op.calls = {
      {"Finalize",
       [](CvDbSingleton& s) {
         s.finalize(nullptr);
         return text("");
       },
       {},
       {""}},
  };
  op.left_out = {
      {Suite::kStatements, "every operation ends with it"},
      {Suite::kFaults, "every operation ends with it"},
      {Suite::kSteps, "every operation ends with it"},
      {Suite::kModel, "the model has no statements"},
      {Suite::kGrowth, "every operation ends with it"},
  };
  return op;
}

Operation execute_none_query() {
  Operation op("execute_none_query", Commits::kOnce);
  op.statements = {
      {"StatementLayer",
       [](CvDbSingleton& s) {
         s.execute_none_query("no such");
         s.get_pragma("pragma user_version");
       },
       {{"no such", kRefused}, {"pragma user_version", kNoPlan}}},
  };
  op.calls = {
      {"ExecuteNone",
       [](CvDbSingleton& s) { return text(s.execute_none_query("delete from t_sync")); },
       [](Answers& a) { return text(a.run("delete from t_sync")); },
       {"-1"}},
  };
  op.flat = {
      {"ExecuteNoneQuery",
       [](FilledStore& s, const Room& room) {
         EXPECT_EQ(s.store().execute_none_query("update t_message set content='changed' where id=" +
                                                std::to_string(room.middle.id)),
                   kDone);
         EXPECT_EQ(s.message(room.middle.id, "content"), "changed");
       }},
  };
  op.left_out = {
      {Suite::kModel, "the model has no statements"},
      {Suite::kGrowth, "runs the caller's statement"},
      {Suite::kKill, "runs the caller's statement"},
      {Suite::kReliability, "runs the caller's statement"},
  };
  return op;
}

Operation get_pragma() {
  Operation op("get_pragma", Commits::kNothing);
  op.calls = {
      {"GetPragma",
       [](CvDbSingleton& s) { return text(s.get_pragma("pragma user_version")); },
       [](Answers& a) { return text(a.row("pragma user_version") ? 1 : -1); },
       {"-1"}},
  };
  op.flat = {
      {"GetPragma",
       [](FilledStore& s, const Room&) {
         EXPECT_EQ(s.store().get_pragma("pragma user_version"), 1);
       },
       {kTiny}},
  };
  op.left_out = {
      {Suite::kStatements, "with execute_none_query()"},
      {Suite::kModel, "the model has no statements"},
      {Suite::kGrowth, "runs the caller's statement"},
  };
  return op;
}

}  // namespace

Operations operations_of_statement_layer() {
  return {
      prepare_sql(),
      outside_the_suites("bind", "works on a statement or a value, not on the store", "(int32_t)"),
      outside_the_suites("bind", "works on a statement or a value, not on the store", "(int64_t)"),
      outside_the_suites("bind", "works on a statement or a value, not on the store", "(text)"),
      outside_the_suites("step", "works on a statement or a value, not on the store"),
      outside_the_suites("reset", "works on a statement or a value, not on the store"),
      finalize(),
      outside_the_suites("get_int", "works on a statement or a value, not on the store"),
      outside_the_suites("get_int64", "works on a statement or a value, not on the store"),
      outside_the_suites("get_text", "works on a statement or a value, not on the store"),
      outside_the_suites("get_error", "needs a failure before it"),
      execute_none_query(),
      get_pragma(),
      outside_the_suites("number_to_string", "works on a statement or a value, not on the store"),
      outside_the_suites("number_to_string", "works on a statement or a value, not on the store",
                         "(any integer)"),
      outside_the_suites("escape_char", "works on a statement or a value, not on the store"),
      outside_the_suites("join_type", "works on a statement or a value, not on the store")};
}

}  // namespace corvan_test
