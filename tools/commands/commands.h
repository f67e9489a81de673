// The commands of the tool. Each function adds one command with its options and help to the command
// line, and is defined in the file of that name.

#ifndef TOOLS_COMMANDS_COMMANDS_H_
#define TOOLS_COMMANDS_COMMANDS_H_

namespace corvan_tool {

class CommandLine;

void add_import(CommandLine& line);
void add_list(CommandLine& line);
void add_history(CommandLine& line);
void add_unread(CommandLine& line);
void add_show(CommandLine& line);
void add_search(CommandLine& line);
void add_stats(CommandLine& line);
void add_check(CommandLine& line);
void add_verify(CommandLine& line);
void add_salvage(CommandLine& line);
void add_backup(CommandLine& line);
void add_compact(CommandLine& line);
void add_index(CommandLine& line);
void add_search_index(CommandLine& line);
void add_export(CommandLine& line);
void add_restore(CommandLine& line);
void add_encrypt(CommandLine& line);
void add_decrypt(CommandLine& line);
void add_rekey(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_COMMANDS_H_
