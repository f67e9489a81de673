#include "tools/export.h"

#include "tools/command_line.h"

namespace corvan_tool {

void add_export(CommandLine& /*line*/) {}

}  // namespace corvan_tool
