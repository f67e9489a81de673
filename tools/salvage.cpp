#include "tools/salvage.h"

#include "tools/command_line.h"

namespace corvan_tool {

void add_salvage(CommandLine& /*line*/) {}

}  // namespace corvan_tool
