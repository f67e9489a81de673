// The writing half of the search.

#ifndef ADDONS_SEARCH_INDEXING_H_
#define ADDONS_SEARCH_INDEXING_H_

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include "addons/search/connection.h"
#include "addons/search/file_identity.h"
#include "addons/search/index_file.h"
#include "addons/search/index_writer.h"
#include "addons/search/message_search.h"
#include "addons/search/store_reader.h"
#include "addons/search/sweeping.h"
#include "addons/search/time_budget.h"

namespace Corvan::search {

// Keeps the index in step with the store. All members but is_open(), may_be_read() and
// report_damage() are called under mutex(). They throw SqlError and std::bad_alloc. An index that
// turns out to be damaged is deleted, and the call begins anew, once.
class Indexing {
 public:
  // `close_reader` closes the other half's connection to the index.
  Indexing(std::string store, std::string index, IndexCloser close_reader)
      : store_file_(std::move(store)),
        index_file_(std::move(index)),
        close_reader_(std::move(close_reader)) {}

  std::mutex& mutex() { return mutex_; }

  // Opens the files if they are not open, or others have taken their place.
  void open();
  SearchWork catch_up(const TimeBudget& budget);
  void changed(int64_t id);
  SearchWork sweep(const TimeBudget& budget);

  // Whether the files that the names lead to are open, and the index fits the store.
  bool is_open();
  // False if the index is damaged, or does not fit the store, and could not be deleted.
  bool may_be_read() const { return !is_rejected_; }
  // Another connection has found the index damaged.
  void report_damage() { is_damaged_ = true; }

 private:
  // The files, and what works on them.
  struct Files {
    Files(const std::string& store, const std::string& index, const IndexCloser& close_reader);
    StoreReader store;
    const std::unique_ptr<Connection> connection;
    const FileIdentity identity;  // of the index
    IndexWriter index;
    Sweeping sweeping;
  };

  void ensure_open();
  void open_files();
  void close();
  void require_deletion();
  void delete_if_damaged();
  void recover();
  template <typename Work>
  void use(const Work& work);
  bool make_compact(const TimeBudget& budget, bool has_indexed);
  bool index_batch(const TimeBudget& budget, SearchWork* work);
  bool append(Statement* rows, const TimeBudget& budget, int64_t* count);

  const std::string store_file_;
  const std::string index_file_;
  const IndexCloser close_reader_;
  std::mutex mutex_;
  std::unique_ptr<Files> files_;
  std::atomic<bool> is_damaged_{false};
  std::atomic<bool> is_rejected_{false};
  std::mutex opened_mutex_;
  std::pair<FileIdentity, FileIdentity>
      opened_;  // the store's file and the index's; under the mutex
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_INDEXING_H_
