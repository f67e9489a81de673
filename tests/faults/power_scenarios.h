// The scenarios during which power is lost.

#ifndef TESTS_FAULTS_POWER_SCENARIOS_H_
#define TESTS_FAULTS_POWER_SCENARIOS_H_

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

#include "tests/faults/disk_history.h"
#include "tests/support/operations/operation.h"

namespace corvan_test {

struct Scenario {
  std::string name;
  std::function<DiskImage()> start;
  std::function<void(Recording&)> play;  // opens the store; the recording closes it
};

void PrintTo(const Scenario& scenario, std::ostream* out);

// The folders that scenarios start from: an empty one, and one with the store that the statements
// of the operations start from.
DiskImage no_store();
DiskImage standard_store();
// The standard store whose log has half of a transaction after its last commit.
DiskImage store_after_power_loss();

// The calls of one entry of the table of operations, or of all of them.
Scenario of_statements(const Statements& statements);
std::vector<Scenario> scenarios_of_operations();
// Openings, checkpoints, transactions and other sequences of several operations.
std::vector<Scenario> own_scenarios();
Scenario named(const std::string& name, const std::vector<Scenario>& scenarios);

void execute(Corvan::CvDbSingleton& store, const std::string& sql);
// Saves the messages with these numbers, and acknowledges each separately.
void save_each(Recording& recording, int first, int count);
void play_saves(Recording& recording);
void play_transaction(Recording& recording);
// The same with so few pages in memory that the transaction writes to the log before it commits.
void play_spilling_transaction(Recording& recording);

// Records what the scenario does to the disk, and the states that it commits.
History record(const Scenario& scenario, DiskRecorder::Syncs syncs = DiskRecorder::Syncs::kCounted);

}  // namespace corvan_test

#endif  // TESTS_FAULTS_POWER_SCENARIOS_H_
