#include "tests/addons/search/without_privileges.h"

namespace corvan_test {

std::string without_privileges(const std::function<std::string()>& work) {
  return work();
}

}  // namespace corvan_test
