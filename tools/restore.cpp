#include "tools/restore.h"

#include "tools/command_line.h"

namespace corvan_tool {

void add_restore(CommandLine& /*line*/) {}

}  // namespace corvan_tool
