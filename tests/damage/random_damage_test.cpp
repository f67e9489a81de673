// Random damage. The seed also chooses the kind of damage, so CORVAN_DAMAGE_SEED together with
// CORVAN_DAMAGE_POINTS=1 repeats one point. Only "-wal" differs from run to run, because SQLite
// puts random numbers into it.

#include <gtest/gtest.h>

#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "tests/damage/child.h"
#include "tests/damage/examination.h"
#include "tests/damage/files.h"
#include "tests/damage/kinds.h"
#include "tests/support/bounds.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

// Results of one kind of damage. Each file counts in exactly one column besides `found`.
struct Counts {
  uint64_t tried = 0;
  uint64_t deleted = 0;
  uint64_t wrong = 0;   // wrong rows were read before any failure was logged
  uint64_t failed = 0;  // the file was kept, and operations failed
  uint64_t found = 0;   // kept files that check_integrity() reports as damaged
  uint64_t unharmed = 0;
  uint64_t aborted = 0;
};

void count(Counts& counts, const Ended& ended) {
  const Outcome& outcome = ended.outcome;
  ++counts.tried;
  if (!ended.otherwise.empty()) {
    ++counts.aborted;
  } else if (outcome.deleted) {
    ++counts.deleted;
  } else if (outcome.wrong) {
    ++counts.wrong;
    counts.found += outcome.found ? 1 : 0;
  } else if (outcome.failed) {
    ++counts.failed;
  } else {
    ++counts.unharmed;
  }
}

void print_row(const std::string& name, const Counts& counts) {
  std::cout << "| " << name << " | " << counts.tried << " | " << counts.deleted << " | "
            << counts.failed << " | " << counts.wrong << " | " << counts.found << " | "
            << counts.unharmed << " | " << counts.aborted << " |\n";
}

void print_table(const std::vector<Counts>& counts) {
  std::cout << "| Damage | tried | deleted | failed | wrong rows possible | of these found by "
               "check_integrity | unharmed | aborted |\n|---|---|---|---|---|---|---|---|\n";
  for (std::size_t i = 0; i < counts.size(); ++i) print_row(damage_kinds()[i].name, counts[i]);
}

class RandomDamage : public testing::Test {
 protected:
  static void SetUpTestSuite() { prefer_memory(); }

  RandomDamage()
      : closed_{answers_of(closed_store()), true}, crashed_{answers_of(crashed_store()), true} {
    other_store();
  }

  void try_point(uint64_t seed) {
    const auto kind = static_cast<std::size_t>(seed % damage_kinds().size());
    const Ended ended = strike(damage_kinds()[kind], seed);
    count(counts_[kind], ended);
    ++tally_.points;
    if (!ended.otherwise.empty()) ++tally_.aborted;
    const std::string complaint = ended.outcome.complaint.data();
    if (complaint.find("without damage met") != std::string::npos) ++tally_.lost;
    EXPECT_EQ(ended.otherwise + complaint, "")
        << "CORVAN_DAMAGE_SEED=" << seed << " CORVAN_DAMAGE_POINTS=1, "
        << damage_kinds()[kind].name;
  }

  Tally tally_;
  std::vector<Counts> counts_{damage_kinds().size()};

 private:
  Ended strike(const DamageKind& kind, uint64_t seed) {
    const TemporaryFolder folder;
    Random random(seed);
    const Files& sound = kind.crashed ? crashed_store() : closed_store();
    Files files = sound;
    kind.strike(files, random);
    if (files != sound) ++tally_.faults;
    write_files(folder.path(), files);
    const Expected& expected = kind.crashed ? crashed_ : closed_;
    return in_child([&](Outcome& outcome) { examine(folder.path(), expected, outcome); });
  }

  Expected closed_;
  Expected crashed_;
};

TEST_F(RandomDamage, DeletesAFileOnlyIfAPrepareFindsItDamaged) {
  const uint64_t first = setting("CORVAN_DAMAGE_SEED", 1);
  const uint64_t points = bound("CORVAN_DAMAGE_POINTS", 88, 1100);
  const TimeLimit limit;
  uint64_t seed = first;
  while (seed < first + points || (limit.given() && !limit.passed())) try_point(seed++);
  print_table(counts_);
  print("damage", tally_);
}

// The sweep itself must not cause damage.
TEST_F(RandomDamage, SoundFilesAreUnharmed) {
  for (const Files* files : {&closed_store(), &crashed_store()}) {
    const TemporaryFolder folder;
    write_files(folder.path(), *files);
    const Expected expected{answers_of(*files), true};
    const Ended ended =
        in_child([&](Outcome& outcome) { examine(folder.path(), expected, outcome); });
    EXPECT_EQ(ended.otherwise + ended.outcome.complaint.data(), "");
    EXPECT_TRUE(ended.outcome.opened);
    EXPECT_TRUE(ended.outcome.changed);
    EXPECT_FALSE(ended.outcome.deleted);
    EXPECT_STREQ(ended.outcome.failure.data(), "");
    EXPECT_FALSE(ended.outcome.wrong);
    EXPECT_FALSE(ended.outcome.found);
  }
}

}  // namespace
}  // namespace corvan_test
