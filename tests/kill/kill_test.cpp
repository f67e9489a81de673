// The store keeps what it acknowledged when its process is killed. A child process works on a store
// and reports each operation that has returned. It is killed at some moment, and the content of the
// folder is compared with the model, which has run the same operations. One operation may be in
// doubt: the stored state is the one before it, after one of its own commits, or after it.
//
// The operating system keeps everything that a killed process wrote. power_test shows that
// acknowledged work also survives a crash of the system or a power loss.
//
// Environment: CORVAN_KILL_SEED is the seed of the first life, CORVAN_KILL_CYCLES the number of
// kills. A seed repeats the same operations as long as the operations in doubt end the same way.
// The moments of the kills differ from run to run.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <iostream>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/kill/store_life.h"
#include "tests/support/bounds.h"
#include "tests/support/clock.h"
#include "tests/support/log_capture.h"
#include "tests/support/rows.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

constexpr uint64_t kUsualCycles = 150;
constexpr uint64_t kThoroughCycles = 2000;

class KillChecksTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }

  LogCapture log{cvrtc::LS_NONE};  // discards all lines, in the child processes as well
  Watch watch;
  Statistics statistics;
  std::vector<std::string> schema = whole_schema();
};

class KillTest : public KillChecksTest {
 protected:
  void TearDown() override { print("kill", statistics.tally); }

  // The first phase that no kill has hit.
  std::optional<Phase> missing() const {
    const auto& hits = statistics.hits;
    const auto* const found = std::find(hits.begin(), hits.end(), 0U);
    if (found == hits.end()) return std::nullopt;
    return static_cast<Phase>(found - hits.begin());
  }

  // Runs one life after the other, from this seed on, while `more` returns true.
  template <typename More>
  void kill_while(uint64_t seed, const More& more) {
    for (; more(); ++seed) {
      StoreLife life(seed, watch, statistics, schema);
      for (uint64_t kills = 1; more() && !life.over(); ++kills) {
        const std::string problem = life.kill_once(missing());
        if (problem.empty()) continue;
        ++statistics.tally.lost;
        FAIL() << "CORVAN_KILL_SEED=" << seed << " CORVAN_KILL_CYCLES=" << kills << ":\n"
               << problem;
      }
    }
  }
};

TEST_F(KillTest, KeepsWhatWasAcknowledged) {
  const uint64_t cycles = bound("CORVAN_KILL_CYCLES", kUsualCycles, kThoroughCycles);
  const TimeLimit limit;
  const Tally& tally = statistics.tally;
  kill_while(setting("CORVAN_KILL_SEED", 1),
             [&] { return limit.given() ? !limit.passed() : tally.points < cycles; });
  if (HasFailure()) return;

  // Few cycles may miss a phase. With the usual number or more, continue until every phase has been
  // hit.
  if (cycles >= kUsualCycles) {
    kill_while(setting("CORVAN_KILL_SEED", 1) + cycles, [&] {
      return (missing() || statistics.inside_commits == 0) && tally.points < 4 * cycles;
    });
    EXPECT_EQ(missing(), std::nullopt);
    EXPECT_GT(statistics.inside_commits, 0U);
  }
  for (std::size_t i = 0; i < kPhases; ++i) {
    std::cout << "  killed while " << name(static_cast<Phase>(i)) << ": " << statistics.hits.at(i)
              << "\n";
  }
  std::cout << "  in the log, pages of a commit that did not end: " << statistics.inside_commits
            << "\n  operations stored up to one of their own commits: "
            << statistics.between_commits
            << "\n  messages in the largest store: " << statistics.largest << std::endl;
}

// ---- The checks find what is lost ---------------------------------------------------------------

// A plan that ends with a commit that changes messages.
Plan plan_with_commit(StoreLife& life) {
  for (;;) {
    Plan plan = life.next_plan();
    Model model;
    Tables before;
    for (std::size_t i = 0; i < plan.size(); ++i) {
      if (!model.in_transaction()) before = model.tables();
      const bool committed = run(plan[i], model) == 1 && plan[i].phase == Phase::kCommitting;
      if (!committed || model.tables().messages.size() == before.messages.size()) continue;
      plan.resize(i + 1);
      return plan;
    }
  }
}

constexpr uint64_t kGrowingSeed = 3;

TEST_F(KillChecksTest, FindsACommitThatWasAcknowledgedButNeverMade) {
  for (const bool honest : {true, false}) {
    StoreLife life(kGrowingSeed, watch, statistics, schema);
    Plan plan = plan_with_commit(life);
    if (!honest) plan.back().on_store = [](Corvan::CvDbSingleton&) { return int64_t{1}; };
    const Killed killed = kill_at_work(plan, {plan.size(), 0}, watch);
    ASSERT_EQ(killed.otherwise, "");
    ASSERT_EQ(killed.results.size(), plan.size());
    const std::string problem = life.check(plan, killed);
    EXPECT_EQ(problem.empty(), honest) << problem;
    EXPECT_EQ(problem.find("missing") == std::string::npos, honest) << problem;
  }
}

TEST_F(KillChecksTest, FindsLostOrChangedContent) {
  const std::vector<std::string> losses = {
      "delete from t_message where id=(select max(id) from t_message)",
      "update t_message set content=content||'x' where id=(select min(id) from t_message)",
      "update t_session set unread_count=unread_count+1",
      "delete from t_session",
      "insert into t_sync(user_id,receive_time) values('nobody',1)",
      "update sqlite_sequence set seq=seq-1",
      "drop index t_message_session",
      "drop table t_version",
      "pragma user_version=0",
  };
  for (const std::string& loss : losses) {
    SCOPED_TRACE(loss);
    StoreLife life(kGrowingSeed, watch, statistics, schema);
    const Plan plan = plan_with_commit(life);
    const Killed killed = kill_at_work(plan, {plan.size(), 0}, watch);
    plant(life.file(), loss);
    EXPECT_NE(life.check(plan, killed), "");
  }
}

TEST_F(KillChecksTest, FindsAMissingStore) {
  StoreLife life(kGrowingSeed, watch, statistics, schema);
  const Plan plan = plan_with_commit(life);
  const Killed killed = kill_at_work(plan, {plan.size(), 0}, watch);
  for (const auto& file : std::filesystem::directory_iterator(life.folder())) {
    std::filesystem::remove(file);
  }
  EXPECT_NE(life.check(plan, killed), "");
}

constexpr uint64_t kDamagedSeed = 1;

TEST_F(KillChecksTest, FindsADamagedFileThatWasChanged) {
  for (const bool changed : {false, true}) {
    StoreLife life(kDamagedSeed, watch, statistics, schema);
    if (changed) write_file(life.file(), read_file(life.file()) + "x");
    EXPECT_EQ(life.check(life.next_plan(), {}).empty(), !changed);
  }
}

TEST_F(KillChecksTest, FindsAProcessThatWasNotKilled) {
  StoreLife life(kGrowingSeed, watch, statistics, schema);
  Plan plan = life.next_plan();
  plan[1].on_store = [](Corvan::CvDbSingleton&) -> int64_t { throw std::bad_alloc(); };
  const Killed killed = kill_at_work(plan, {plan.size(), 0}, watch);
  EXPECT_EQ(killed.otherwise, "exited with 3");
  EXPECT_NE(life.check(plan, killed), "");
}

}  // namespace
}  // namespace corvan_test

// The defaults of address sanitizer. They keep the process small, and so quick to fork: the
// sanitizer otherwise keeps hundreds of freed megabytes.
// NOLINTBEGIN(bugprone-reserved-identifier): the sanitizer's name
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "quarantine_size_mb=4:malloc_context_size=8";
}
// NOLINTEND(bugprone-reserved-identifier)
