// A store whose writes are counted by table and index.

#ifndef BENCH_WRITE_VOLUME_MEASURED_STORE_H_
#define BENCH_WRITE_VOLUME_MEASURED_STORE_H_

#include <map>
#include <string>

#include "bench/support/bench_store.h"
#include "bench/write_volume/page_writes.h"
#include "bench/write_volume/traffic.h"

namespace corvan_bench {

struct Sizes {
  int messages;  // before anything is measured
  int conversations;
  int batches;  // transactions of 1,000 messages
  int singles;  // transactions of one message
};

// Averages per transaction.
struct Volume {
  struct Tree {
    double pages = 0;         // that the transaction changes
    double logged = 0;        // bytes of pages written to the log
    double checkpointed = 0;  // bytes of pages written to the database file
    double bytes() const { return logged + checkpointed; }
  };
  std::map<std::string, Tree> trees;  // by the name of the table or index
  double bytes = 0;                   // in all, with the headers of the log

  Tree sum() const;
};

class MeasuredStore {
 public:
  // Fills a store of these sizes with other indexes: see BenchStore::replace_indexes().
  MeasuredStore(Traffic::Shape shape, const Sizes& sizes,
                const std::map<std::string, std::string>& replaced);

  // Saves messages one by one in transactions of this size, as live messages arrive.
  Volume save(int transactions, int messages_each);
  // Saves own messages that are being sent and acknowledges each, in a transaction of its own. The
  // averages are per message.
  Volume send(int messages);

 private:
  void fill(int messages);
  void begin_counting();
  void save_transaction(int messages);
  void send_one();
  std::map<int64_t, std::string> trees_of_pages() const;
  // What was counted, with the pages that are still in the log.
  Volume volume(int transactions);

  CountingFileSystem files_;  // before the store, which closes its connection first
  BenchStore store_;
  Traffic traffic_;
};

}  // namespace corvan_bench

#endif  // BENCH_WRITE_VOLUME_MEASURED_STORE_H_
