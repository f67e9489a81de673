// The messages for all contenders.

#ifndef BENCH_PEERS_WORKLOAD_H_
#define BENCH_PEERS_WORKLOAD_H_

#include <cstdint>
#include <random>
#include <vector>

#include "bench/peers/peer.h"

namespace corvan_bench {

// A message as the server delivers it.
struct Delivery {
  MessageResponse message;
  bool mention = false;
  int64_t expected_id = 0;  // -1 for a repeated message
};

// Messages in time order. One in ten is in the largest conversation; the rest are spread evenly
// over private and group conversations. One in ten is an own message from another device. Equal in
// every run.
class Workload {
 public:
  // `largest_mentions` is the approximate number of mentions in the largest conversation after
  // `messages` deliveries. Of the other group messages, 2 % are mentions.
  Workload(int64_t messages, int32_t conversations, int64_t largest_mentions);

  // The next `count` new messages. After every hundredth, an earlier message is repeated: with its
  // server uid or, if it is an own message, with its client uid and another server uid.
  std::vector<Delivery> next(int64_t count);

  // An own message in the largest conversation that is being sent.
  Delivery being_sent();

  static constexpr int32_t kLargest = 0;
  int32_t conversations() const { return static_cast<int32_t>(ids_.size()); }
  ConversationName name(int32_t conversation) const;

  // The ids of the conversation's messages in time order.
  const std::vector<int64_t>& ids(int32_t conversation) const {
    return ids_[static_cast<std::size_t>(conversation)];
  }

  int64_t unread() const { return unread_; }

 private:
  int64_t random(int64_t below);
  Delivery make(int32_t conversation, bool own);
  Delivery repeat();
  std::string random_uid();
  std::string random_text();

  std::mt19937_64 random_{20240229};
  std::vector<std::vector<int64_t>> ids_;  // by conversation
  std::vector<MessageResponse> delivered_;
  int64_t mention_every_;  // in the largest conversation
  int64_t unread_ = 0;
};

}  // namespace corvan_bench

#endif  // BENCH_PEERS_WORKLOAD_H_
