#include "tests/support/privileges.h"

namespace corvan_test {

bool drop_privileges() {
  return false;
}

}  // namespace corvan_test
