// Runs equal random sequences with Corvan::db and with Corvan::db_cached, and compares their
// transcripts line by line. Environment: CORVAN_TWINS_SEED (first seed), CORVAN_TWINS_SEQUENCES,
// CORVAN_TWINS_LENGTH, CORVAN_SECONDS.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>

#include "tests/support/bounds.h"
#include "tests/support/temporary_folder.h"
#include "tests/twins/running.h"

namespace corvan_test {
namespace {

constexpr uint64_t kAtOnce = 50;  // sequences that one process runs

class Twins : public testing::Test {
 protected:
  static std::string transcript(const std::string& program, uint64_t seed, uint64_t count) {
    const TemporaryFolder folder;
    const std::string file = folder.file("transcript");
    EXPECT_EQ(run_program(program, {file, std::to_string(seed), std::to_string(count),
                                    std::to_string(length())}),
              0)
        << program << ", seed " << seed;
    return read_file(file);
  }

  static uint64_t length() { return setting("CORVAN_TWINS_LENGTH", 60); }

  // From the heading of the operation in which the two differ.
  static std::string difference(const std::string& plain, const std::string& cached) {
    std::size_t at = 0;
    while (at < plain.size() && at < cached.size() && plain[at] == cached[at]) ++at;
    const std::size_t from = at < 3000 ? 0 : at - 3000;
    return plain.substr(from, at - from) + "\n---- Corvan::db:\n" + plain.substr(at, 2000) +
           "\n---- Corvan::db_cached:\n" + cached.substr(at, 2000);
  }

  // Compares the sequences from `seed` on. Returns whether there is no difference.
  static bool equal(uint64_t seed, uint64_t count) {
    const std::string plain = transcript(CORVAN_TRANSCRIPT, seed, count);
    const std::string cached = transcript(CORVAN_TRANSCRIPT_CACHED, seed, count);
    EXPECT_FALSE(plain.empty()) << "nothing was compared";
    if (plain == cached) return true;
    if (count > 1) {
      for (uint64_t each = seed; each - seed < count; ++each) {
        if (!equal(each, 1)) return false;
      }
    }
    ADD_FAILURE() << "CORVAN_TWINS_SEED=" << seed << " CORVAN_TWINS_SEQUENCES=" << count
                  << " CORVAN_TWINS_LENGTH=" << length() << "\n"
                  << difference(plain, cached);
    return false;
  }
};

TEST_F(Twins, GiveTheSameResultsRowsAndLogLines) {
  prefer_memory();
  const uint64_t first = setting("CORVAN_TWINS_SEED", 1);
  const uint64_t count = bound("CORVAN_TWINS_SEQUENCES", 200, 5000);
  const TimeLimit limit;
  Tally tally;
  for (uint64_t done = 0; limit.given() ? !limit.passed() : done < count;) {
    const uint64_t some = limit.given() ? kAtOnce : std::min(kAtOnce, count - done);
    if (!equal(first + done, some)) break;
    done += some;
    tally.points = done * length();
  }
  print("twins", tally);
}

}  // namespace
}  // namespace corvan_test
