// What the store has acknowledged survives a power loss at any moment.
//
// Each scenario is recorded once: all that it does to the disk, and the states that it commits.
// Then power is lost after every event. The disk that may be left (disk_images.h) is put into a
// folder and the store is opened on it. It must open without a log line, the file must be sound,
// and it must contain everything that was acknowledged and, of the operation in progress, a whole
// number of its commits.
//
// Environment: CORVAN_POWER_SEED; CORVAN_POWER_POINTS, the number of events of a scenario after
// which power is lost (chosen at random, and always those at which something is acknowledged);
// CORVAN_POWER_SUBSETS and CORVAN_POWER_TEARS, the number of images of each kind that are tried
// there.

#include <gtest/gtest.h>

#include <iostream>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/faults/power_loss.h"
#include "tests/faults/power_scenarios.h"
#include "tests/support/bounds.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;

// Findings of all tests in the process, except those that cause losses on purpose.
Findings total;

class PrintTotal : public testing::Environment {
 public:
  void SetUp() override { prefer_memory(); }
  void TearDown() override {
    std::cout << "power was lost at " << total.moments << " moments" << std::endl;
    print("power", total.tally);
  }
};
const testing::Environment* const print_total = testing::AddGlobalTestEnvironment(new PrintTotal);

// Shows the first few complaints only.
void expect_nothing_lost(const Scenario& scenario, const Bounds& bounds) {
  constexpr std::size_t kShown = 5;
  const History history = record(scenario);
  const Findings findings = PowerLoss(scenario.name, history, bounds).run();
  total.moments += findings.moments;
  total.tally.points += findings.tally.points;
  total.tally.faults += findings.tally.faults;
  total.tally.lost += findings.tally.lost;
  const std::size_t shown = std::min(kShown, findings.complaints.size());
  for (std::size_t i = 0; i < shown; ++i) ADD_FAILURE() << findings.complaints[i];
  EXPECT_EQ(findings.complaints.size(), 0U) << scenario.name;
}

class Power : public testing::TestWithParam<Scenario> {};

TEST_P(Power, NothingAcknowledgedIsLost) {
  expect_nothing_lost(GetParam(), Bounds());
}

std::string scenario_name(const testing::TestParamInfo<Scenario>& info) {
  return info.param.name;
}

INSTANTIATE_TEST_SUITE_P(Own, Power, testing::ValuesIn(own_scenarios()), scenario_name);
INSTANTIATE_TEST_SUITE_P(Operations, Power, testing::ValuesIn(scenarios_of_operations()),
                         scenario_name);

TEST(PowerSeeds, RepeatWithNewSeedsUntilTheTimeLimit) {
  const TimeLimit limit;
  if (!limit.given()) GTEST_SKIP() << "CORVAN_SECONDS is not set: no time to fill";
  std::vector<Scenario> scenarios = own_scenarios();
  const std::vector<Scenario> more = scenarios_of_operations();
  scenarios.insert(scenarios.end(), more.begin(), more.end());

  Bounds bounds;
  while (!limit.passed() && !HasFailure()) {
    ++bounds.seed;
    for (const Scenario& scenario : scenarios) {
      if (!limit.passed()) expect_nothing_lost(scenario, bounds);
    }
  }
}

// ---- Assumptions of the suite -------------------------------------------------------------------

// The store does not set how often SQLite syncs. The default is full, unless SQLite was built with
// another one, such as SQLITE_DEFAULT_WAL_SYNCHRONOUS=1: then a commit can be lost after it has
// returned.
TEST(PowerSettings, EveryCommitIsSynced) {
  constexpr int32_t kFull = 2;
  const TemporaryFolder folder;
  for (const char* const opened : {"new", "again"}) {
    ASSERT_TRUE(open_store(folder.path()));
    EXPECT_EQ(CvDbSingleton::get_instance()->get_pragma("pragma synchronous"), kFull) << opened;
    CvDbSingleton::delete_instance();
  }
}

// The number of events by kind and file, such as "sync corvan-wal".
std::map<std::string, int> kinds_of_events(const History& history) {
  std::map<std::string, int> kinds;
  for (const DiskEvent& event : history.record.events) ++kinds[kind_and_file(event)];
  return kinds;
}

// How many different states a history has.
std::size_t states_of(const History& history) {
  std::set<StoreState> states;
  for (const History::State& state : history.states) states.insert(state.content);
  return states.size();
}

// Each scenario causes the disk events that it is meant to cover.
TEST(PowerRecords, ContainTheEventsThatEachScenarioIsFor) {
  const auto expect = [](const std::string& name, const std::set<std::string>& expected) {
    std::map<std::string, int> kinds = kinds_of_events(record(named(name, own_scenarios())));
    for (const std::string& kind : expected) EXPECT_GT(kinds[kind], 0) << name << ": " << kind;
  };
  expect("NewStore", {"create corvan", "sync corvan", "create corvan-journal"});
  expect("Closing", {"delete corvan-wal", "write corvan", "sync corvan", "create corvan-wal"});
  expect("AutomaticCheckpoints", {"write corvan", "sync corvan"});
  expect("Checkpoints", {"write corvan", "sync corvan", "truncate corvan-wal"});
  expect("Compaction", {"truncate corvan"});

  const History whole = record({"", standard_store, play_transaction});
  const History spilling = record({"", standard_store, play_spilling_transaction});
  EXPECT_GT(kinds_of_events(spilling)["write corvan-wal"],
            2 * kinds_of_events(whole)["write corvan-wal"]);
  EXPECT_GT(store_after_power_loss()["corvan-wal"].size(), standard_store()["corvan"].size());
}

// Power may be lost between the commits of an operation. An operation that is one transaction must
// have one.
TEST(PowerRecords, ContainOneCommitPerTransactionalOperation) {
  for (const char* const name : {"SetSendTimeAccepted", "SetReadStatusRead", "SetReadStatusUnread",
                                 "DeleteByIds", "ClearSession", "ClearUnread"}) {
    EXPECT_EQ(states_of(record(named(name, scenarios_of_operations()))), 2U) << name;
  }
  for (const char* const name : {"Transaction", "CopyOfOlderStore"}) {
    EXPECT_EQ(states_of(record(named(name, own_scenarios()))), 2U) << name;
  }
  EXPECT_EQ(states_of(record({"", no_store, [](Recording& recording) { recording.open(); }})), 1U);
}

// The same for every call of the operations that the table calls one transaction. A call that
// changes nothing commits nothing.
TEST(PowerRecords, ContainAtMostOneCommitPerCallOfATransactionalOperation) {
  for (const Operation& operation : all_operations()) {
    if (operation.commits != Commits::kOneTransaction) continue;
    for (const Statements& each : operation.statements) {
      EXPECT_LE(states_of(record(of_statements(each))), 2U) << each.name;
    }
  }
}

}  // namespace
}  // namespace corvan_test
