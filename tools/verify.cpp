#include "tools/verify.h"

#include "tools/command_line.h"

namespace corvan_tool {

void add_verify(CommandLine& /*line*/) {}

}  // namespace corvan_tool
