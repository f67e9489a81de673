#include "tests/model/values.h"

namespace corvan_test {

std::string printable(const std::string& value) {
  constexpr std::size_t kLongRun = 20;
  std::string all;
  std::size_t end = 0;
  for (std::size_t at = 0; at < value.size(); at = end) {
    end = std::min(value.find_first_not_of(value[at], at), value.size());
    const std::string one = value[at] == '\0' ? "\\0" : std::string(1, value[at]);
    if (end - at >= kLongRun) {
      all += one + "[" + std::to_string(end - at) + " times]";
    } else {
      for (std::size_t i = at; i < end; ++i) all += one;
    }
  }
  return all;
}

}  // namespace corvan_test
