// Threads that prepare and finalise the same texts at the same time.

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "addons/statement_cache/statement_cache.h"
#include "db/cv_db_singleton.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;
using Corvan::StatementCache;

// Reads values that only this thread binds, with statements that all threads use.
void use_statements(int32_t thread) {
  CvDbSingleton& store = *CvDbSingleton::get_instance();
  for (int32_t i = 0; i < 2000; ++i) {
    int32_t code = -1;
    sqlite3_stmt* const stmt = store.prepare_sql("select ?," + std::to_string(i % 5), code);
    ASSERT_EQ(code, 0);
    ASSERT_EQ(CvDbSingleton::bind(stmt, 1, thread), 0);
    ASSERT_EQ(store.step(stmt, false), SQLITE_ROW);
    ASSERT_EQ(CvDbSingleton::get_int(stmt, 0), thread);
    ASSERT_EQ(CvDbSingleton::get_int(stmt, 1), i % 5);
    ASSERT_EQ(store.step(stmt, true), SQLITE_DONE);
    if (i % 100 == 0) StatementCache::clear();
  }
}

TEST(CacheThreads, NoTwoShareAStatement) {
  const TemporaryFolder folder;
  LogCapture log(cvrtc::LS_WARNING);
  ASSERT_TRUE(
      CvDbSingleton::get_instance()->init_open_db(cvrtc::Pathname(folder.path()), "", "me"));
  ASSERT_TRUE(StatementCache::set_limit(3));
  std::vector<std::thread> threads;
  for (int32_t thread = 0; thread < 4; ++thread) threads.emplace_back(use_statements, thread);
  for (std::thread& each : threads) each.join();
  EXPECT_TRUE(log.take().empty());
  EXPECT_TRUE(StatementCache::set_limit(StatementCache::kDefaultLimit));
  CvDbSingleton::delete_instance();
}

}  // namespace
}  // namespace corvan_test
