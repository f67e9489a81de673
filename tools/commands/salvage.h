// corvan salvage: brings what can still be read in a damaged store into a new one.

#ifndef TOOLS_COMMANDS_SALVAGE_H_
#define TOOLS_COMMANDS_SALVAGE_H_

namespace corvan_tool {

class CommandLine;

// Puts the command on the command line.
void add_salvage(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_SALVAGE_H_
