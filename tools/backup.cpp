#include "tools/backup.h"

#include "tools/command_line.h"

namespace corvan_tool {

void add_backup(CommandLine& /*line*/) {}

}  // namespace corvan_tool
