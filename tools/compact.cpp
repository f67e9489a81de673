#include "tools/compact.h"

#include "tools/command_line.h"

namespace corvan_tool {

void add_compact(CommandLine& /*line*/) {}

}  // namespace corvan_tool
