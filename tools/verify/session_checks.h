// Compares the rows of t_session with their messages.

#ifndef TOOLS_VERIFY_SESSION_CHECKS_H_
#define TOOLS_VERIFY_SESSION_CHECKS_H_

#include "tools/verify/contents.h"

namespace corvan_tool {

// All rows of t_session and t_message must have been read.
void check_sessions(const Contents& contents, Findings& findings);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_SESSION_CHECKS_H_
