// corvan restore: makes a store from what 'corvan export --format jsonl' wrote.

#ifndef TOOLS_COMMANDS_RESTORE_H_
#define TOOLS_COMMANDS_RESTORE_H_

namespace corvan_tool {

class CommandLine;

// Puts the command on the command line.
void add_restore(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_RESTORE_H_
