// One store from its first opening through kills.

#ifndef TESTS_KILL_STORE_LIFE_H_
#define TESTS_KILL_STORE_LIFE_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "tests/kill/checks.h"
#include "tests/kill/killing.h"
#include "tests/kill/planner.h"
#include "tests/support/bounds.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

struct Statistics {
  Tally tally;
  std::array<uint64_t, kPhases> hits{};  // kills in the middle of each phase
  uint64_t inside_commits = 0;           // kills that left pages of an unfinished commit in the log
  uint64_t between_commits = 0;          // kills between the commits of one operation
  std::size_t largest = 0;               // messages in the largest store
};

class StoreLife {
 public:
  StoreLife(uint64_t seed, Watch& watch, Statistics& statistics,
            const std::vector<std::string>& schema);

  bool over() const { return kills_left_ == 0; }

  // Kills one process, in the middle of `wanted` if the plan has that phase. Returns what is wrong
  // afterwards; empty if nothing is.
  std::string kill_once(std::optional<Phase> wanted);

  Plan next_plan();

  // Compares what the process left with the model. Empty if nothing is wrong.
  std::string check(const Plan& plan, const Killed& killed);

  const std::string& folder() const { return folder_.path(); }
  std::string file() const { return folder_.file("corvan"); }

 private:
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }
  bool damaged() const { return !damage_.empty(); }

  // Writes random bytes, which SQLite reports as not a database, or a store whose schema begins
  // with random bytes, which SQLite reports as damaged.
  void lay_damaged_file();

  Phase opening() const;

  // Chooses an operation of one phase of the plan, and a moment within the time that it usually
  // takes.
  Aim choose_aim(const Plan& plan, std::optional<Phase> wanted);

  void count(const Plan& plan, const Killed& killed);

  // The damaged file must be unchanged or deleted, and two openings must produce a working store.
  // If the stores are encrypted, the file must be unchanged.
  std::string check_damaged();

  // A separate connection reads a copy, so that the store opens exactly the files that the process
  // left. Every second time the store opens a copy as well, so that the next process recovers the
  // files and may be killed meanwhile.
  std::string check_store(Expected expected);

  static Finding open_once(const std::string& folder, const Expected& expected);

  template <typename Check>
  Finding check_copy(const Expected& expected, const Check& check) const;

  static std::string report(const Plan& plan, const Killed& killed);

  std::mt19937_64 random_;
  Watch& watch_;
  Statistics& statistics_;
  const std::vector<std::string>& schema_;
  TemporaryFolder folder_;
  Life life_ = Life::kFresh;
  std::string damage_;  // the damaged file that the life began with
  std::size_t kills_left_ = 0;
  Model model_;              // the content of the folder; closed
  bool has_schema_ = false;  // an opening has returned
};

}  // namespace corvan_test

#endif  // TESTS_KILL_STORE_LIFE_H_
