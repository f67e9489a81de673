// Reads t_session and checks each row by itself.

#ifndef TOOLS_VERIFY_SESSION_ROWS_H_
#define TOOLS_VERIFY_SESSION_ROWS_H_

#include "tools/verify/contents.h"
#include "tools/verify/row_reader.h"

namespace corvan_tool {

// Fills in `sessions`, `session_row_id`, the conversations that have a row, and the ids of the
// latest messages.
void read_sessions(RowReader& rows, Contents& contents, Findings& findings);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_SESSION_ROWS_H_
