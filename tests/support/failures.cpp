#include "tests/support/failures.h"

#include <sqlite3.h>

#include "tests/support/sqlite_ledger.h"

namespace corvan_test {

namespace {

std::string fields(int code, const std::string& error) {
  return std::to_string(code) + ";;;" + error;
}

bool is_stepping(sqlite3* db) {
  for (sqlite3_stmt* stmt = sqlite3_next_stmt(db, nullptr); stmt != nullptr;
       stmt = sqlite3_next_stmt(db, stmt)) {
    if (sqlite3_stmt_busy(stmt) != 0) return true;
  }
  return false;
}

}  // namespace

std::string refuse(const std::string& event) {
  return "create trigger \"refuse " + event + "\" before " + event +
         " begin select raise(abort,'refused'); end";
}

StepsUntilInterrupt::StepsUntilInterrupt(int steps) : left_(steps), db_(store_connection()) {
  sqlite3_progress_handler(db_, 1, progress, this);
}

StepsUntilInterrupt::~StepsUntilInterrupt() {
  sqlite3_progress_handler(db_, 0, nullptr, nullptr);
}

// SQLite 3.41 and later also call it while they prepare a statement.
int StepsUntilInterrupt::progress(void* self) {
  auto& interrupt = *static_cast<StepsUntilInterrupt*>(self);
  return is_stepping(interrupt.db_) && --interrupt.left_ < 0 ? 1 : 0;
}

std::string prepare_failed(const std::string& error, int code) {
  return "4 sqlite3_stmt *Corvan::CvDbSingleton::prepare_sql(const std::string &, int32_t &): "
         "P-more-C;;;prepare_db;;;" +
         fields(code, error);
}

std::string no_table(const std::string& name) {
  return prepare_failed("no such table: " + name);
}

std::string step_failed(int code, const std::string& error) {
  return "3 int32_t Corvan::CvDbSingleton::step(sqlite3_stmt *, bool): P-more-C;;;step;;;" +
         fields(code, error);
}

std::string reset_failed(int code, const std::string& error) {
  return "3 void Corvan::CvDbSingleton::reset(sqlite3_stmt *): P-more-C;;;reset;;;" +
         fields(code, error);
}

std::string finalize_failed(int code, const std::string& error) {
  return "3 void Corvan::CvDbSingleton::finalize(sqlite3_stmt *): P-more-C;;;finalize;;;" +
         fields(code, error);
}

std::vector<std::string> run_failed(int code, const std::string& error) {
  return {step_failed(code, error), finalize_failed(code, error)};
}

std::vector<std::string> run_refused() {
  return run_failed(kRefusedCode, kRefusedText);
}

}  // namespace corvan_test
