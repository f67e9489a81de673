// corvan search: finds messages by a part of their text.

#ifndef TOOLS_COMMANDS_SEARCH_H_
#define TOOLS_COMMANDS_SEARCH_H_

namespace corvan_tool {

class CommandLine;

// Puts the command on the command line.
void add_search(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_SEARCH_H_
