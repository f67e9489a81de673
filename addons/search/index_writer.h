// Changes the index.

#ifndef ADDONS_SEARCH_INDEX_WRITER_H_
#define ADDONS_SEARCH_INDEX_WRITER_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "addons/search/checksums.h"
#include "addons/search/connection.h"
#include "addons/search/fingerprints.h"
#include "addons/search/index_file.h"
#include "addons/search/pair_table.h"

namespace Corvan::search {

constexpr int64_t kMergedPages = 64;  // FTS5 writes about so many pages in a step of merging

// The index as it is being changed. All members that change it are called in an IndexChange.
class IndexWriter {
 public:
  // Finds the common pairs of messages from an id on.
  using PairSource = std::function<PairLists(int64_t first_id)>;

  IndexWriter(const Connection& index, PairSource find_pairs);
  IndexWriter(const IndexWriter&) = delete;
  IndexWriter& operator=(const IndexWriter&) = delete;

  const Connection& connection() const { return index_; }
  State& state() { return state_; }
  std::vector<Shard>& shards() { return shards_; }
  Fingerprints& fingerprints() { return fingerprints_; }
  Checksums& checksums() { return checksums_; }

  // Reads the state and the shards again. An IndexChange does so at its begin.
  void reload();

  // The shard that has this id; null if there is none.
  Shard* shard_of(int64_t id);
  // The last id that belongs to the shard.
  int64_t end_of(const Shard& shard) const;

  // Adds a message above all others.
  void append(int64_t id, std::string_view content);
  // Adds a message that is not above all others, or that has a new content. Its old terms stay, so
  // the shard is then stale.
  void replace(int64_t id, std::string_view content);
  // The message was deleted.
  void forget(int64_t id);
  // Forgets all messages above the id.
  void cut_after(int64_t id);

  // Adds a message's terms to one table.
  void add_terms(int64_t table, int64_t id, std::string_view content);
  // Each transaction that adds terms to a table adds a segment. If there are many of them, this
  // merges a part. For tables that get short transactions.
  void merge_new_segments(int64_t table) { merge(table, kMergedPages); }
  // The same, once for each 8 messages. `added` were added to the shard in this transaction.
  void merge_new_segments(const Shard& shard, int64_t added);
  // One step of merging all segments of a table. `is_begun`: it is not the first one. False if
  // nothing was left to do.
  bool merge_all_segments(int64_t table, bool is_begun);
  // Returns the number of a new table for messages from an id on.
  int64_t create_table(int64_t first_id);
  void drop_table(int64_t number);

 private:
  friend class IndexChange;

  struct TableStatements {
    TableStatements(const Connection& index, int64_t table);
    const int64_t number;
    Statement insert;
    Statement merge;
  };

  TableStatements& statements(int64_t table);
  void merge(int64_t table, int64_t pages);
  void store();
  void forget_changes();
  void store_shards();
  Shard& shard_for_new(int64_t id);
  void set_messages(Shard* shard);

  const Connection& index_;
  Statement state_rows_;
  Statement shard_rows_;
  Statement store_state_;
  Statement store_shard_;
  State state_;
  std::vector<Shard> shards_;
  std::vector<Shard> stored_shards_;  // as they are in the file
  Fingerprints fingerprints_;
  Checksums checksums_;
  const PairSource find_pairs_;
  PairTable pairs_;
  const CommonPairs* used_pairs_ = nullptr;      // by the tokenizer
  std::unique_ptr<TableStatements> statements_;  // of the table that was used last
};

// A transaction on the index; rolled back unless it is committed.
class IndexChange {
 public:
  explicit IndexChange(IndexWriter* index);
  IndexChange(const IndexChange&) = delete;
  IndexChange& operator=(const IndexChange&) = delete;
  ~IndexChange();
  void commit();

 private:
  IndexWriter& index_;
  Transaction transaction_;
  bool is_committed_ = false;
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_INDEX_WRITER_H_
