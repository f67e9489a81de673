// corvan import: replays conversation logs into a store.

#ifndef TOOLS_COMMANDS_IMPORT_H_
#define TOOLS_COMMANDS_IMPORT_H_

#include <cstddef>
#include <string>
#include <vector>

namespace corvan_tool {

class CommandLine;

struct ImportOptions {
  std::string folder;
  std::string user;
  std::vector<std::string> files;  // "-" is standard input
  std::size_t batch_size = 1000;   // lines read, checked and saved together, in one transaction
  bool history = false;
  bool insert_only = false;
  bool skip_bad = false;
  bool json = false;
};

// Returns the exit status. Throws ToolError when a line is bad (unless bad lines are skipped) or
// the store fails; whole batches saved before that stay, of the batch in hand nothing does.
int run_import(const ImportOptions& options);

// Puts the command on the command line.
void add_import(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_IMPORT_H_
