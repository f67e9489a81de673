#include "tests/fuzz/targets.h"
#include "tests/model/operations.h"
#include "tests/model/run.h"
#include "tests/support/temporary_folder.h"

namespace corvan_test {

namespace {

Sequence decode(const uint8_t* data, std::size_t size) {
  Sequence sequence;
  for (std::size_t at = 0; at + kOperationBytes <= size; at += kOperationBytes) {
    if (sequence.size() == kMostOperations) break;
    const int picks = data[at + 1] + (data[at + 2] << 8);
    sequence.push_back(operation_number(data[at], static_cast<uint16_t>(picks)));
  }
  return sequence;
}

SideBySide& both() {
  static SideBySide instance;
  return instance;
}

}  // namespace

std::string check_operations(const uint8_t* data, std::size_t size) {
  prefer_memory();
  const Sequence sequence = decode(data, size);
  const auto difference = both().run(sequence, 1);
  if (!difference) return "";
  return "operation " + std::to_string(difference->index) + ":\n" + report(*difference) +
         "shrunk:\n" + both().shrink(sequence);
}

}  // namespace corvan_test
