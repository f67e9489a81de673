// Checks the power suite itself: it finds losses, and its simulated disk does what a disk may do.

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "tests/faults/power_loss.h"
#include "tests/faults/power_scenarios.h"
#include "tests/support/rows.h"

namespace corvan_test {
namespace {

using Corvan::CvDbSingleton;

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

// Saves with a checkpoint between them, after a statement that changes how SQLite syncs.
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

TEST(PowerFinds, NoLossIfEveryCommitIsSynced) {
  const Scenario scenario = saves_after("pragma synchronous=full");
  EXPECT_EQ(losses_of(scenario.name, record(scenario)).complaints, Rows{});
}

TEST(PowerFinds, LossesIfSqliteDoesNotSync) {
  const Scenario scenario = saves_after("pragma synchronous=off");
  const Findings findings = losses_of(scenario.name, record(scenario));
  EXPECT_TRUE(any_contains(findings.complaints, "allowed are"));
  EXPECT_TRUE(any_contains(findings.complaints, "the file is not sound") ||
              any_contains(findings.complaints, "the store complains"));
}

TEST(PowerFinds, LossesIfOnlyCheckpointsSync) {
  const Scenario scenario = saves_after("pragma synchronous=normal");
  const Findings findings = losses_of(scenario.name, record(scenario));
  EXPECT_TRUE(any_contains(findings.complaints, "allowed are"));
  EXPECT_FALSE(any_contains(findings.complaints, "the file is not sound"));
}

TEST(PowerFinds, LossesIfTheDiskIgnoresSyncs) {
  const History history =
      record(saves_after("pragma synchronous=full"), DiskRecorder::Syncs::kIgnored);
  EXPECT_TRUE(any_contains(losses_of("ignored syncs", history).complaints, "allowed are"));
}

TEST(PowerFinds, StateThatWasNeverCommitted) {
  History history = record({"", standard_store, play_saves});
  // Take the state of the third save out of the history: no loss of power may leave it any more.
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

TEST(PowerFinds, WorkAcknowledgedTooEarly) {
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

TEST(PowerDisk, MayLoseAnyUnsyncedWrite) {
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

TEST(PowerDisk, TearsWritesAtSectorBoundaries) {
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

TEST(PowerDisk, MayLoseAFileWhoseFolderWasNotSynced) {
  EXPECT_EQ(images({}, {create_f(), write_f(0, "a")}), (Contents{"-", "", "a"}));
  EXPECT_EQ(images({}, {create_f(), write_f(0, "a"), sync_f(false)}), (Contents{"-", "a"}));
  EXPECT_EQ(images({}, {create_f(), write_f(0, "a"), sync_f(true)}), Contents{"a"});
}

TEST(PowerDisk, MayRestoreADeletedFileWhoseFolderWasNotSynced) {
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
