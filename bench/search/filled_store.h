#ifndef BENCH_SEARCH_FILLED_STORE_H_
#define BENCH_SEARCH_FILLED_STORE_H_

#include <cstdint>
#include <string>

#include "bench/search/messages.h"
#include "bench/support/bench_store.h"
#include "db/cv_db_records.h"

namespace corvan_bench {

// A store with messages, open as a client has it. Only one can exist at a time.
class FilledStore {
 public:
  // With at most this many messages. They are inserted with SQL, and the indexes are created after
  // that, which is faster than saves.
  FilledStore(MessageSource& source, int64_t at_most);

  int64_t messages() const { return messages_; }
  std::string file() const { return store_.file(); }
  // The store's folder, with a slash at its end.
  std::string folder() const { return file().substr(0, file().rfind('/') + 1); }

  // Saves a message like the given one, as the newest of the store.
  void save_live(Corvan::MessageResponse message);

 private:
  void insert(MessageSource& source, int64_t at_most);

  BenchStore store_;
  int64_t messages_ = 0;
  int64_t newest_time_ = 0;
};

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_FILLED_STORE_H_
