// The checks of examination.h notice what an operation leaves open.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>
#include <utility>

#include "tests/damage/damage_checks.h"
#include "tests/support/sqlite_ledger.h"
#include "tests/support/unrecorded.h"

namespace corvan_test {
namespace {

TEST_F(DamageChecks, NoticesATransactionLeftOpen) {
  const std::string text = complaint([](const char* sql, int /*code*/, sqlite3_stmt* /*stmt*/) {
    if (is_check(sql)) sqlite3_exec(store_connection(), "begin", nullptr, nullptr, nullptr);
  });
  EXPECT_EQ(text.rfind("check_integrity: left a transaction open\n", 0), 0U) << text;
}

TEST_F(DamageChecks, NoticesAStatementLeftOpen) {
  static sqlite3_stmt* left = nullptr;  // until the next one is prepared
  const std::string text = complaint([](const char* sql, int /*code*/, sqlite3_stmt* /*stmt*/) {
    sqlite3_finalize(std::exchange(left, nullptr));
    if (is_check(sql)) prepare_unrecorded(store_connection(), "select 1", &left);
  });
  EXPECT_EQ(text, "check_integrity: left a statement open\n");
}

}  // namespace
}  // namespace corvan_test
