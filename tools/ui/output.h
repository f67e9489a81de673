// Standard output.

#ifndef TOOLS_UI_OUTPUT_H_
#define TOOLS_UI_OUTPUT_H_

#include <string>

namespace corvan_tool {

// Flushes standard output, for a command that has changed or made something. `done` says what, as
// in "the store was compacted". Throws ToolError with it if standard output cannot be written.
void require_output(const std::string& done);

// Closes standard output: some file systems report only then that a file could not be written.
// Throws ToolError if it could not.
void close_standard_output();

}  // namespace corvan_tool

#endif  // TOOLS_UI_OUTPUT_H_
