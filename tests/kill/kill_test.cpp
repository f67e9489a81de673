// The store keeps what it acknowledged when its process is killed. A process of its own works on a
// store and tells of each operation that has returned; it is killed at some moment, and what lies
// in the folder then is compared with the model, which has run the same operations. One operation
// may be in doubt: what is stored is the state before it, after one of its own commits, or after
// it.
//
// A killed process leaves all that it wrote with the operating system. That what was acknowledged
// outlives the system or its power, too, is not shown here.
//
// Environment: CORVAN_KILL_SEED is the first life's seed, CORVAN_KILL_CYCLES the number of kills. A
// seed gives the same operations again as long as the operations in doubt end the same way; the
// moments of the kills differ from run to run.

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

#include "tests/kill/checks.h"
#include "tests/kill/killing.h"
#include "tests/kill/planner.h"
#include "tests/support/bounds.h"
#include "tests/support/clock.h"
#include "tests/support/log_capture.h"
#include "tests/support/rows.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

constexpr uint64_t kUsualCycles = 150;
constexpr uint64_t kThoroughCycles = 2000;

struct Statistics {
  Tally tally;
  std::array<uint64_t, kPhases> hits{};  // kills in the middle of each phase
  uint64_t inside_commits = 0;           // kills that left pages of a commit in the log
  uint64_t between_commits = 0;          // kills that left an operation half done, as it may be
  std::size_t largest = 0;               // messages in a store
};

// One store from its first opening through kills.
class StoreLife {
 public:
  StoreLife(uint64_t seed, Watch& watch, Statistics& statistics,
            const std::vector<std::string>& schema)
      : random_(seed), watch_(watch), statistics_(statistics), schema_(schema) {
    static constexpr std::array<Life, 4> short_lives = {Life::kFresh, Life::kDamaged, Life::kFresh,
                                                        Life::kDamaged};
    const uint64_t turn = seed % 12;
    life_ = short_lives.at(static_cast<std::size_t>(turn % short_lives.size()));
    if (turn == 3) life_ = Life::kGrowing;
    if (turn == 6) life_ = Life::kHeavy;
    set_clock(1000000);
    if (life_ == Life::kDamaged) lay_damaged_file();
    kills_left_ = 1 + below(4);
    if (life_ == Life::kGrowing) kills_left_ = 40;
    if (life_ == Life::kDamaged) kills_left_ = 1;
  }

  bool over() const { return kills_left_ == 0; }

  // Kills one process, by preference in the middle of `wanted`. What is wrong then; nothing when
  // all is well.
  std::string kill_once(std::optional<Phase> wanted) {
    --kills_left_;
    const Plan plan = next_plan();
    const Killed killed = kill_at_work(plan, choose_aim(plan, wanted), watch_);
    count(plan, killed);
    const std::string problem = check(plan, killed);
    statistics_.largest = std::max(statistics_.largest, model_.tables().messages.size());
    return problem.empty() ? "" : report(plan, killed) + problem;
  }

  Plan next_plan() {
    std::size_t length = 3 + below(life_ == Life::kGrowing ? 40 : 15);
    if (life_ == Life::kHeavy) length += 15;
    Planner planner(model_, folder_.path(), life_, random_());
    return planner.plan(length, damaged(), opening());
  }

  std::string check(const Plan& plan, const Killed& killed) {
    if (!killed.otherwise.empty()) return "the process " + killed.otherwise + "\n";
    const std::size_t acknowledged = killed.results.size();
    for (std::size_t i = 0; i < acknowledged; ++i) {
      const int64_t expected = run(plan[i], model_);
      if (killed.results[i] == expected) continue;
      return plan[i].text + " answered " + std::to_string(killed.results[i]) + " instead of " +
             std::to_string(expected) + "\n";
    }
    if (damaged() && acknowledged == 0) return check_damaged();
    for (std::size_t i = 0; i < acknowledged; ++i) has_schema_ |= plan[i].gives_store;

    const PlannedCall* next = acknowledged < plan.size() ? &plan[acknowledged] : nullptr;
    const Expected expected{possible_states(model_, next), schema_, !has_schema_};
    return check_store(expected);
  }

  const std::string& folder() const { return folder_.path(); }
  std::string file() const { return folder_.file("corvan"); }

 private:
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }
  bool damaged() const { return !damage_.empty(); }

  // Noise, which SQLite calls no database; or a store with noise where its schema begins, which it
  // calls damaged.
  void lay_damaged_file() {
    std::string noise;
    for (std::size_t left = 1 + below(20000); left > 0; --left) {
      noise += static_cast<char>(below(256));
    }
    damage_ = noise;
    if (below(2) == 0) {
      const TemporaryFolder sound;
      check_with_store(sound.path(), {{Model()}, schema_, false}, 1);
      damage_ = read_file(sound.file("corvan")).replace(100, 16, std::string(16, '\xff'));
    }
    write_file(file(), damage_);
  }

  Phase opening() const {
    if (!has_schema_) return Phase::kCreating;
    const std::string log = folder_.file("corvan-wal");
    const bool left = file_exists(log) && std::filesystem::file_size(log) > 0;
    return left ? Phase::kRecovering : Phase::kOpening;
  }

  // At an operation of one phase of the plan's, and somewhere in the time that such a one takes.
  Aim choose_aim(const Plan& plan, std::optional<Phase> wanted) {
    std::array<std::vector<std::size_t>, kPhases> operations;
    // Large bodies fill the log to where it is checkpointed only in the end.
    for (std::size_t i = life_ == Life::kHeavy ? plan.size() / 2 : 0; i < plan.size(); ++i) {
      operations.at(static_cast<std::size_t>(plan[i].phase)).push_back(i);
    }
    const auto has = [&operations](std::size_t phase) { return !operations.at(phase).empty(); };
    std::size_t phase = 0;
    do {
      phase = below(kPhases);
    } while (!has(phase));
    const auto preferred = static_cast<std::size_t>(wanted.value_or(Phase{}));
    if (wanted && has(preferred)) phase = preferred;
    const auto first = static_cast<std::size_t>(plan.front().phase);
    if (!has_schema_ && has(first) && below(2) == 0) phase = first;
    const std::size_t target = operations.at(phase)[below(operations.at(phase).size())];
    const std::size_t usual = watch_.microseconds(plan[target].phase);
    const std::size_t longest = usual == 0 ? 1000 : usual + usual / 4;
    return {target, static_cast<uint32_t>(below(longest + 1))};
  }

  void count(const Plan& plan, const Killed& killed) {
    ++statistics_.tally.points;
    if (!killed.otherwise.empty()) {
      ++statistics_.tally.aborted;
      return;
    }
    ++statistics_.tally.faults;
    if (killed.running) {
      ++statistics_.hits.at(static_cast<std::size_t>(plan[*killed.running].phase));
    }
    if (ends_inside_commit(folder_.file("corvan-wal"))) ++statistics_.inside_commits;
  }

  // It is there as it was, or gone; then two openings give a working store.
  std::string check_damaged() {
    if (file_exists(file()) && read_file(file()) != damage_)
      return "the damaged file has changed\n";
    return check_with_store(folder(), {{Model()}, schema_, false}, 2).problem;
  }

  // What another connection sees, it sees in a copy: so that the store meets the very files that
  // the process left. Every second time it is the next process that does, and may be killed while
  // it recovers them; the store's own turn is a copy then, too.
  std::string check_store(Expected expected) {
    const Finding found = check_copy(expected, check_with_plain_connection);
    if (!found.state) return "in the file: " + found.problem;
    if (found.between) ++statistics_.between_commits;
    expected.states = {*found.state};
    const bool in_place = below(2) == 0;
    const Finding opened =
        in_place ? check_with_store(folder(), expected, 1) : check_copy(expected, open_once);
    if (!opened.state) return "after opening: " + opened.problem;
    model_ = in_place ? *opened.state : *found.state;
    has_schema_ |= in_place;
    return "";
  }

  static Finding open_once(const std::string& folder, const Expected& expected) {
    return check_with_store(folder, expected, 1);
  }

  template <typename Check>
  Finding check_copy(const Expected& expected, const Check& check) const {
    const TemporaryFolder copy;
    std::filesystem::copy(folder(), copy.path());
    return check(copy.path(), expected);
  }

  static std::string report(const Plan& plan, const Killed& killed) {
    std::string lines;
    for (std::size_t i = 0; i < plan.size(); ++i) {
      const bool acknowledged = i < killed.results.size();
      const bool running = killed.running == i;
      if (!acknowledged && !running && i > killed.results.size()) break;
      lines += acknowledged ? "  done     " : running ? "  running  " : "  in doubt ";
      lines += plan[i].text + "\n";
    }
    return lines;
  }

  std::mt19937_64 random_;
  Watch& watch_;
  Statistics& statistics_;
  const std::vector<std::string>& schema_;
  TemporaryFolder folder_;
  Life life_ = Life::kFresh;
  std::string damage_;  // the file that the life began with
  std::size_t kills_left_ = 0;
  Model model_;              // closed; what the folder holds
  bool has_schema_ = false;  // an opening has returned
};

class KillChecksTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }

  LogCapture log{cvrtc::LS_NONE};  // keeps quiet, in the processes too
  Watch watch;
  Statistics statistics;
  std::vector<std::string> schema = whole_schema();
};

class KillTest : public KillChecksTest {
 protected:
  void TearDown() override { print("kill", statistics.tally); }

  // The first phase that no kill has met.
  std::optional<Phase> missing() const {
    const auto& hits = statistics.hits;
    const auto* const found = std::find(hits.begin(), hits.end(), 0U);
    if (found == hits.end()) return std::nullopt;
    return static_cast<Phase>(found - hits.begin());
  }

  // Lives one after the other, from this seed on, while `more` says so.
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

  // Few cycles may miss something; enough of them go on until nothing is missing.
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

// A plan that ends with a commit of something.
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

TEST_F(KillChecksTest, FindsACommitThatWasAcknowledgedAndNeverMade) {
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

TEST_F(KillChecksTest, FindsWhatIsLostAfterwards) {
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

TEST_F(KillChecksTest, FindsAStoreThatIsGone) {
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

TEST_F(KillChecksTest, FindsAProcessThatEndsOtherwise) {
  StoreLife life(kGrowingSeed, watch, statistics, schema);
  Plan plan = life.next_plan();
  plan[1].on_store = [](Corvan::CvDbSingleton&) -> int64_t { throw std::bad_alloc(); };
  const Killed killed = kill_at_work(plan, {plan.size(), 0}, watch);
  EXPECT_EQ(killed.otherwise, "exited with 3");
  EXPECT_NE(life.check(plan, killed), "");
}

}  // namespace
}  // namespace corvan_test

// Keeps the process small, and so quick to fork, under address sanitizer, which takes its defaults
// from here and otherwise holds on to hundreds of megabytes that were freed.
// NOLINTBEGIN(bugprone-reserved-identifier): the sanitizer's name
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() {
  return "quarantine_size_mb=4:malloc_context_size=8";
}
// NOLINTEND(bugprone-reserved-identifier)
