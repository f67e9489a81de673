// corvan verify: looks for what is wrong in a store beyond its file, and mends what can be derived.

#ifndef TOOLS_COMMANDS_VERIFY_H_
#define TOOLS_COMMANDS_VERIFY_H_

namespace corvan_tool {

class CommandLine;

// Puts the command on the command line.
void add_verify(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_VERIFY_H_
