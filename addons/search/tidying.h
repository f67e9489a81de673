// Keeps the index's file small.

#ifndef ADDONS_SEARCH_TIDYING_H_
#define ADDONS_SEARCH_TIDYING_H_

#include <vector>

#include "addons/search/index_file.h"
#include "addons/search/index_writer.h"
#include "addons/search/time_budget.h"

namespace Corvan::search {

// Whether a shard has grown so much that its segments are to be merged.
bool needs_merge(const std::vector<Shard>& shards);

// One step of merging the segments of a full shard. False if there is nothing to merge.
bool merge_full_shard(IndexWriter* index);

// Merges the segments of shards that have grown, and returns free pages to the file system, until
// the time is over, at least one step. True if nothing is left to do.
bool tidy(IndexWriter* index, const TimeBudget& budget);

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_TIDYING_H_
