#include "tests/support/operations/texts.h"

namespace corvan_test {

std::vector<std::string> sql_of(const std::vector<Text>& texts) {
  return {texts.begin(), texts.end()};
}

}  // namespace corvan_test
