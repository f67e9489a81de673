#include "tests/threads/meanwhile.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <thread>
#include <utility>

namespace corvan_test {

void on_another_thread(const std::function<void()>& work) {
  std::thread(work).join();
}

std::atomic<Meanwhile*> Meanwhile::armed{nullptr};

Meanwhile::~Meanwhile() {
  armed = nullptr;
  EXPECT_TRUE(ran_) << beginning_;
}

Meanwhile::Meanwhile(Moment moment, std::string beginning, std::function<void()> work)
    : moment_(moment), beginning_(std::move(beginning)), work_(std::move(work)) {
  armed = this;
}

void Meanwhile::reach(Moment moment, sqlite3_stmt* stmt) {
  Meanwhile* const meanwhile = armed.load(std::memory_order_relaxed);
  if (meanwhile != nullptr) meanwhile->run(moment, stmt);
}

void Meanwhile::run(Moment moment, sqlite3_stmt* stmt) {
  if (ran_ || moment != moment_) return;
  if (std::string(sqlite3_sql(stmt)).compare(0, beginning_.size(), beginning_) != 0) return;
  ran_ = true;
  on_another_thread(work_);
}

}  // namespace corvan_test

extern "C" {

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
int __real_sqlite3_step(sqlite3_stmt* stmt);
int __wrap_sqlite3_step(sqlite3_stmt* stmt);

int __wrap_sqlite3_step(sqlite3_stmt* stmt) {
  corvan_test::Meanwhile::reach(corvan_test::Meanwhile::kBefore, stmt);
  const int rc = __real_sqlite3_step(stmt);
  corvan_test::Meanwhile::reach(corvan_test::Meanwhile::kAfter, stmt);
  return rc;
}
// NOLINTEND(bugprone-reserved-identifier)

}  // extern "C"
