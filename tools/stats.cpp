#include "tools/stats.h"

#include "tools/command_line.h"

namespace corvan_tool {

void add_stats(CommandLine& /*line*/) {}

}  // namespace corvan_tool
