#include "addons/search/message_search.h"

#include <chrono>
#include <new>
#include <string_view>
#include <thread>

#include "addons/search/index_file.h"
#include "addons/search/indexing.h"
#include "addons/search/log_line.h"
#include "addons/search/query.h"
#include "addons/search/reading.h"

namespace Corvan {

namespace {

using search::Indexing;
using search::log_line;
using search::TimeBudget;

// The status of the exception that is being handled. Writes a line to the log.
SearchStatus status_of_failure() noexcept {
  try {
    throw;
  } catch (const search::SqlError& error) {
    log_line(error.text());
    return error.status();
  } catch (const std::bad_alloc&) {
    log_line("memory ran out");
    return SearchStatus::kNoMemory;
  }
}

// The status of what `work` does. Writes a line to the log if it fails.
template <typename Work>
SearchStatus status_of(const Work& work) noexcept {
  try {
    work();
    return SearchStatus::kOk;
  } catch (...) {
    return status_of_failure();
  }
}

std::string file_in(const cvrtc::Pathname& folder, const char* name) {
  return folder.folder() + name;
}

// An index is not used before it was compared with the store. Another thread may be comparing it
// already.
void wait_until_open(Indexing* indexing) {
  while (!indexing->is_open()) {
    const std::unique_lock<std::mutex> lock(indexing->mutex(), std::try_to_lock);
    if (lock.owns_lock()) return indexing->open();
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
}

void catch_up_first(Indexing* indexing, std::chrono::microseconds budget) {
  const std::unique_lock<std::mutex> lock(indexing->mutex(), std::try_to_lock);
  if (lock.owns_lock()) indexing->catch_up(TimeBudget(budget));
}

// What one member of the writing half does.
SearchWork work_of(Indexing* indexing, SearchWork (Indexing::*member)(const TimeBudget&),
                   std::chrono::microseconds budget) {
  SearchWork work;
  work.status = status_of([&] {
    wait_until_open(indexing);
    const std::lock_guard<std::mutex> lock(indexing->mutex());
    work = (indexing->*member)(TimeBudget(budget));
  });
  return work;
}

// Matching a long query takes time that grows with the product of its length and the text's.
std::string_view within_limit(const std::string& query) {
  return query.size() <= MessageSearch::kLongestQuery ? std::string_view(query)
                                                      : std::string_view();
}

}  // namespace

const char* to_text(SearchStatus status) {
  switch (status) {
    case SearchStatus::kOk:
      return "no error";
    case SearchStatus::kNoStore:
      return "there is no store, or it cannot be opened";
    case SearchStatus::kStoreError:
      return "the store cannot be read";
    case SearchStatus::kIndexError:
      return "the index cannot be created, read or written";
    case SearchStatus::kBadQuery:
      return "there is nothing to search for, or the query or the limit is not valid";
    case SearchStatus::kNoMemory:
      return "memory ran out";
  }
  return "unknown status";
}

MessageSearch::MessageSearch(const cvrtc::Pathname& folder)
    : indexing_(std::make_unique<Indexing>(file_in(folder, "corvan"), file_in(folder, kFileName),
                                           [this] { return reading_->close_index(); })),
      reading_(std::make_unique<search::Reading>(file_in(folder, "corvan"),
                                                 file_in(folder, kFileName))) {}

MessageSearch::~MessageSearch() = default;

SearchStatus MessageSearch::open() {
  return status_of([this] { wait_until_open(indexing_.get()); });
}

SearchResults MessageSearch::find(const std::string& query, const SearchOptions& options) {
  SearchResults results;
  bool is_damaged = false;
  const SearchStatus status = status_of([&] {
    const search::Query parsed(within_limit(query));
    if (parsed.is_empty() || options.limit < 1) {
      results.status = SearchStatus::kBadQuery;
      return;
    }
    const TimeBudget budget =
        options.time_limit.count() > 0 ? TimeBudget(options.time_limit) : TimeBudget::unlimited();
    prepare(options.catch_up);
    const std::lock_guard<std::mutex> lock(reading_->mutex());
    results = reading_->find(parsed, options, budget, indexing_->may_be_read(), &is_damaged);
  });
  if (status != SearchStatus::kOk) results.status = status;
  if (is_damaged) indexing_->report_damage();
  return results;
}

// A failure of the index only makes the search slower. One of the store is found again, and logged,
// by the reading half.
void MessageSearch::prepare(std::chrono::microseconds catch_up) {
  try {
    wait_until_open(indexing_.get());
    if (catch_up.count() > 0) catch_up_first(indexing_.get(), catch_up);
  } catch (const search::SqlError& error) {
    if (error.status() == SearchStatus::kIndexError) log_line(error.text());
  }
}

SearchWork MessageSearch::catch_up(std::chrono::microseconds budget) {
  return work_of(indexing_.get(), &Indexing::catch_up, budget);
}

SearchStatus MessageSearch::changed(int64_t id) {
  return status_of([&] {
    const std::lock_guard<std::mutex> lock(indexing_->mutex());
    indexing_->changed(id);
  });
}

SearchWork MessageSearch::sweep(std::chrono::microseconds budget) {
  return work_of(indexing_.get(), &Indexing::sweep, budget);
}

SearchProgress MessageSearch::progress() {
  SearchProgress progress;
  const SearchStatus status = status_of([&] {
    const std::lock_guard<std::mutex> lock(reading_->mutex());
    progress = reading_->progress();
  });
  progress.status = status;
  return progress;
}

std::vector<SearchRange> MessageSearch::snippet(const std::string& text, const std::string& query) {
  std::vector<SearchRange> ranges;
  status_of([&] { ranges = search::Query(within_limit(query)).ranges(text); });
  return ranges;
}

bool MessageSearch::remove(const cvrtc::Pathname& folder) {
  bool is_deleted = false;
  status_of([&] {
    const std::string file = file_in(folder, kFileName);
    is_deleted = search::delete_index(file);
    if (!is_deleted) log_line(file, ": cannot be deleted");
  });
  return is_deleted;
}

}  // namespace Corvan
