#include "tools/ui/output.h"

#include <unistd.h>

#include <cerrno>
#include <iostream>

#include "tools/ui/error.h"

namespace corvan_tool {

void require_output(const std::string& done) {
  if (!std::cout.flush()) throw ToolError("standard output: cannot be written; " + done);
}

void close_standard_output() {
  const bool good = std::cout.flush() && (close(STDOUT_FILENO) == 0 || errno == EBADF);
  if (!good) throw ToolError("standard output: cannot be written");
}

}  // namespace corvan_tool
