// What a store writes: transactions, syncs and bytes. The program defines the C library's writing
// and syncing functions itself, so that the calls of shared libraries come here first.

#ifndef BENCH_PEERS_IO_COUNTS_H_
#define BENCH_PEERS_IO_COUNTS_H_

#include <atomic>
#include <cstdint>

namespace corvan_bench {

struct IoCounts {
  std::atomic<int64_t> commits{0};  // that wrote something
  std::atomic<int64_t> syncs{0};    // and writes through a handle that syncs each write
  std::atomic<int64_t> bytes{0};    // handed to the kernel
};

// Counts this thread's calls into `counts`, until the object ends.
class CountInto {
 public:
  explicit CountInto(IoCounts& counts);
  CountInto(const CountInto&) = delete;
  CountInto& operator=(const CountInto&) = delete;
  ~CountInto();

 private:
  IoCounts* const before_;
};

// The calls of the threads that have no CountInto.
IoCounts& thread_counts();

// Called by the stores at a commit, but those on SQLite, whose commits are counted by a hook on
// each connection opened after count_sqlite_commits().
void count_commit();
void count_sqlite_commits();

}  // namespace corvan_bench

#endif  // BENCH_PEERS_IO_COUNTS_H_
