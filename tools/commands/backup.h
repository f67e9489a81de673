// corvan backup: copies a store whole, its write-ahead log included.

#ifndef TOOLS_COMMANDS_BACKUP_H_
#define TOOLS_COMMANDS_BACKUP_H_

namespace corvan_tool {

class CommandLine;

// Puts the command on the command line.
void add_backup(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_BACKUP_H_
