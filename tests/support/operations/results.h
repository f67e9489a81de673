// Results and out-parameters as text, so that one comparison covers both.

#ifndef TESTS_SUPPORT_OPERATIONS_RESULTS_H_
#define TESTS_SUPPORT_OPERATIONS_RESULTS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "db/cv_db_records.h"
#include "tests/support/operations/answers.h"
#include "tests/support/uncounted.h"

namespace corvan_test {

std::string one(bool value);
std::string one(const std::string& value);
std::string one(const char* value);
std::string one(int32_t value);
std::string one(int64_t value);
std::string one(const Corvan::MessageResponse& m);
std::string one(const Corvan::Session& s);
std::string one(const Corvan::SessionInfo& s);
std::string one(const Corvan::UpdateValue& u);
template <typename Element>
std::string one(const std::vector<Element>& elements) {
  std::string all = "[";
  for (const Element& each : elements) all += (all.size() > 1 ? " " : "") + one(each);
  return all + "]";
}

// The values, with commas between.
template <typename... Values>
std::string text(const Values&... values) {
  const Uncounted uncounted;
  std::string all;
  ((all += (all.empty() ? "" : ", ") + one(values)), ...);
  return all;
}

// The first `rows` of `all`; none if `rows` is negative, as it is after a failed prepare.
std::vector<std::string> first(const std::vector<std::string>& all, int rows);

// The result of an operation that appends to a list and returns "non-empty".
std::string page_text(const std::vector<std::string>& page);

// The result of a save from its insert on, for a message that is live or newer than its
// conversation.
std::string insert_and_move(Answers& a);

}  // namespace corvan_test

#endif  // TESTS_SUPPORT_OPERATIONS_RESULTS_H_
