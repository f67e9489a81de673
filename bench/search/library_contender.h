#ifndef BENCH_SEARCH_LIBRARY_CONTENDER_H_
#define BENCH_SEARCH_LIBRARY_CONTENDER_H_

#include <chrono>
#include <memory>
#include <string>

#include "addons/search/message_search.h"
#include "bench/search/contender.h"

namespace corvan_bench {

// Budget of catch_up() that is as good as none.
inline constexpr std::chrono::microseconds kLargeBudget = std::chrono::hours(1);
inline constexpr std::chrono::microseconds kSmallBudget = std::chrono::milliseconds(10);

// Calls catch_up() until all messages are indexed. Returns how many were.
int64_t catch_up(Corvan::MessageSearch& search, std::chrono::microseconds budget);
// Calls sweep() until the end of the store. Returns how many messages were compared.
int64_t sweep(Corvan::MessageSearch& search);

// Corvan::MessageSearch.
class LibraryContender : public Contender {
 public:
  // build() indexes with calls of this budget. `folder` ends with a slash.
  LibraryContender(const std::string& name, const std::string& folder,
                   std::chrono::microseconds budget);

  void remove() override;
  void build() override;
  void settle() override;
  double bytes() const override;
  void open() override;
  void close() override { search_.reset(); }
  Ids find(const SearchQuery& query, int64_t at_most) override;

  Corvan::MessageSearch& search() { return *search_; }

 private:
  const cvrtc::Pathname folder_;
  const std::chrono::microseconds budget_;
  std::unique_ptr<Corvan::MessageSearch> search_;
};

// The options of a search for the query.
Corvan::SearchOptions options_for(const SearchQuery& query, int64_t at_most);

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_LIBRARY_CONTENDER_H_
