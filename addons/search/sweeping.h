// Compares the index with the store, and mends it.

#ifndef ADDONS_SEARCH_SWEEPING_H_
#define ADDONS_SEARCH_SWEEPING_H_

#include <cstdint>
#include <list>
#include <string>
#include <vector>

#include "addons/search/index_writer.h"
#include "addons/search/message_search.h"
#include "addons/search/store_reader.h"
#include "addons/search/time_budget.h"

namespace Corvan::search {

// One pass goes through the messages of each shard, from the oldest to the newest:
// 1. The fingerprints are compared with the store's messages, and differences are mended.
// 2. The messages are counted, and the checksums of the shard's table are compared.
// At the end, each shard that has terms of deleted messages or of old contents, or is damaged, is
// built anew: in a new table, which then replaces the old one. The positions of all three are in
// the index, so that another process goes on from there.
class Sweeping {
 public:
  Sweeping(IndexWriter* index, StoreReader* store) : index_(*index), store_(*store) {}

  // Does what the time allows, at least one step, and adds it to `work`.
  void run(const TimeBudget& budget, SearchWork* work);

 private:
  struct Message {
    int64_t id = 0;
    std::string content;
  };
  // Messages of the store, whose ids follow each other up to `end`.
  struct Slice {
    std::list<Message> messages;
    int64_t begin = 0;
    int64_t end = 0;
  };

  struct Difference {
    int64_t id = 0;
    const std::string* content = nullptr;  // null: there is no such message
  };

  bool step(const TimeBudget& budget, SearchWork* work);
  Slice read(int64_t begin, int64_t end);
  template <typename Take>
  void for_each_indexed(const Slice& slice, const Take& take);
  std::vector<Difference> differences(const Slice& slice);
  void mend(const std::vector<Difference>& differences, SearchWork* work);
  void compare(const Shard& shard, SearchWork* work);
  void begin_verifying(int64_t first_id);
  void verify();
  void mark_stale(int64_t first_id, int64_t messages);
  Shard* shard_to_build();
  void begin_building(Shard* found);
  void build(int64_t first_id, SearchWork* work);
  void replace_table(Shard* shard);
  bool finish(const TimeBudget& budget);
  void load_position();
  void save_position();

  IndexWriter& index_;
  StoreReader& store_;
  int64_t swept_to_ = 0;      // the comparison's position
  int64_t counted_from_ = 0;  // messages from this id to the position are counted
  int64_t counted_ = 0;
  int64_t verified_ = 0;          // number of the table whose checksums are being compared; 0: none
  int64_t verified_to_ = 0;       // the position in it
  std::vector<int64_t> rebuilt_;  // shards that were built in this pass, by first id
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_SWEEPING_H_
