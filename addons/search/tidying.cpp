#include "addons/search/tidying.h"

#include <algorithm>
#include <string>

namespace Corvan::search {

namespace {

constexpr int kReleasedPages = 64;  // pages of the file in one step

bool is_full(const Shard& shard) {
  return shard.messages >= kShardSize;
}

// A full shard is merged once more; the newest one whenever it has grown by a third, so that each
// message is merged a few times only.
bool is_due(const Shard& shard) {
  if (shard.is_merging) return true;
  if (is_full(shard)) return shard.unmerged > 0;
  return shard.unmerged > std::max<int64_t>(4096, shard.messages / 4);
}

void merge_step(IndexWriter* index, Shard* shard) {
  if (!shard->is_merging) shard->unmerged = 0;
  shard->is_merging = index->merge_all_segments(shard->number, shard->is_merging);
}

bool merge_first(IndexWriter* index, bool (*is_wanted)(const Shard&)) {
  for (const Shard& shard : index->shards()) {
    if (!is_wanted(shard)) continue;
    const int64_t first_id = shard.first_id;
    IndexChange change(index);
    if (Shard* const found = index->shard_of(first_id)) merge_step(index, found);
    change.commit();
    return true;
  }
  return false;
}

// Pages that the next merge or shard will use are not worth the work.
bool has_spare_pages(const Connection& index) {
  const int64_t free = index.number("pragma freelist_count");
  return free > 0 && free > index.number("pragma page_count") / 32;
}

// False if no page was released.
bool release_pages(const Connection& index) {
  const int64_t free = index.number("pragma freelist_count");
  index.run(joined({"pragma incremental_vacuum(", std::to_string(kReleasedPages), ")"}));
  return index.number("pragma freelist_count") < free;
}

}  // namespace

bool needs_merge(const std::vector<Shard>& shards) {
  return std::any_of(shards.begin(), shards.end(), is_due);
}

bool merge_full_shard(IndexWriter* index) {
  return merge_first(index, [](const Shard& shard) { return is_full(shard) && is_due(shard); });
}

bool tidy(IndexWriter* index, const TimeBudget& budget) {
  const Connection& connection = index->connection();
  bool has_changed = false;
  while (needs_merge(index->shards()) || has_spare_pages(connection)) {
    if (has_changed && budget.is_over()) return false;
    if (!merge_first(index, is_due) && !release_pages(connection)) break;
    has_changed = true;
  }
  if (has_changed) connection.run("pragma wal_checkpoint(passive)");  // it shortens the file
  return true;
}

}  // namespace Corvan::search
