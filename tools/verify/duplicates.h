// Finds messages that the store should have refused as duplicates.

#ifndef TOOLS_VERIFY_DUPLICATES_H_
#define TOOLS_VERIFY_DUPLICATES_H_

#include "tools/verify/store_reader.h"

namespace corvan_tool {

// Adds a finding for each conversation that contains one of the duplicates.
void find_duplicates(StoreReader& store);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_DUPLICATES_H_
