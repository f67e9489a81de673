// Checks t_sync.

#ifndef TOOLS_VERIFY_SYNC_CHECKS_H_
#define TOOLS_VERIFY_SYNC_CHECKS_H_

#include "tools/verify/contents.h"
#include "tools/verify/row_reader.h"

namespace corvan_tool {

// Compares the marks with the newest messages if all messages were read.
void check_sync(RowReader& rows, const Contents& contents, Findings& findings);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_SYNC_CHECKS_H_
