// Simulates power losses during a history and checks the store that is opened afterwards.

#ifndef TESTS_FAULTS_POWER_LOSS_H_
#define TESTS_FAULTS_POWER_LOSS_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "tests/faults/disk_history.h"
#include "tests/faults/disk_images.h"
#include "tests/support/bounds.h"
#include "tests/support/failures.h"
#include "tests/support/log_capture.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

// How much is tried, from the environment.
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

// The store that was opened on one image: its state, or what is wrong with it.
struct Outcome {
  std::string fault;
  StoreState state;
};

// Opens stores on images, in one folder that it fills again and again.
class Reopening {
 public:
  // With `garbage`, puts a meaningless shared-memory file beside the store.
  Outcome reopen(const DiskImage& image, bool garbage);

 private:
  Outcome look(bool opened);

  TemporaryFolder folder_;
  LogCapture log_{cvrtc::LS_WARNING};
};

// Loses power during the history, at random points, and tries some of the fates that the pending
// writes can have.
class PowerLoss {
 public:
  PowerLoss(std::string name, const History& history, const Bounds& bounds)
      : name_(std::move(name)),
        history_(history),
        bounds_(bounds),
        random_(bounds.seed ^ std::hash<std::string>()(name_)) {}

  Findings run();

 private:
  std::set<std::size_t> choose_points();

  void lose_power(const Disk& disk);

  // Opens each image only once.
  const Outcome& outcome_of(const DiskImage& image, bool pending);

  // Empty if a power loss after this many events may have this outcome.
  std::string judge(const Outcome& outcome, std::size_t event) const;

  std::string described(const Disk& disk, const Fate& fate) const;

  std::string name_;
  const History& history_;
  Bounds bounds_;
  std::mt19937_64 random_;
  Reopening reopening_;
  std::map<std::size_t, Outcome> outcomes_;
  Findings findings_;
};

}  // namespace corvan_test

#endif  // TESTS_FAULTS_POWER_LOSS_H_
