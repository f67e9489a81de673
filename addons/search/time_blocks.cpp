#include "addons/search/time_blocks.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <string>

namespace Corvan::search {

namespace {

constexpr std::size_t kMostBlocks = 65'536;

std::string oldest_query() {
  return joined(
      {"select sent_time from t_message where sent_time<=? order by sent_time desc limit 1 offset ",
       std::to_string(TimeBlocks::kMessages - 1)});
}

// One more at each end: times can be fractions, and integer() cuts them. The plus keeps SQLite from
// reading the table by ids. Without messages, the ids are the largest and the smallest number.
constexpr const char* kIdsQuery =
    "select coalesce(min(+id),9223372036854775807),coalesce(max(+id),-9223372036854775808) "
    "from t_message where sent_time between ?-1 and ?+1";

}  // namespace

TimeBlocks::TimeBlocks(const Connection& store)
    : version_(store, "pragma data_version"),
      oldest_(store, oldest_query()),
      ids_(store, kIdsQuery) {}

void TimeBlocks::refresh() {
  const int64_t version = version_.bind().row() ? version_.integer(0) : -1;
  version_.reset();
  if (version == known_version_ && blocks_.size() < kMostBlocks) return;
  blocks_.clear();
  known_version_ = version;
}

const TimeBlock& TimeBlocks::at(int64_t time) {
  const auto block = blocks_.lower_bound(time);
  if (block != blocks_.end() && block->second.oldest <= time) return block->second;
  return blocks_[time] = read(time);
}

TimeBlock TimeBlocks::read(int64_t newest) {
  const int64_t oldest = oldest_of_block(newest);
  ids_.bind(oldest, newest).row();
  const TimeBlock block{oldest, newest, ids_.integer(0), ids_.integer(1)};
  ids_.reset();
  return block;
}

int64_t TimeBlocks::oldest_of_block(int64_t newest) {
  constexpr int64_t kFirst = std::numeric_limits<int64_t>::min();
  int64_t oldest = oldest_.bind(newest).row() ? oldest_.integer(0) : kFirst;
  oldest_.reset();
  const auto next = blocks_.lower_bound(newest);
  if (next == blocks_.begin()) return oldest;
  const TimeBlock& older = std::prev(next)->second;
  return std::max(oldest, older.newest + 1);
}

}  // namespace Corvan::search
