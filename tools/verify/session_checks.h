// Reads t_session, checks each row by itself, and compares it with its messages.

#ifndef TOOLS_VERIFY_SESSION_CHECKS_H_
#define TOOLS_VERIFY_SESSION_CHECKS_H_

#include "tools/verify/contents.h"
#include "tools/verify/store_reader.h"

namespace corvan_tool {

// Reads and checks the rows. Fills in `sessions`, `session_row_id`, the conversations that have a
// row, and the ids of the latest messages.
void read_sessions(StoreReader& store, Contents& contents);

// Compares the rows with their messages. All rows of t_session and t_message must have been read.
void check_sessions(const Contents& contents, Findings& findings);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_SESSION_CHECKS_H_
