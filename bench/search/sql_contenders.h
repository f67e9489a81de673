// The contenders in SQL. None of them looks at a message again before it is returned.

#ifndef BENCH_SEARCH_SQL_CONTENDERS_H_
#define BENCH_SEARCH_SQL_CONTENDERS_H_

#include <memory>
#include <optional>
#include <string>

#include "bench/search/contender.h"
#include "bench/search/database.h"
#include "tests/support/temporary_folder.h"

namespace corvan_bench {

// Reads the store with `like '%word%'`, in order of time.
class LikeContender : public Contender {
 public:
  // Asks every step-th query.
  LikeContender(std::string store_file, std::size_t step);

  bool has_index() const override { return false; }
  void open() override;
  void close() override;
  Ids find(const SearchQuery& query, int64_t at_most) override;
  std::size_t step() const override { return step_; }

 private:
  const std::string store_file_;
  const std::size_t step_;
  std::unique_ptr<Database> database_;
};

// A contentless FTS5 table with its default detail, in a file of its own. Results are in the order
// of the ids, which in the benchmark's stores is that of time.
class Fts5Contender : public Contender {
 public:
  Fts5Contender(const std::string& name, std::string tokenizer, std::string store_file);

  void remove() override;
  void build() override;
  void settle() override;
  double bytes() const override { return bytes_of_files(file()); }
  void open() override;
  void close() override;
  Ids find(const SearchQuery& query, int64_t at_most) override;

 private:
  std::string file() const { return folder_.file("index"); }
  std::string match_of(const SearchQuery& query) const;

  const std::string tokenizer_;
  const std::string store_file_;
  const corvan_test::TemporaryFolder folder_;
  std::unique_ptr<Database> database_;
  std::optional<Statement> find_;
  std::optional<Statement> find_in_conversation_;
};

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_SQL_CONTENDERS_H_
