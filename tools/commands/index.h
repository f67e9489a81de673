// corvan index: brings a store's indexes up to those that a new store has.

#ifndef TOOLS_COMMANDS_INDEX_H_
#define TOOLS_COMMANDS_INDEX_H_

#include <string>

namespace corvan_tool {

class CommandLine;

struct IndexOptions {
  std::string folder;
  bool drop_others = false;
  bool dry_run = false;
  bool json = false;
};

// Returns the exit status. Throws ToolError when the store cannot be read or written, is locked, or
// lacks a column that an index needs; it then stays as it was.
int run_index(const IndexOptions& options);

// Puts the command on the command line.
void add_index(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_INDEX_H_
