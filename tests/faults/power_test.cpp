// What the store has acknowledged outlives a loss of power at any moment.
//
// Each scenario is recorded once: all that it does to the disk, and the states that it commits.
// Then power is lost after every event, the disk that may be left (disk_images.h) is put into a
// folder, and the store opened on it: it opens without a word, the file is sound, and it holds
// everything that was acknowledged and, of the operation under way, a whole number of its commits.
// Should it abort, the test ends with it.
//
// Environment: CORVAN_POWER_SEED; CORVAN_POWER_POINTS, how many events of a scenario power is lost
// after (chosen at random, but always those at which something is acknowledged);
// CORVAN_POWER_SUBSETS and CORVAN_POWER_TEARS, how many images of each kind are tried there.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <iostream>
#include <iterator>
#include <map>
#include <memory>
#include <ostream>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/faults/disk_history.h"
#include "tests/faults/disk_images.h"
#include "tests/faults/disk_record.h"
#include "tests/support/bounds.h"
#include "tests/support/operations/operation.h"
#include "tests/support/operations/small_store.h"
#include "tests/support/store_test.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;
using Corvan::MessageResponse;

// ---- Scenarios ----------------------------------------------------------------------------------

struct Scenario {
  std::string name;
  std::function<DiskImage()> start;
  std::function<void(Recording&)> play;  // opens the store, which is closed for it afterwards
};

void PrintTo(const Scenario& scenario, std::ostream* out) {
  *out << scenario.name;
}

NewMessage numbered(int number) {
  const std::string text = std::to_string(number);
  return NewMessage()
      .in("room" + std::to_string(number % 3), Corvan::CV_GROUP)
      .at(1000 + number)
      .named("uid" + text)
      .text("message " + text);
}

// Saves the messages of these numbers, each acknowledged on its own.
void save_each(Recording& recording, int first, int count) {
  for (int i = first; i < first + count; ++i) {
    recording.run([i](CvDbSingleton& store) { EXPECT_GT(save(store, numbered(i)), 0); });
  }
}

// Saves them in the caller's transaction, or in none.
void save_all(CvDbSingleton& store, int first, int count) {
  for (int i = first; i < first + count; ++i) EXPECT_GT(save(store, numbered(i)), 0);
}

void execute(CvDbSingleton& store, const std::string& sql) {
  const int32_t rc = store.execute_none_query(sql);
  EXPECT_TRUE(rc == SQLITE_DONE || rc == SQLITE_ROW) << sql;
}

// A store, closed, that `fill` has filled.
template <typename Fill>
DiskImage store_image(const Fill& fill) {
  set_clock(1000000);
  const TemporaryFolder folder;
  EXPECT_TRUE(open_store(folder.path()));
  fill(*CvDbSingleton::get_instance());
  CvDbSingleton::delete_instance();
  return read_folder(folder.path());
}

DiskImage no_store() {
  return {};
}

// The store that the statements of the operations start from.
DiskImage standard_store() {
  static const DiskImage image = store_image(fill_ledger_store);
  return image;
}

DiskImage larger_store() {
  static const DiskImage image = store_image([](CvDbSingleton& store) {
    store.start_transaction();
    save_all(store, 0, 100);
    EXPECT_TRUE(store.commit_transaction());
  });
  return image;
}

DiskImage sending_store() {
  static const DiskImage image = store_image([](CvDbSingleton& store) {
    fill_ledger_store(store);
    save(store, NewMessage().own(7).at(400).status(1));
    EXPECT_TRUE(store.update_sent_status(2, 1));
  });
  return image;
}

// The standard store beside an older one, "older", with rows that are in both, in either, and more.
DiskImage store_and_older() {
  static const DiskImage image = [] {
    DiskImage both = standard_store();
    both["older"] = store_image([](CvDbSingleton& store) {
      save(store, NewMessage().at(50).named("o1"));
      save_all(store, 0, 10);
      store.set_sync_time(77, true);
      execute(store, "pragma user_version=7");
    })["corvan"];
    return both;
  }();
  return image;
}

// The log goes on behind its last commit with half of a transaction.
DiskImage store_after_power_loss();

Scenario of_statements(const Statements& statements) {
  return {statements.name, standard_store, [run = statements.run](Recording& recording) {
            recording.open();
            recording.run(run);
          }};
}

std::vector<Scenario> scenarios_of_operations() {
  std::vector<Scenario> scenarios;
  for (const Statements& each : all_cases(&Operation::statements)) {
    scenarios.push_back(of_statements(each));
  }
  return scenarios;
}

// Keeps so few pages in memory that a transaction writes to the log long before it commits.
void spill(CvDbSingleton& store) {
  execute(store, "pragma cache_size=5");
  execute(store, "pragma cache_spill=1");
}

std::vector<std::unique_ptr<MessageResponse>> batch(int size) {
  std::vector<std::unique_ptr<MessageResponse>> messages;
  for (int i = 0; i < size; ++i) {
    messages.push_back(std::make_unique<MessageResponse>());
    messages.back()->msg_id_ = -1;
    messages.back()->is_store_ = true;
    messages.back()->session_id_ = "room";
    messages.back()->content_ = "batch " + std::to_string(i);
  }
  return messages;
}

void play_saves(Recording& recording) {
  recording.open();
  save_each(recording, 0, 5);
}

void play_automatic_checkpoints(Recording& recording) {
  recording.open();
  recording.run([](CvDbSingleton& store) { execute(store, "pragma wal_autocheckpoint=25"); });
  save_each(recording, 0, 8);
}

// Checkpoints of every kind, each with saves after it that begin the log anew.
void play_checkpoints(Recording& recording) {
  recording.open();
  save_each(recording, 0, 2);
  int number = 2;
  for (const std::string mode : {"passive", "full", "restart", "truncate"}) {
    recording.run(
        [&](CvDbSingleton& store) { execute(store, "pragma wal_checkpoint(" + mode + ")"); });
    save_each(recording, number, 2);
    number += 2;
  }
}

void save_in_transaction(Recording& recording) {
  recording.run([](CvDbSingleton& store) { EXPECT_TRUE(store.start_transaction()); });
  recording.run([](CvDbSingleton& store) { save_all(store, 0, 50); });
  recording.run([](CvDbSingleton& store) { EXPECT_TRUE(store.commit_transaction()); });
}

void play_transaction(Recording& recording) {
  recording.open();
  save_in_transaction(recording);
}

void play_spilling_transaction(Recording& recording) {
  recording.open();
  save_each(recording, 100, 2);
  recording.run(spill);
  save_in_transaction(recording);
}

void play_rollback(Recording& recording) {
  recording.open();
  recording.run([](CvDbSingleton& store) {
    spill(store);
    EXPECT_TRUE(store.start_transaction());
    save_all(store, 0, 20);
    execute(store, "rollback transaction");
  });
  save_each(recording, 100, 2);
}

void play_closing(Recording& recording) {
  recording.open();
  save_each(recording, 0, 2);
  recording.run([](CvDbSingleton& store) { store.close_db(); });
  recording.open();
  save_each(recording, 2, 2);
  recording.run([](CvDbSingleton& store) { store.close_db(); });
}

void play_closing_inside_transaction(Recording& recording) {
  recording.open();
  recording.run([](CvDbSingleton& store) {
    spill(store);
    EXPECT_TRUE(store.start_transaction());
    save_all(store, 0, 20);
    store.close_db();
  });
  recording.open();
  save_each(recording, 100, 2);
}

void play_compaction(Recording& recording) {
  recording.open();
  recording.run([](CvDbSingleton& store) {
    EXPECT_TRUE(store.clear_message("room1", Corvan::CV_GROUP, true));
  });
  save_each(recording, 200, 1);
  recording.run(
      [](CvDbSingleton& store) { EXPECT_TRUE(store.clear_message_by_timestamp(5000, true)); });
  recording.run([](CvDbSingleton& store) { execute(store, "pragma wal_checkpoint(truncate)"); });
  save_each(recording, 201, 1);
}

void play_copy(Recording& recording) {
  recording.open();
  recording.run([&recording](CvDbSingleton& store) {
    execute(store, "attach '" + recording.file("older") + "' as odb");
  });
  recording.run([](CvDbSingleton& store) { store.createdb_copydata(); });
  EXPECT_EQ(recording.store().get_pragma("pragma user_version"), 7);
  EXPECT_EQ(recording.store().get_pragma("select count(*) from t_message"), 11);
  recording.run([](CvDbSingleton& store) { execute(store, "detach odb"); });
}

void play_batches(Recording& recording) {
  recording.open();
  recording.run([](CvDbSingleton& store) { EXPECT_TRUE(store.save_message(batch(5))); });
  recording.run([](CvDbSingleton& store) {
    EXPECT_TRUE(store.start_transaction());
    EXPECT_TRUE(store.save_message(batch(20)));
    EXPECT_TRUE(store.commit_transaction());
  });
}

void play_long_texts(Recording& recording) {
  constexpr std::size_t kSize = 15000;  // several pages
  recording.open();
  for (const char letter : {'a', 'b'}) {
    recording.run([letter](CvDbSingleton& store) {
      EXPECT_GT(save(store, NewMessage().at(900).text(std::string(kSize, letter))), 0);
    });
  }
  recording.run([](CvDbSingleton& store) {
    EXPECT_TRUE(store.delete_message(std::vector<int64_t>{4}));
    EXPECT_TRUE(store.set_message_content(5, std::string(kSize / 2, 'c'), ""));
  });
}

void play_opening(Recording& recording) {
  recording.open();
  recording.run([](CvDbSingleton& store) {
    EXPECT_GT(save(store, NewMessage().own(8).at(500).status(1)), 0);
  });
  recording.open();
}

std::vector<Scenario> own_scenarios() {
  return {
      {"NewStore", no_store, play_saves},
      {"NewStoreClosed", no_store, play_closing},
      {"Saves", standard_store, play_saves},
      {"Closing", standard_store, play_closing},
      {"ClosingInsideTransaction", standard_store, play_closing_inside_transaction},
      {"AutomaticCheckpoints", standard_store, play_automatic_checkpoints},
      {"Checkpoints", standard_store, play_checkpoints},
      {"Transaction", standard_store, play_transaction},
      {"SpillingTransaction", standard_store, play_spilling_transaction},
      {"Rollback", standard_store, play_rollback},
      {"Compaction", larger_store, play_compaction},
      {"CopyOfOlderStore", store_and_older, play_copy},
      {"Batches", standard_store, play_batches},
      {"LongTexts", standard_store, play_long_texts},
      {"MessagesBeingSent", sending_store, play_opening},
      {"AfterPowerLoss", store_after_power_loss, play_closing},
  };
}

History record(const Scenario& scenario,
               DiskRecorder::Syncs syncs = DiskRecorder::Syncs::kCounted) {
  const DiskImage start = scenario.start();
  set_clock(1000000);
  Recording recording(start, syncs);
  scenario.play(recording);
  return recording.finish();
}

DiskImage store_after_power_loss() {
  static const DiskImage image = [] {
    const History history = record({"", standard_store, play_spilling_transaction});
    const std::size_t commit = history.states.back().event;
    const std::size_t before = history.states.at(history.states.size() - 2).event;
    Disk disk(history.record);
    while (disk.events() < (before + commit) / 2) disk.advance();
    return disk.image(disk.all_kept());
  }();
  return image;
}

// ---- Loss of power ------------------------------------------------------------------------------

struct Bounds {
  uint64_t seed = setting("CORVAN_POWER_SEED", 1);
  uint64_t points = bound("CORVAN_POWER_POINTS", 24, 1000000);
  FateBounds fates = {bound("CORVAN_POWER_SUBSETS", 2, 16), bound("CORVAN_POWER_TEARS", 1, 8)};
};

struct Findings {
  uint64_t moments = 0;  // at which power was lost
  Tally tally;           // its points are images
  std::vector<std::string> complaints;
};

// What became of the store on one image: the state that it holds, or what is wrong with it.
struct Outcome {
  std::string fault;
  StoreState state;
};

std::string joined(const std::vector<std::string>& lines) {
  std::string text;
  for (const std::string& line : lines) text += "\n    " + line;
  return text;
}

// Opens stores on images, in one folder that it fills again and again.
class Reopening {
 public:
  // With `garbage`, a shared-memory file lies beside the store.
  Outcome reopen(const DiskImage& image, bool garbage) {
    std::filesystem::remove_all(folder_.path());
    std::filesystem::create_directory(folder_.path());
    write_folder(folder_.path(), image);
    if (garbage) write_file(folder_.file("corvan-shm"), std::string(32768, '\x5a'));
    const bool opened = open_store(folder_.path());
    Outcome outcome = look(opened);
    CvDbSingleton::get_instance()->close_db();
    take_ledger();
    return outcome;
  }

 private:
  Outcome look(bool opened) {
    if (!opened) return {"the store does not open", {}};
    const Rows lines = log_.take();
    if (!lines.empty()) return {"the store complains when it is opened:" + joined(lines), {}};
    try {
      static const std::string sql = std::string("pragma integrity_check;") + kStoreState;
      Rows all = rows(folder_.file("corvan"), sql);
      if (all.front() != "ok") return {"the file is not sound:" + joined(all), {}};
      all.erase(all.begin());
      return {"", all};
    } catch (const std::runtime_error& error) {
      return {std::string("the file cannot be read: ") + error.what(), {}};
    }
  }

  TemporaryFolder folder_;
  LogCapture log_{cvrtc::LS_WARNING};
};

// Loses power while the history is made, at points and with fates of its own choice.
class PowerLoss {
 public:
  PowerLoss(std::string name, const History& history, const Bounds& bounds)
      : name_(std::move(name)),
        history_(history),
        bounds_(bounds),
        random_(bounds.seed ^ std::hash<std::string>()(name_)) {}

  Findings run() {
    const std::set<std::size_t> points = choose_points();
    for (Disk disk(history_.record);; disk.advance()) {
      if (points.count(disk.events()) != 0) lose_power(disk);
      if (disk.at_end()) return std::move(findings_);
    }
  }

 private:
  std::set<std::size_t> choose_points() {
    std::vector<std::size_t> all(history_.record.events.size() + 1);
    for (std::size_t i = 0; i < all.size(); ++i) all[i] = i;
    std::shuffle(all.begin(), all.end(), random_);
    if (all.size() > bounds_.points) {
      all.resize(static_cast<std::size_t>(bounds_.points));
    }
    std::set<std::size_t> points(all.begin(), all.end());
    for (const History::Acknowledged& mark : history_.acknowledged) points.insert(mark.event);
    return points;
  }

  void lose_power(const Disk& disk) {
    ++findings_.moments;
    for (const Fate& fate : disk.fates(bounds_.fates, random_)) {
      const Outcome& outcome = outcome_of(disk.image(fate), disk.anything_pending());
      const std::string complaint = judge(outcome, disk.events());
      if (complaint.empty()) continue;
      ++findings_.tally.lost;
      findings_.complaints.push_back(described(disk, fate) + complaint);
    }
  }

  // Of images that are the same, only the first is opened.
  const Outcome& outcome_of(const DiskImage& image, bool pending) {
    std::size_t key = 0;
    for (const auto& [name, content] : image) {
      key = key * 31 + std::hash<std::string>()(name);
      key = key * 31 + std::hash<std::string>()(content);
    }
    const auto [at, added] = outcomes_.try_emplace(key);
    if (added) {
      at->second = reopening_.reopen(image, key % 4 == 0);
      ++findings_.tally.points;
      if (pending) ++findings_.tally.faults;
    }
    return at->second;
  }

  // Empty when the outcome is one that a loss of power after so many events may have.
  std::string judge(const Outcome& outcome, std::size_t event) const {
    if (!outcome.fault.empty()) return outcome.fault;
    const auto [first, last] = history_.allowed(event);
    for (std::size_t i = first; i <= last; ++i) {
      if (history_.states[i].content == outcome.state) return "";
    }
    for (std::size_t i = 0; i < history_.states.size(); ++i) {
      if (history_.states[i].content != outcome.state) continue;
      return "the store is in state " + std::to_string(i) + ", allowed are " +
             std::to_string(first) + " to " + std::to_string(last);
    }
    return "the store is in none of its states:" + joined(outcome.state);
  }

  std::string described(const Disk& disk, const Fate& fate) const {
    std::ostringstream text;
    text << "CORVAN_POWER_SEED=" << bounds_.seed << " " << name_ << ", power lost after event "
         << disk.events() << " of " << history_.record.events.size();
    if (disk.events() > 0) text << " (" << history_.record.events[disk.events() - 1] << ")";
    text << ", " << fate.name << ": ";
    return text.str();
  }

  std::string name_;
  const History& history_;
  Bounds bounds_;
  std::mt19937_64 random_;
  Reopening reopening_;
  std::map<std::size_t, Outcome> outcomes_;
  Findings findings_;
};

// ---- Tests --------------------------------------------------------------------------------------

// Of all tests of the process but those that have losses on purpose.
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

// Of many complaints the first few say as much as all.
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

TEST(PowerSeeds, GoOnForAsLongAsThereIsTime) {
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

// ---- What it rests on ---------------------------------------------------------------------------

// The store leaves it to SQLite how often it waits for the disk. Full is SQLite's default unless
// the library was built with another, such as SQLITE_DEFAULT_WAL_SYNCHRONOUS=1: a commit that has
// returned can be lost then.
TEST(PowerSettings, EveryCommitWaitsForTheDisk) {
  constexpr int32_t kFull = 2;
  const TemporaryFolder folder;
  for (const char* const opened : {"new", "again"}) {
    ASSERT_TRUE(open_store(folder.path()));
    EXPECT_EQ(CvDbSingleton::get_instance()->get_pragma("pragma synchronous"), kFull) << opened;
    CvDbSingleton::delete_instance();
  }
}

// How often each kind of event came to each file, such as "sync corvan-wal".
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

Scenario named(const std::string& name, const std::vector<Scenario>& scenarios) {
  const auto found = std::find_if(scenarios.begin(), scenarios.end(),
                                  [&name](const Scenario& one) { return one.name == name; });
  if (found == scenarios.end()) throw std::runtime_error("no scenario " + name);
  return *found;
}

// That the scenarios reach what they are named for.
TEST(PowerRecords, HoldWhatTheScenariosAreFor) {
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

// Power may be lost between the commits of an operation, so what is one transaction has one.
TEST(PowerRecords, HoldOneCommitOfEachOperationThatIsOneTransaction) {
  for (const char* const name : {"SetSendTimeAccepted", "SetReadStatusRead", "SetReadStatusUnread",
                                 "DeleteByIds", "ClearSession", "ClearUnread"}) {
    EXPECT_EQ(states_of(record(named(name, scenarios_of_operations()))), 2U) << name;
  }
  for (const char* const name : {"Transaction", "CopyOfOlderStore"}) {
    EXPECT_EQ(states_of(record(named(name, own_scenarios()))), 2U) << name;
  }
  EXPECT_EQ(states_of(record({"", no_store, [](Recording& recording) { recording.open(); }})), 1U);
}

// What the table says of an operation's commits, on each of its calls: one that changes nothing has
// none.
TEST(PowerRecords, HoldAtMostOneCommitOfWhatCommitsAtOnce) {
  for (const Operation& operation : all_operations()) {
    if (operation.commits != Commits::kOneTransaction) continue;
    for (const Statements& each : operation.statements) {
      EXPECT_LE(states_of(record(of_statements(each))), 2U) << each.name;
    }
  }
}

// ---- That losses are found ----------------------------------------------------------------------

Findings losses_of(const std::string& name, const History& history) {
  Findings findings = PowerLoss(name, history, Bounds()).run();
  EXPECT_EQ(findings.tally.lost, findings.complaints.size());
  return findings;
}

bool any_contains(const std::vector<std::string>& lines, const std::string& part) {
  return std::any_of(lines.begin(), lines.end(), [&part](const std::string& line) {
    return line.find(part) != std::string::npos;
  });
}

// Saves with a checkpoint amid them, after a statement that changes how SQLite syncs.
Scenario saves_after(const std::string& pragma) {
  return {pragma, standard_store, [pragma](Recording& recording) {
            recording.open();
            recording.run([&pragma](CvDbSingleton& store) { execute(store, pragma); });
            save_each(recording, 0, 3);
            recording.run(
                [](CvDbSingleton& store) { execute(store, "pragma wal_checkpoint(truncate)"); });
            save_each(recording, 3, 2);
          }};
}

TEST(PowerFinds, NothingWhereEveryCommitWaits) {
  const Scenario scenario = saves_after("pragma synchronous=full");
  EXPECT_EQ(losses_of(scenario.name, record(scenario)).complaints, Rows{});
}

TEST(PowerFinds, LossesWhereSqliteDoesNotSync) {
  const Scenario scenario = saves_after("pragma synchronous=off");
  const Findings findings = losses_of(scenario.name, record(scenario));
  EXPECT_TRUE(any_contains(findings.complaints, "allowed are"));
  EXPECT_TRUE(any_contains(findings.complaints, "the file is not sound") ||
              any_contains(findings.complaints, "the store complains"));
}

TEST(PowerFinds, LossesWhereOnlyCheckpointsSync) {
  const Scenario scenario = saves_after("pragma synchronous=normal");
  const Findings findings = losses_of(scenario.name, record(scenario));
  EXPECT_TRUE(any_contains(findings.complaints, "allowed are"));
  EXPECT_FALSE(any_contains(findings.complaints, "the file is not sound"));
}

TEST(PowerFinds, LossesWhereTheDiskIgnoresSyncs) {
  const History history =
      record(saves_after("pragma synchronous=full"), DiskRecorder::Syncs::kIgnored);
  EXPECT_TRUE(any_contains(losses_of("ignored syncs", history).complaints, "allowed are"));
}

TEST(PowerFinds, AStateThatNobodyCommitted) {
  History history = record({"", standard_store, play_saves});
  // The third of the saves is taken out of the history: nothing may leave what it has committed.
  const auto before = history.acknowledged.at(3).state;
  const auto after = history.acknowledged.at(4).state;
  ASSERT_LT(before, after);
  const auto at = history.states.begin();
  history.states.erase(at + static_cast<std::ptrdiff_t>(before) + 1,
                       at + static_cast<std::ptrdiff_t>(after) + 1);
  for (History::Acknowledged& mark : history.acknowledged) {
    if (mark.state >= after) mark.state -= after - before;
  }
  EXPECT_TRUE(any_contains(losses_of("missing", history).complaints, "in none of its states"));
}

TEST(PowerFinds, WorkThatIsAcknowledgedTooEarly) {
  History history = record({"", standard_store, play_saves});
  history.acknowledged.at(4).event = history.acknowledged.at(3).event;
  EXPECT_TRUE(any_contains(losses_of("early", history).complaints, "allowed are"));
}

// ---- The disk -----------------------------------------------------------------------------------

// The contents of one file, "-" for none, in every image that a disk may leave after these events.
std::set<std::string> images(const DiskImage& start, const std::vector<DiskEvent>& events) {
  const DiskRecord record = {start, events};
  Disk disk(record);
  while (!disk.at_end()) disk.advance();
  std::mt19937_64 random(1);
  std::set<std::string> contents;
  for (const Fate& fate : disk.fates({200, 8}, random)) {
    const DiskImage image = disk.image(fate);
    const auto file = image.find("f");
    contents.insert(file == image.end() ? "-" : file->second);
  }
  return contents;
}

DiskEvent create_f() {
  return {DiskEvent::kCreate, "f", 0, ""};
}
DiskEvent write_f(int64_t offset, const std::string& bytes) {
  return {DiskEvent::kWrite, "f", offset, bytes};
}
DiskEvent truncate_f(int64_t size) {
  return {DiskEvent::kTruncate, "f", size, ""};
}
DiskEvent sync_f(bool folder) {
  return {DiskEvent::kSync, "f", 0, "", folder};
}
DiskEvent delete_f(bool folder) {
  return {DiskEvent::kDelete, "f", 0, "", folder};
}

using Contents = std::set<std::string>;

TEST(PowerDisk, LosesAnyOfTheWritesThatWereNotSynced) {
  const DiskImage start = {{"f", "...."}};
  EXPECT_EQ(images(start, {}), Contents{"...."});
  EXPECT_EQ(images(start, {write_f(0, "a"), write_f(2, "b")}),
            (Contents{"....", "a...", "..b.", "a.b."}));
  EXPECT_EQ(images(start, {write_f(0, "a"), sync_f(false), write_f(2, "b")}),
            (Contents{"a...", "a.b."}));
  EXPECT_EQ(images(start, {write_f(0, "a"), truncate_f(2)}),
            (Contents{"....", "a...", "..", "a."}));
  EXPECT_EQ(images(start, {write_f(5, "a")}), (Contents{"....", std::string("....\0a", 6)}));
}

TEST(PowerDisk, TearsAWriteBetweenSectors) {
  const auto sectors = [](char a, char b, char c) {
    return std::string(500, a) + std::string(512, b) + std::string(400, c);
  };
  // Written from byte 12 of a sector on.
  const DiskImage start = {{"f", std::string(12, '.') + sectors('.', '.', '.')}};
  const Contents contents = images(start, {write_f(12, sectors('a', 'b', 'c'))});
  Contents expected;
  for (const auto& torn :
       {sectors('.', '.', '.'), sectors('a', '.', '.'), sectors('a', 'b', '.'),
        sectors('.', 'b', 'c'), sectors('.', '.', 'c'), sectors('a', 'b', 'c')}) {
    expected.insert(std::string(12, '.') + torn);
  }
  EXPECT_EQ(contents, expected);
}

TEST(PowerDisk, LosesAFileWhoseFolderWasNotSynced) {
  EXPECT_EQ(images({}, {create_f(), write_f(0, "a")}), (Contents{"-", "", "a"}));
  EXPECT_EQ(images({}, {create_f(), write_f(0, "a"), sync_f(false)}), (Contents{"-", "a"}));
  EXPECT_EQ(images({}, {create_f(), write_f(0, "a"), sync_f(true)}), Contents{"a"});
}

TEST(PowerDisk, BringsBackADeletedFileWhoseFolderWasNotSynced) {
  const DiskImage start = {{"f", "."}};
  EXPECT_EQ(images(start, {delete_f(false)}), (Contents{".", "-"}));
  EXPECT_EQ(images(start, {delete_f(true)}), Contents{"-"});
  EXPECT_EQ(images(start, {delete_f(false), create_f(), write_f(0, "a"), sync_f(false)}),
            (Contents{".", "-", "a"}));
  EXPECT_EQ(images(start, {delete_f(false), create_f(), write_f(0, "a"), sync_f(true)}),
            Contents{"a"});
}

}  // namespace
}  // namespace corvan_test
