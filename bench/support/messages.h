#ifndef BENCH_SUPPORT_MESSAGES_H_
#define BENCH_SUPPORT_MESSAGES_H_

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace corvan_bench {

// Messages as a client receives them: in time order, in bursts of one conversation. 10 % are in the
// largest conversation, 25 % in a twentieth of the others. 70 % are received. Most own messages in
// private conversations are covered by a receipt. Equal seeds give equal messages.
class MessageStream {
 public:
  // `burst` is the mean number of consecutive messages in one conversation.
  MessageStream(std::uint64_t seed, int conversations, int burst);

  Corvan::MessageResponse next();
  // The next `count` messages, ready for the batch save.
  std::vector<std::unique_ptr<Corvan::MessageResponse>> batch(int count);

  // The largest conversation.
  static std::string largest_id();
  static constexpr Corvan::SessionType kLargestType = Corvan::CV_GROUP;

 private:
  std::uint64_t below(std::uint64_t count) { return random_() % count; }
  void choose_conversation();

  std::mt19937_64 random_;
  std::uint64_t conversations_;
  std::uint64_t burst_;
  std::uint64_t conversation_ = 0;
  int64_t time_ = 1700000000000;
};

// Saves a message with the single save, as if it had just been received or sent.
int64_t save_live(const Corvan::MessageResponse& message);

}  // namespace corvan_bench

#endif  // BENCH_SUPPORT_MESSAGES_H_
