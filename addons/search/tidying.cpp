#include "addons/search/tidying.h"

#include <algorithm>
#include <string>

namespace Corvan::search {

namespace {

constexpr int kMergedPages = 64;    // FTS5 writes about so many pages in one step
constexpr int kReleasedPages = 64;  // pages of the file in one step

// A full shard is merged once more; the newest one whenever it has grown by a third, so that each
// message is merged a few times only.
bool is_due(const Shard& shard) {
  if (shard.is_merging) return true;
  if (shard.messages >= kShardSize) return shard.unmerged > 0;
  return shard.unmerged > std::max<int64_t>(4096, shard.messages / 4);
}

// A negative number of pages begins the merge of all segments. FTS5's documentation: a merge is
// complete when a step changes less than two rows.
void merge_step(IndexWriter* index, Shard* shard) {
  sqlite3* const handle = index->connection().handle();
  const std::string name = shard_table(shard->number);
  const int pages = shard->is_merging ? kMergedPages : -kMergedPages;
  if (!shard->is_merging) shard->unmerged = 0;
  const int before = sqlite3_total_changes(handle);
  Statement(index->connection(), "insert into " + name + "(" + name + ",rank) values('merge',?)")
      .bind(int64_t{pages})
      .run();
  shard->is_merging = sqlite3_total_changes(handle) - before >= 2;
}

bool merge_one(IndexWriter* index) {
  const auto shard = std::find_if(index->shards().begin(), index->shards().end(), is_due);
  if (shard == index->shards().end()) return false;
  const int64_t first_id = shard->first_id;
  IndexChange change(index);
  if (Shard* const found = index->shard_of(first_id)) merge_step(index, found);
  change.commit();
  return true;
}

// Pages that the next merge or shard will use are not worth the work. False if no page was
// released.
bool release_pages(const Connection& index) {
  const int64_t free = index.number("pragma freelist_count");
  if (free == 0 || free <= index.number("pragma page_count") / 32) return false;
  index.run("pragma incremental_vacuum(" + std::to_string(kReleasedPages) + ")");
  return index.number("pragma freelist_count") < free;
}

}  // namespace

bool needs_merge(const std::vector<Shard>& shards) {
  return std::any_of(shards.begin(), shards.end(), is_due);
}

bool tidy(IndexWriter* index, const TimeBudget& budget) {
  bool has_changed = false;
  do {
    if (!merge_one(index) && !release_pages(index->connection())) {
      // Only a checkpoint shortens the file.
      if (has_changed) index->connection().run("pragma wal_checkpoint(passive)");
      return true;
    }
    has_changed = true;
  } while (!budget.is_over());
  return false;
}

}  // namespace Corvan::search
