#ifndef BENCH_GROWTH_FILLED_STORE_H_
#define BENCH_GROWTH_FILLED_STORE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "bench/support/bench_store.h"
#include "db/cv_db_records.h"

namespace corvan_bench {

// A conversation that the benchmark looks at, with some of its messages.
struct Target {
  std::string name;  // its name in the tables
  std::string session_id;
  Corvan::SessionType session_type = Corvan::CV_GROUP;
  int64_t newest_time = 0;
  int64_t middle_id = 0;  // of the message in the middle
  int64_t middle_time = 0;
  std::string middle_server_uid;
  int64_t messages = 0;
};

// A store of `messages` messages and about `conversations` conversations. The largest conversation
// contains a tenth of all messages, "tiny" contains ten. Five others contain a hundredth each:
// "own" contains own messages that no receipt covers, "covered" own messages that a receipt covers,
// "received" received messages, "older" and "older-read" messages of direction 2. The last twenty
// of "older" are unread mentions. Five conversations are pinned.
class FilledStore {
 public:
  FilledStore(int64_t messages, int conversations);

  BenchStore& store() { return store_; }
  int64_t messages() const { return messages_; }
  int64_t conversations() const { return conversations_; }
  const Target& largest() const { return largest_; }
  const Target& tiny() const { return tiny_; }
  Target target(const std::string& name, const std::string& session_id, int session_type) const;

  // The id of a stored message, another one at each call.
  int64_t some_id();

 private:
  void fill(int64_t messages, int conversations);

  BenchStore store_;
  int64_t messages_ = 0;
  int64_t conversations_ = 0;
  Target largest_;
  Target tiny_;
  uint64_t random_ = 1;
};

}  // namespace corvan_bench

#endif  // BENCH_GROWTH_FILLED_STORE_H_
