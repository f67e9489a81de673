// Standard output.

#ifndef TOOLS_UI_OUTPUT_H_
#define TOOLS_UI_OUTPUT_H_

#include <string>

namespace corvan_tool {

// Flushes standard output, for a command that has changed or created something. If standard output
// cannot be written, throws ToolError with `done`, which says what the command did, such as "the
// store was compacted".
void require_output(const std::string& done);

// Closes standard output: some file systems report a failed write only then. Throws ToolError if
// that fails.
void close_standard_output();

}  // namespace corvan_tool

#endif  // TOOLS_UI_OUTPUT_H_
