#include "bench/search/library_contender.h"

#include <algorithm>
#include <limits>

#include "bench/support/report.h"

namespace corvan_bench {

namespace {

using Corvan::MessageSearch;
using Corvan::SearchOptions;
using Corvan::SearchStatus;
using Corvan::SearchWork;

constexpr int kSettlingCalls = 3;

void verify(SearchStatus status, const char* call) {
  Report::verify(status == SearchStatus::kOk, std::string(call) + ": " + to_text(status));
}

}  // namespace

int64_t catch_up(MessageSearch& search, std::chrono::microseconds budget) {
  int64_t indexed = 0;
  for (;;) {
    const SearchWork work = search.catch_up(budget);
    verify(work.status, "catch_up()");
    indexed += work.messages;
    if (work.complete) return indexed;
  }
}

int64_t sweep(MessageSearch& search) {
  int64_t compared = 0;
  for (;;) {
    const SearchWork work = search.sweep(kLargeBudget);
    verify(work.status, "sweep()");
    compared += work.messages;
    if (work.complete) return compared;
  }
}

LibraryContender::LibraryContender(const std::string& name, const std::string& folder,
                                   std::chrono::microseconds budget)
    : Contender(name), folder_(folder), budget_(budget) {}

void LibraryContender::remove() {
  Report::verify(MessageSearch::remove(folder_), "the index is removed");
}

void LibraryContender::build() {
  open();
  catch_up(search(), budget_);
  close();
}

void LibraryContender::settle() {
  open();
  for (int i = 0; i < kSettlingCalls; ++i) catch_up(search(), kLargeBudget);
  sweep(search());
  close();
}

double LibraryContender::bytes() const {
  return bytes_of_files(folder_.folder() + MessageSearch::kFileName);
}

void LibraryContender::open() {
  search_ = std::make_unique<MessageSearch>(folder_);
  verify(search_->open(), "open()");
}

Contender::Ids LibraryContender::find(const SearchQuery& query, int64_t at_most) {
  const auto results = search_->find(text_of(query), options_for(query, at_most));
  verify(results.status, "find()");
  Ids ids;
  for (const Corvan::SearchHit& hit : results.hits) ids.push_back(hit.id);
  return ids;
}

SearchOptions options_for(const SearchQuery& query, int64_t at_most) {
  SearchOptions options;
  options.limit =
      static_cast<int32_t>(std::min(at_most, int64_t{std::numeric_limits<int32_t>::max()}));
  if (!query.session_id.empty()) {
    options.session_id = query.session_id;
    options.session_types = {static_cast<Corvan::SessionType>(query.session_type)};
  }
  return options;
}

}  // namespace corvan_bench
