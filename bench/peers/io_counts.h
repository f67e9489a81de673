// Counts the transactions, syncs and bytes of a store. The program defines the C library's write
// and sync functions itself, so that it also intercepts the calls of shared libraries and modules.

#ifndef BENCH_PEERS_IO_COUNTS_H_
#define BENCH_PEERS_IO_COUNTS_H_

#include <atomic>
#include <cstdint>

namespace corvan_bench {

struct IoCounts {
  std::atomic<int64_t> commits{0};  // without empty ones
  std::atomic<int64_t> syncs{0};    // including writes through a handle that syncs each write
  std::atomic<int64_t> bytes{0};    // passed to the kernel
};

// Counts this thread's calls in `counts` during the object's lifetime.
class CountInto {
 public:
  explicit CountInto(IoCounts& counts);
  CountInto(const CountInto&) = delete;
  CountInto& operator=(const CountInto&) = delete;
  ~CountInto();

 private:
  IoCounts* const before_;
};

// The calls of threads without a CountInto.
IoCounts& thread_counts();

// Called at each commit: by a hook on SQLite's connections, and by stores that do not use SQLite.
void count_commit();

}  // namespace corvan_bench

#endif  // BENCH_PEERS_IO_COUNTS_H_
