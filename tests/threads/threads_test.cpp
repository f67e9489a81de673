// Several threads on the one store: what the store promises.
//
// Reads and single writes may come from several threads at once. Each statement is atomic: no write
// is lost, no reader sees half a row, and no log line is torn. Opening, closing, transactions and
// paging the conversation list belong to one thread. These tests run all of this at once, and a
// thread checker must report nothing. What the store does not promise is shown in
// not_safe_test.cpp.

#include <algorithm>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/bounds.h"
#include "tests/support/failures.h"
#include "tests/support/store_test.h"
#include "tests/threads/driver.h"
#include "tests/threads/worker.h"

namespace corvan_test {
namespace {

using Corvan::CV_CHATROOM;
using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;
using Corvan::CV_SYSTEM;

class Threads : public StoreTest {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }

  // Runs `count` workers beside the driver, which is this thread.
  void run(uint64_t number, uint64_t count, uint64_t rounds, uint64_t seed) {
    LogCapture everything;
    Driver driver(store(), number);
    driver.prepare();
    std::vector<Worker> workers;
    for (uint64_t i = 0; i < count; ++i) workers.emplace_back(store(), number, i, (i + 1) % count);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < workers.size(); ++i) {
      threads.emplace_back([&workers, i, rounds, seed] { workers[i].work(rounds, seed + i); });
    }
    for (uint64_t i = 0; i < rounds; ++i) driver.work(static_cast<int64_t>(i));
    for (std::thread& thread : threads) thread.join();

    EXPECT_EQ(open_statements(), 0);
    for (const Worker& worker : workers) worker.check(file());
    driver.check(file());
    EXPECT_EQ(rows("pragma integrity_check"), Rows{"ok"});
    Expected expected = driver.expected();
    for (const Worker& worker : workers) {
      expected.stored += worker.expected().stored;
      const Rows& seen = worker.expected().seen;
      expected.seen.insert(expected.seen.end(), seen.begin(), seen.end());
    }
    check_lines(everything.take(), expected);
  }

  // Each line is complete: it has the right beginning and end, and no other line inside. The log
  // contains one line per stored message and one per refused message.
  static void check_lines(const Rows& lines, Expected expected) {
    static const std::string kOperation = "Corvan::CvDbSingleton::";
    static const std::string kStored = "cv;;;save_msg;;;rowid: ";
    static const std::string kSeen = "cv;;;save_msg;;;msg exists: ";
    std::size_t stored = 0;
    Rows seen;
    for (const std::string& line : lines) {
      EXPECT_TRUE(line.compare(0, 2, "0 ") == 0 || line.compare(0, 2, "2 ") == 0) << line;
      const std::size_t name = line.find(kOperation);
      ASSERT_NE(name, std::string::npos) << line;
      EXPECT_EQ(line.find(kOperation, name + 1), std::string::npos) << line;
      const std::size_t fields = line.find("): ");
      ASSERT_NE(fields, std::string::npos) << line;
      const std::string text = line.substr(fields + 3);
      if (text.compare(0, kStored.size(), kStored) == 0) {
        ++stored;
        EXPECT_EQ(text.find_first_not_of("0123456789", kStored.size()), std::string::npos) << line;
      }
      if (text.compare(0, kSeen.size(), kSeen) == 0) seen.push_back(text.substr(kSeen.size()));
    }
    EXPECT_EQ(stored, expected.stored);
    std::sort(seen.begin(), seen.end());
    std::sort(expected.seen.begin(), expected.seen.end());
    EXPECT_EQ(seen, expected.seen);
  }

  // Runs at least once, then as often as time allows, each time with a new seed. Closes and opens
  // the store between runs.
  void run_all(uint64_t count) {
    const uint64_t rounds = bound("CORVAN_THREADS_ROUNDS", 20, 200);
    const uint64_t first_seed = setting("CORVAN_THREADS_SEED", 1);
    const TimeLimit limit;
    Tally tally;
    do {
      const uint64_t seed = first_seed + tally.points;
      const testing::ScopedTrace trace(__FILE__, __LINE__,
                                       "CORVAN_THREADS_SEED=" + std::to_string(seed));
      run(seed, count, rounds, seed);
      ++tally.points;
      EXPECT_TRUE(store().clear_session({CV_PRIVATE, CV_GROUP, CV_CHATROOM, CV_SYSTEM}));
      store().close_db();
      ASSERT_TRUE(open());
    } while (limit.given() && !limit.passed() && !HasFailure());
    print("threads", tally);
  }
};

TEST_F(Threads, TwoThreadsReadAndWriteBesideTheDriver) {
  run_all(2);
}

TEST_F(Threads, FourThreadsReadAndWriteBesideTheDriver) {
  run_all(4);
}

}  // namespace
}  // namespace corvan_test
