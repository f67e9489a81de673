#include "tests/model/operations.h"

#include <cstddef>
#include <vector>

#include "tests/model/operation_list.h"

namespace corvan_test {

namespace {

const std::vector<ModelOperation>& operations() {
  static const std::vector<ModelOperation> all = [] {
    std::vector<ModelOperation> both = operations_on_messages();
    const std::vector<ModelOperation> more = operations_on_conversations();
    both.insert(both.end(), more.begin(), more.end());
    return both;
  }();
  return all;
}

constexpr uint64_t kPlaces = 1 << 8;
constexpr uint64_t kNamed = kPlaces << 16;  // the numbers below name their operation

const ModelOperation& chosen(Step& s) {
  const std::vector<ModelOperation>& all = operations();
  if (s.number() < kNamed) return all[s.number() % kPlaces % all.size()];
  static const std::size_t total = [] {
    std::size_t sum = 0;
    for (const ModelOperation& each : operations()) sum += each.weight;
    return sum;
  }();
  std::size_t at = s.below(total);
  for (const ModelOperation& each : all) {
    if (at < each.weight) return each;
    at -= each.weight;
  }
  return all.front();  // not reached
}

}  // namespace

void run_operation(Step& step) {
  if (!step.model().is_open() && step.flag()) return step.open(step.user());
  chosen(step).run(step);
}

uint64_t operation_number(uint8_t place, uint16_t picks) {
  return place + picks * kPlaces;
}

}  // namespace corvan_test
