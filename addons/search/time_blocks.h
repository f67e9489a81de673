// The store's messages in the order of time, in blocks.

#ifndef ADDONS_SEARCH_TIME_BLOCKS_H_
#define ADDONS_SEARCH_TIME_BLOCKS_H_

#include <cstdint>
#include <map>

#include "addons/search/connection.h"

namespace Corvan::search {

// All messages that were sent between two times, both included.
struct TimeBlock {
  int64_t oldest = 0;
  int64_t newest = 0;
  // None of them has an id outside these. An empty block has smallest_id > largest_id.
  int64_t smallest_id = 0;
  int64_t largest_id = 0;
};

// Messages are mostly stored in the order of their times, so that those of a block have ids close
// together. Of the candidates for a query, only those with such ids must then be looked at to find
// all hits between two times. The store must have its messages in the order of time.
//
// What was read is kept until the store changes.
class TimeBlocks {
 public:
  explicit TimeBlocks(const Connection& store);

  // Forgets the blocks if the store has changed. Call it at the beginning of each transaction.
  void refresh();

  // The block that contains `time`. It has about kMessages messages, and more if many have the same
  // time. The one with the oldest messages reaches to the smallest time that there is.
  const TimeBlock& at(int64_t time);

  // At least about how many messages are in the blocks that were read.
  int64_t messages() const { return static_cast<int64_t>(blocks_.size()) * kMessages; }

  static constexpr int64_t kMessages = 1024;

 private:
  int64_t oldest_of_block(int64_t newest);
  TimeBlock read(int64_t newest);

  Statement version_;
  Statement oldest_;
  Statement ids_;
  int64_t known_version_ = -1;
  std::map<int64_t, TimeBlock> blocks_;  // by their newest time
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_TIME_BLOCKS_H_
