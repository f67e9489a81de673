#include "tests/support/code_page.h"

namespace corvan_test {

bool c_library_takes_utf8() {
  return true;
}

}  // namespace corvan_test
