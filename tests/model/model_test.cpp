// Runs random sequences of operations in the store and in the model. Equal seeds give equal
// sequences on every machine: an operation is a number, and its arguments follow from that number
// and from the model's rows at that moment.
//
// Environment: CORVAN_MODEL_SEED (first seed), CORVAN_MODEL_SEQUENCES, CORVAN_MODEL_LENGTH,
// CORVAN_SECONDS.

#include <gtest/gtest.h>

#include <cstdint>

#include "tests/model/run.h"
#include "tests/support/bounds.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {
namespace {

TEST(ModelTest, AgreesWithTheStoreOnRandomSequences) {
  const uint64_t first = setting("CORVAN_MODEL_SEED", 1);
  const uint64_t count = bound("CORVAN_MODEL_SEQUENCES", 300, 5000);
  const auto length = static_cast<std::size_t>(setting("CORVAN_MODEL_LENGTH", 50));
  const TimeLimit limit;
  prefer_memory();
  SideBySide both;
  const auto ended = [&](uint64_t seed) {
    return limit.given() ? limit.passed() : seed - first >= count;
  };
  for (uint64_t seed = first; !ended(seed); ++seed) {
    const Sequence sequence = sequence_of(seed, length);
    const auto difference = both.run(sequence, 4);
    if (!difference) continue;
    ADD_FAILURE() << "CORVAN_MODEL_SEED=" << seed
                  << " CORVAN_MODEL_SEQUENCES=1 CORVAN_MODEL_LENGTH=" << length << ", operation "
                  << difference->index << ":\n"
                  << report(*difference) << "shrunk:\n"
                  << both.shrink(sequence);
    break;
  }
  Tally tally;
  tally.points = both.operations();
  print("model", tally);
}

}  // namespace
}  // namespace corvan_test
