// corvan index: brings a store's indexes up to those that a new store has.

#ifndef TOOLS_INDEX_H_
#define TOOLS_INDEX_H_

#include <string>

namespace corvan_tool {

class CommandLine;

struct IndexOptions {
  std::string folder;
  bool drop_others = false;
  bool dry_run = false;
  bool json = false;
};

// Whether two statements make the same index: they then differ at most in the case of letters and
// in white space, and only outside of quotes. In doubt, as with comments, they must be equal.
bool is_same_index(const std::string& one, const std::string& other);

// Returns the exit status. Throws ToolError when the store cannot be read or written, is locked, or
// lacks a column that an index needs; it then stays as it was.
int run_index(const IndexOptions& options);

// Puts the command on the command line.
void add_index(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_INDEX_H_
