// corvan compact: gives back the room that deleted messages left in a store's file.

#ifndef TOOLS_COMMANDS_COMPACT_H_
#define TOOLS_COMMANDS_COMPACT_H_

namespace corvan_tool {

class CommandLine;

// Puts the command on the command line.
void add_compact(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_COMPACT_H_
