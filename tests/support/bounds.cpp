#include "tests/support/bounds.h"

#include <cstdlib>
#include <iostream>

namespace corvan_test {
namespace {

const auto process_start = std::chrono::steady_clock::now();

}  // namespace

uint64_t setting(const char* name, uint64_t fallback) {
  const char* value = std::getenv(name);
  return value == nullptr ? fallback : std::stoull(value);
}

uint64_t bound(const char* name, uint64_t usual, uint64_t thorough) {
  const char* bounds = std::getenv("CORVAN_BOUNDS");
  const bool more = bounds != nullptr && std::string(bounds) == "thorough";
  return setting(name, more ? thorough : usual);
}

TimeLimit::TimeLimit() : start_(process_start), seconds_(setting("CORVAN_SECONDS", 0)) {}

bool TimeLimit::passed() const {
  return given() && std::chrono::steady_clock::now() - start_ >= std::chrono::seconds(seconds_);
}

void print(const std::string& suite, const Tally& tally) {
  std::cout << "[ tally ] " << suite << ": points tried " << tally.points << ", faults injected "
            << tally.faults << ", lost " << tally.lost << ", aborted " << tally.aborted
            << std::endl;
}

}  // namespace corvan_test
