#include <windows.h>

#include "tests/support/code_page.h"

namespace corvan_test {

bool c_library_takes_utf8() {
  return GetACP() == CP_UTF8;
}

}  // namespace corvan_test
