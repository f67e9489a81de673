// Checks t_sync, the sync marks of each user.

#ifndef TOOLS_VERIFY_SYNC_CHECKS_H_
#define TOOLS_VERIFY_SYNC_CHECKS_H_

#include "tools/verify/contents.h"
#include "tools/verify/store_reader.h"

namespace corvan_tool {

// Also compares the marks with the newest messages if all messages were read.
void check_sync(StoreReader& store, const Contents& contents);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_SYNC_CHECKS_H_
