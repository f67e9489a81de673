// corvan export: writes a store's content as JSON Lines, CSV or pages to read.

#ifndef TOOLS_COMMANDS_EXPORT_H_
#define TOOLS_COMMANDS_EXPORT_H_

namespace corvan_tool {

class CommandLine;

// Puts the command on the command line.
void add_export(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_EXPORT_H_
