#include "tools/ui/output.h"

#include <iostream>

#include "tools/platform/process.h"
#include "tools/ui/error.h"

namespace corvan_tool {

void require_output(const std::string& done) {
  if (!std::cout.flush()) throw ToolError("standard output: cannot be written; " + done);
}

void close_standard_output() {
  if (!std::cout.flush() || !close_output()) throw ToolError("standard output: cannot be written");
}

}  // namespace corvan_tool
