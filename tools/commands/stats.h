// corvan stats: tells what a store holds and where its bytes are.

#ifndef TOOLS_COMMANDS_STATS_H_
#define TOOLS_COMMANDS_STATS_H_

namespace corvan_tool {

class CommandLine;

// Puts the command on the command line.
void add_stats(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_STATS_H_
