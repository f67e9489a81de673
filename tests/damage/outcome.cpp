#include <algorithm>
#include <cstddef>

#include "tests/damage/child.h"

namespace corvan_test {

namespace {

template <std::size_t size>
void put(std::array<char, size>& field, const std::string& text) {
  const std::size_t count = std::min(text.size(), size - 1);
  std::copy_n(text.begin(), count, field.begin());
  field.at(count) = '\0';
}

}  // namespace

void note_running(Outcome& outcome, const std::string& operation) {
  put(outcome.running, operation);
}

void note_deletion(Outcome& outcome, const std::string& operation) {
  if (!outcome.deleted) put(outcome.deleted_by, operation);
  outcome.deleted = true;
}

void note_failure(Outcome& outcome, const std::string& line) {
  if (!outcome.failed) put(outcome.failure, line);
  outcome.failed = true;
}

void complain(Outcome& outcome, const std::string& text) {
  put(outcome.complaint, outcome.complaint.data() + text + "\n");
}

}  // namespace corvan_test
