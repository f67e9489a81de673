#include "tests/faults/answers.h"

#include <sqlite3.h>

#include <algorithm>
#include <map>

#include "tests/support/sqlite_ledger.h"
#include "tests/support/uncounted.h"

namespace {

bool watching = false;
std::vector<corvan_test::Answer> answers;
std::map<sqlite3_stmt*, std::size_t> open_answers;  // index into `answers` by prepared statement

void note_prepare(const char* sql, int code, sqlite3_stmt* stmt) {
  const corvan_test::Uncounted uncounted;
  if (stmt != nullptr) open_answers[stmt] = answers.size();
  answers.emplace_back();
  answers.back().sql = sql;
  answers.back().prepared = code;
}

void note_step(sqlite3_stmt* stmt, int code) {
  const corvan_test::Uncounted uncounted;
  const auto found = open_answers.find(stmt);
  if (found == open_answers.end()) return;
  corvan_test::Answer& answer = answers[found->second];
  answer.steps.push_back(code);
  sqlite3* const db = sqlite3_db_handle(stmt);
  answer.last_row_id = sqlite3_last_insert_rowid(db);
  answer.in_transaction = sqlite3_get_autocommit(db) == 0;
}

// Records the bound values before the step, which may release their memory.
void note_values(sqlite3_stmt* stmt) {
  const corvan_test::Uncounted uncounted;
  const auto found = open_answers.find(stmt);
  if (found == open_answers.end()) return;
  char* text = sqlite3_expanded_sql(stmt);
  if (text != nullptr) answers[found->second].expanded = text;
  sqlite3_free(text);
}

void note_reset(sqlite3_stmt* stmt) {
  const corvan_test::Uncounted uncounted;
  const auto found = open_answers.find(stmt);
  if (found == open_answers.end() || answers[found->second].steps.empty()) return;
  corvan_test::Answer again;
  again.sql = answers[found->second].sql;
  found->second = answers.size();
  answers.push_back(again);
}

}  // namespace

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
int __real_sqlite3_step(sqlite3_stmt* stmt);
int __real_sqlite3_reset(sqlite3_stmt* stmt);
int __wrap_sqlite3_step(sqlite3_stmt* stmt);
int __wrap_sqlite3_reset(sqlite3_stmt* stmt);

int __wrap_sqlite3_step(sqlite3_stmt* stmt) {
  if (watching) note_values(stmt);
  const int rc = __real_sqlite3_step(stmt);
  if (watching) note_step(stmt, rc);
  return rc;
}

int __wrap_sqlite3_reset(sqlite3_stmt* stmt) {
  if (watching && !corvan_test::called_by_cache()) note_reset(stmt);
  return __real_sqlite3_reset(stmt);
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"

namespace corvan_test {

void start_answers() {
  answers.clear();
  open_answers.clear();
  watching = true;
  watch_prepares(note_prepare);
}

std::vector<Answer> take_answers() {
  watch_prepares(nullptr);
  watching = false;
  return std::exchange(answers, {});
}

}  // namespace corvan_test
