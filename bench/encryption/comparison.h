// The comparison of all contenders on stores of one size.

#ifndef BENCH_ENCRYPTION_COMPARISON_H_
#define BENCH_ENCRYPTION_COMPARISON_H_

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/encryption/contenders.h"
#include "bench/encryption/figures.h"
#include "bench/encryption/workload.h"
#include "tests/support/temporary_folder.h"

namespace corvan_bench {

class Comparison {
 public:
  // Fills a store for each contender, with equal rows.
  explicit Comparison(const Sizes& sizes);

  Figures count_instructions() const;

  // Measures times, in microseconds, and bytes, in this many rounds. The contenders take turns in
  // each.
  Figures measure(int rounds);

 private:
  struct Filled {
    Filled(const ContenderKind& kind, const Sizes& sizes);
    corvan_test::TemporaryFolder folder;
    Contender contender;
    Feed feed;
  };

  void measure_files(Figures& figures) const;
  void measure_opening(int rounds, Figures& figures);
  void measure_works(int rounds, Figures& figures);
  void measure_writes(int messages_each, const char* row, Figures& figures);

  const Sizes sizes_;
  std::vector<std::unique_ptr<Filled>> filled_;
};

}  // namespace corvan_bench

#endif  // BENCH_ENCRYPTION_COMPARISON_H_
