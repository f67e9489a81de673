// Brings a search index up to date with its store.

#ifndef TOOLS_SEARCH_INDEX_WORK_H_
#define TOOLS_SEARCH_INDEX_WORK_H_

#include <cstdint>

#include "addons/search/message_search.h"

namespace corvan_tool {

struct IndexWork {
  Corvan::SearchStatus status = Corvan::SearchStatus::kOk;
  int64_t added = 0;   // messages that were not in the index
  int64_t mended = 0;  // messages that had changed, or were gone

  bool is_done() const { return status == Corvan::SearchStatus::kOk; }
};

// Indexes what is missing, then compares the whole index with the store and mends it. Ends early if
// a step fails; what was indexed before is kept.
IndexWork bring_up_to_date(Corvan::MessageSearch& search);

}  // namespace corvan_tool

#endif  // TOOLS_SEARCH_INDEX_WORK_H_
