#include "addons/search/fitting.h"

#include <algorithm>

namespace Corvan::search {

namespace {

// So many messages in a row agree by chance only if the store is the same.
constexpr int64_t kRun = 8;
// So many rows are looked at one by one; then the steps grow, so that an index of another store is
// recognised quickly.
constexpr int kNearRows = 16;

// Goes back from the newest message until kRun messages in a row agree.
class Trust {
 public:
  // Compares the messages of a row. Deleted messages say nothing.
  void look_at(const FingerprintRow& row, StoreReader* store) {
    FingerprintRow found{row.first_id, {}};
    const Statement& rows = store->messages(row.first_id, row.last_id(), FingerprintRow::kSize);
    while (store->next_message()) {
      const int64_t id = rows.integer(0);
      if (found.has_place_for(id)) found.set(id, fingerprint(rows.text(1)));
    }
    for (int64_t id = found.last_id(); id >= row.first_id && run_ < kRun; --id) {
      if (found.of(id) != kNoMessage) add(id, found.of(id) == row.of(id));
    }
  }
  // The messages that are looked at next do not follow.
  void skip() { run_ = 0; }

  bool is_found() const { return run_ >= kRun; }
  // The last id that is trusted when all rows were looked at or is_found(); `highest` if nothing
  // differs, 0 if nothing agrees.
  int64_t end(int64_t highest) const {
    if (!has_difference_) return highest;
    return run_ > 0 ? run_end_ : 0;
  }

 private:
  void add(int64_t id, bool agrees) {
    if (agrees && run_ == 0) run_end_ = id;
    run_ = agrees ? run_ + 1 : 0;
    has_difference_ = has_difference_ || !agrees;
  }

  int64_t run_ = 0;
  int64_t run_end_ = 0;
  bool has_difference_ = false;
};

int64_t trusted_end(IndexWriter* index, StoreReader* store) {
  const int64_t highest = index->state().highest;
  Trust trust;
  int64_t id = highest + 1;
  for (int rows = 1; !trust.is_found(); ++rows) {
    const FingerprintRow* const row = index->fingerprints().row_before(id);
    if (row == nullptr) break;
    trust.look_at(*row, store);
    id = row->first_id;
    if (rows < kNearRows || trust.is_found()) continue;
    id -= std::min(highest - id, id);
    trust.skip();
  }
  return trust.end(highest);
}

}  // namespace

int64_t cut_to_store(IndexWriter* index, StoreReader* store) {
  const int64_t beyond = index->state().highest - store->newest_id();
  if (beyond <= 0) return 0;
  IndexChange change(index);
  index->cut_after(std::max<int64_t>(store->newest_id(), 0));
  change.commit();
  return beyond;
}

bool fit_to_store(IndexWriter* index, StoreReader* store) {
  cut_to_store(index, store);
  const int64_t highest = index->state().highest;
  const int64_t end = trusted_end(index, store);
  if (end == 0) return highest == 0;
  if (end == highest) return true;
  IndexChange change(index);
  index->cut_after(end);
  change.commit();
  return true;
}

}  // namespace Corvan::search
