#include "tests/tools/program.h"

namespace corvan_test {

std::optional<std::string> ToolTest::terminal_output(const Arguments& /*arguments*/,
                                                     unsigned short /*columns*/) {
  return std::nullopt;
}

}  // namespace corvan_test
