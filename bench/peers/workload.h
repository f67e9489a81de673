// The messages that all contenders store.

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
  int64_t expected_id = 0;  // -1 for a repeated one
};

// Messages in the order of their times, one in ten of them in the largest conversation and the rest
// spread evenly, private and group. One in ten is an own one from another device. The same in every
// run.
class Workload {
 public:
  // `largest_mentions`: how many of the largest conversation's messages are mentions, about, once
  // `messages` are delivered. Of the other group messages two in a hundred are.
  Workload(int64_t messages, int32_t conversations, int64_t largest_mentions);

  // The next `count` new messages, and after every hundredth a repeated one of those delivered by
  // then: with its server uid, or, an own one, with its client uid and another server uid.
  std::vector<Delivery> next(int64_t count);

  // An own message that is being sent, in the largest conversation.
  Delivery being_sent();

  static constexpr int32_t kLargest = 0;
  int32_t conversations() const { return static_cast<int32_t>(ids_.size()); }
  ConversationName name(int32_t conversation) const;

  // The ids of the conversation's messages, in the order of their times.
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
