// The measured operations and their arguments.

#ifndef BENCH_ENCRYPTION_WORKLOAD_H_
#define BENCH_ENCRYPTION_WORKLOAD_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "bench/encryption/keyed_store.h"
#include "bench/support/messages.h"

namespace corvan_bench {

struct Sizes {
  int messages;
  int conversations;
};

// What one contender saves and looks for. Equal sizes give equal messages.
class Feed {
 public:
  explicit Feed(const Sizes& sizes);

  // Fills the new, open store.
  void fill(KeyedStore& store);
  // Skips the messages of fill(), for a store that has them.
  void skip();

  // Makes the next messages, which a measured call then saves.
  void make(int messages);
  const Corvan::MessageResponse& made(std::size_t number) const { return *made_.at(number); }
  const KeyedStore::Messages& made() const { return made_; }

  // A stored message of the user, with at least 40 messages of its conversation before it. Another
  // one for each number.
  const Corvan::MessageResponse& stored(int number) const;

 private:
  void remember(const KeyedStore::Messages& batch);

  const Sizes sizes_;
  MessageStream stream_;
  KeyedStore::Messages made_;
  std::vector<Corvan::MessageResponse> stored_;
  std::map<std::string, int> lengths_;  // of the conversations
  int64_t count_ = 0;
};

struct Work {
  const char* name;
  int calls;     // per measurement; few, so that other processes disturb few measurements
  int messages;  // that each call saves; 0: it reads
  std::function<void(KeyedStore& store, const Feed& feed, int call)> call;

  bool reads() const { return messages == 0; }
  // How often it is measured: more often if it is fast.
  int rounds(int of_saves) const { return reads() ? 5 * of_saves : of_saves; }
};

// Names of operations.
inline constexpr const char* kSave = "save, on its own";
inline constexpr const char* kSaveTen = "save, ten a transaction";
inline constexpr const char* kSaveBatch = "save in batches of 1,000, per message";
inline constexpr const char* kHistory = "20 messages of history";
inline constexpr const char* kHistoryAgain = "20 messages of history, again";
inline constexpr const char* kList = "20 conversations of the list";
inline constexpr const char* kUnread = "unread messages in all";
inline constexpr const char* kFind = "look-up by client uid";
// Names of what is measured besides.
inline constexpr const char* kOpening = "opening";
inline constexpr const char* kClosing = "closing";
inline constexpr const char* kFileSize = "bytes of the file";
inline constexpr const char* kBytesSingle = "bytes written per 1,000 saves on their own";
inline constexpr const char* kBytesBatch = "bytes written per batch of 1,000";

// Reads come before saves, which let the store grow.
std::vector<Work> works();

// Calls `measure` with a function that runs the operation once as often as `work.calls` says.
void run_work(const Work& work, KeyedStore& store, Feed& feed, int round,
              const std::function<void(const std::function<void()>&)>& measure);

}  // namespace corvan_bench

#endif  // BENCH_ENCRYPTION_WORKLOAD_H_
