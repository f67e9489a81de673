#include "tools/search.h"

#include "tools/command_line.h"

namespace corvan_tool {

void add_search(CommandLine& /*line*/) {}

}  // namespace corvan_tool
