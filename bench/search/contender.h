#ifndef BENCH_SEARCH_CONTENDER_H_
#define BENCH_SEARCH_CONTENDER_H_

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bench/search/queries.h"

namespace corvan_bench {

// A way to search in one store. Every member throws std::runtime_error if it fails.
class Contender {
 public:
  using Ids = std::vector<int64_t>;

  explicit Contender(std::string name) : name_(std::move(name)) {}
  Contender(const Contender&) = delete;
  Contender& operator=(const Contender&) = delete;
  virtual ~Contender() = default;

  const std::string& name() const { return name_; }

  // Whether there is an index to build.
  virtual bool has_index() const { return true; }
  virtual void remove() {}
  // Creates the index of all messages, after remove(), and closes it.
  virtual void build() {}
  // Lets the index become as small as it gets, and closes it.
  virtual void settle() {}
  // Bytes of all files of the index, which is closed.
  virtual double bytes() const { return 0; }

  // Before the first find().
  virtual void open() {}
  virtual void close() {}
  // At most this many messages, the newest first.
  virtual Ids find(const SearchQuery& query, int64_t at_most) = 0;

  // Only every so many-th query is asked, if searching takes long.
  virtual std::size_t step() const { return 1; }

 private:
  const std::string name_;
};

// Names of contenders.
inline constexpr const char* kLike = "like";
inline constexpr const char* kTrigram = "FTS5 trigram";
inline constexpr const char* kUnicode61 = "FTS5 unicode61";
inline constexpr const char* kLibrary = "Corvan::search";
inline constexpr const char* kScan = "the rule";  // Corvan::search before there is an index

// Bytes of the file and of those of its log.
double bytes_of_files(const std::string& file);

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_CONTENDER_H_
