#include "addons/search/sweeping.h"

#include <algorithm>
#include <limits>

#include "addons/search/tidying.h"

namespace Corvan::search {

namespace {

constexpr int64_t kSliceMessages = 512;
constexpr std::size_t kSliceBytes = 1 << 18;
constexpr int64_t kVerifiedRows = 64;

}  // namespace

void Sweeping::run(const TimeBudget& budget, SearchWork* work) {
  index_.reload();
  load_position();
  do {
    work->complete = step(budget, work);
  } while (!work->complete && !budget.is_over());
  if (!work->complete) save_position();
}

// Returns true when the pass is complete.
bool Sweeping::step(const TimeBudget& budget, SearchWork* work) {
  for (const Shard& shard : index_.shards()) {
    if (shard.building == 0) continue;
    build(shard.first_id, work);
    return false;
  }
  if (verified_ == 0 && swept_to_ >= index_.state().highest) return finish(budget);
  if (verified_ != 0) {
    verify();
    return false;
  }
  const Shard* const shard = index_.shard_of(swept_to_ + 1);
  if (shard == nullptr) index_.connection().fail(SQLITE_CORRUPT);
  compare(*shard, work);
  return false;
}

// The slice ends early after many messages or bytes.
Sweeping::Slice Sweeping::read(int64_t begin, int64_t end) {
  Slice slice{{}, begin, end};
  std::size_t bytes = 0;
  Statement& rows = store_.messages(begin, end, kSliceMessages);
  while (store_.next_message()) {
    slice.messages.push_back({rows.integer(0), std::string(rows.text(1))});
    bytes += slice.messages.back().content.size();
    if (bytes > kSliceBytes || slice.messages.size() == kSliceMessages) {
      slice.end = slice.messages.back().id;
      break;
    }
  }
  rows.reset();
  return slice;
}

// Calls take(id, hash) for each message of the slice's ids that the index has.
template <typename Take>
void Sweeping::for_each_indexed(const Slice& slice, const Take& take) {
  Fingerprints& fingerprints = index_.fingerprints();
  const FingerprintRow* row = fingerprints.row_of(slice.begin);
  if (row == nullptr) row = fingerprints.row_from(slice.begin);
  while (row != nullptr && row->first_id <= slice.end) {
    const int64_t last = std::min(row->last_id(), slice.end);
    for (int64_t id = std::max(row->first_id, slice.begin); id <= last; ++id) {
      if (row->of(id) != kNoMessage) take(id, row->of(id));
    }
    row = fingerprints.row_from(row->first_id + 1);
  }
}

std::vector<Sweeping::Difference> Sweeping::differences(const Slice& slice) {
  std::vector<Difference> result;
  auto message = slice.messages.begin();
  const auto take_unknown = [&](int64_t before) {
    for (; message != slice.messages.end() && message->id < before; ++message) {
      result.push_back({message->id, &message->content});
    }
  };
  for_each_indexed(slice, [&](int64_t id, Fingerprint hash) {
    take_unknown(id);
    if (message == slice.messages.end() || message->id != id) {
      result.push_back({id, nullptr});
      return;
    }
    if (fingerprint(message->content) != hash) result.push_back({id, &message->content});
    ++message;
  });
  take_unknown(std::numeric_limits<int64_t>::max());
  return result;
}

void Sweeping::mend(const std::vector<Difference>& differences, SearchWork* work) {
  for (const Difference& difference : differences) {
    if (difference.content == nullptr) {
      index_.forget(difference.id);
    } else {
      index_.replace(difference.id, *difference.content);
    }
  }
  work->mended += static_cast<int64_t>(differences.size());
}

void Sweeping::compare(const Shard& shard, SearchWork* work) {
  const int64_t first_id = shard.first_id;
  const int64_t end = std::min(index_.end_of(shard), index_.state().highest);
  const Slice slice = read(swept_to_ + 1, end);
  if (slice.begin == first_id) {
    counted_from_ = first_id;
    counted_ = 0;
  }
  const std::vector<Difference> found = differences(slice);
  if (!found.empty()) {
    IndexChange change(&index_);
    mend(found, work);
    change.commit();
  }
  work->messages += static_cast<int64_t>(slice.messages.size());
  counted_ += static_cast<int64_t>(slice.messages.size());
  swept_to_ = slice.end;
  if (slice.end == end) begin_verifying(first_id);
}

void Sweeping::begin_verifying(int64_t first_id) {
  const Shard* const shard = index_.shard_of(first_id);
  if (shard == nullptr) return;
  verified_ = shard->number;
  verified_to_ = Checksums::kBegin;
  if (counted_from_ == first_id && counted_ != shard->messages) mark_stale(first_id, counted_);
}

// In a transaction, since another process may drop the table.
void Sweeping::verify() {
  const Shard* shard = nullptr;
  bool agrees = true;
  {
    const Transaction reading(index_.connection(), "begin");
    index_.reload();
    shard = index_.shard_of(swept_to_);
    if (shard != nullptr && shard->number != verified_) shard = nullptr;
    if (shard != nullptr) {
      agrees = index_.checksums().agree(verified_, &verified_to_, kVerifiedRows);
    }
  }
  if (!agrees) mark_stale(shard->first_id, shard->messages);
  if (shard == nullptr || !agrees || verified_to_ == Checksums::kEnd) verified_ = 0;
}

// The shard has this number of messages, and is to be built anew.
void Sweeping::mark_stale(int64_t first_id, int64_t messages) {
  IndexChange change(&index_);
  Shard* const shard = index_.shard_of(first_id);
  if (shard == nullptr) return;
  ++shard->stale;
  shard->messages = messages;
  change.commit();
}

// A shard that becomes stale again while it is built waits for the next pass.
Shard* Sweeping::shard_to_build() {
  for (Shard& shard : index_.shards()) {
    const auto times = std::count(rebuilt_.begin(), rebuilt_.end(), shard.first_id);
    if (shard.stale > 0 && times == 0) return &shard;
  }
  return nullptr;
}

void Sweeping::begin_building(Shard* found) {
  const int64_t first_id = found->first_id;
  rebuilt_.push_back(first_id);
  IndexChange change(&index_);
  Shard* const shard = index_.shard_of(first_id);
  if (shard == nullptr || shard->building != 0) return;  // another process has begun
  shard->building = index_.create_table(first_id);
  shard->built_to = first_id - 1;
  shard->stale_built = 0;
  change.commit();
}

void Sweeping::build(int64_t first_id, SearchWork* work) {
  IndexChange change(&index_);
  Shard* const shard = index_.shard_of(first_id);
  if (shard == nullptr || shard->building == 0) return;  // another process has built it
  const int64_t end = std::min(index_.end_of(*shard), index_.state().highest);
  const Slice slice = read(shard->built_to + 1, end);
  mend(differences(slice), work);
  for (const Message& message : slice.messages) {
    index_.add_terms(shard->building, message.id, message.content);
  }
  index_.merge_new_segments(shard->building);
  shard->built_to = slice.end;
  if (slice.end == end) replace_table(shard);
  change.commit();
}

void Sweeping::replace_table(Shard* shard) {
  index_.drop_table(shard->number);
  shard->number = shard->building;
  shard->stale = shard->stale_built;
  shard->unmerged = shard->messages;
  shard->is_merging = false;
  shard->building = 0;
}

bool Sweeping::finish(const TimeBudget& budget) {
  if (Shard* const shard = shard_to_build()) {
    begin_building(shard);
    return false;
  }
  if (!tidy(&index_, budget)) return false;
  rebuilt_.clear();
  IndexChange change(&index_);
  index_.state().swept_to = 0;
  index_.state().verified_to = Checksums::kEnd;
  index_.state().is_swept = true;
  change.commit();
  Statement(index_.connection(), "pragma wal_checkpoint(truncate)").run();
  return true;
}

void Sweeping::load_position() {
  swept_to_ = index_.state().swept_to;
  verified_to_ = index_.state().verified_to;
  const Shard* const shard = index_.shard_of(swept_to_);
  verified_ = verified_to_ == Checksums::kEnd || shard == nullptr ? 0 : shard->number;
}

void Sweeping::save_position() {
  const State& state = index_.state();
  const int64_t verified_to = verified_ == 0 ? Checksums::kEnd : verified_to_;
  if (state.swept_to == swept_to_ && state.verified_to == verified_to) return;
  IndexChange change(&index_);
  index_.state().swept_to = swept_to_;
  index_.state().verified_to = verified_to;
  change.commit();
}

}  // namespace Corvan::search
