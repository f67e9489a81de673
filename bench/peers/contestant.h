// A contender at work, and the accounting of its writes.

#ifndef BENCH_PEERS_CONTESTANT_H_
#define BENCH_PEERS_CONTESTANT_H_

#include <memory>
#include <utility>
#include <vector>

#include "bench/peers/contenders.h"
#include "bench/peers/io_counts.h"
#include "tests/support/temporary_folder.h"

namespace corvan_bench {

// A contender's store in its own folder.
struct Contestant {
  explicit Contestant(Contender what) : contender(std::move(what)), store(contender.make()) {
    store->open(folder.path());
  }

  const Contender contender;
  const corvan_test::TemporaryFolder folder;
  const std::unique_ptr<Store> store;  // destroyed before its folder
};

using Contestants = std::vector<std::unique_ptr<Contestant>>;

// The writes of each contestant during one piece of work. Calls of contestant i run in the scope of
// a CountInto(of(i)); a CountInto of the main thread collects everything else.
class Traffic {
 public:
  explicit Traffic(std::size_t contestants)
      : counts_(contestants),
        thread_syncs_(thread_counts().syncs),
        thread_bytes_(thread_counts().bytes) {}

  IoCounts& of(std::size_t contestant) { return counts_[contestant]; }

  // Call at the end of the work. Attributes the writes of other threads to the one contestant that
  // has such threads.
  void add_threads(const Contestants& all) {
    for (std::size_t i = 0; i < all.size(); ++i) {
      if (all[i]->contender.kind != Contender::kPeerWithThread) continue;
      counts_[i].syncs += thread_counts().syncs - thread_syncs_;
      counts_[i].bytes += thread_counts().bytes - thread_bytes_;
    }
  }

 private:
  std::vector<IoCounts> counts_;
  const int64_t thread_syncs_;
  const int64_t thread_bytes_;
};

}  // namespace corvan_bench

#endif  // BENCH_PEERS_CONTESTANT_H_
