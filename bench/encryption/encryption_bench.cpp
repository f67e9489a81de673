// Measures what encryption costs: the same store on the same SQLite, plain and encrypted. SQLite's
// page cache has decrypted pages, so a store that fits in it differs from a larger one.

#include <exception>
#include <iostream>

#include "bench/encryption/bounds.h"
#include "bench/encryption/comparison.h"
#include "bench/encryption/instructions.h"
#include "bench/support/options.h"
#include "bench/support/report.h"

namespace corvan_bench {

namespace {

struct Measured {
  const char* store;
  Sizes sizes;
  Sizes quick;
};

constexpr Measured kFits = {"store that fits in the page cache", {2000, 40}, {2000, 40}};
constexpr Measured kLarge = {"store larger than the page cache", {100'000, 1000}, {6000, 60}};

void compare(const Measured& measured, const Options& options, Report& report) {
  Comparison comparison(options.quick ? measured.quick : measured.sizes);
  const std::string store = measured.store;
  const Figures instructions = comparison.count_instructions();
  const Figures figures = comparison.measure(options.quick ? 2 : 25);
  figures.print(report, "Microseconds, and bytes: " + store);
  instructions.print(report, "Instructions: " + store);
  figures.print_others(report, "Other ciphers and keys: " + store);
  if (!options.quick) bound_encryption(store, figures, report);
}

int run(const Options& options) {
  Report report("encryption", options);
  print_contenders(report);
  compare(kFits, options, report);
  compare(kLarge, options, report);
  return report.finish();
}

}  // namespace

}  // namespace corvan_bench

int main(int argc, char** argv) {
  using namespace corvan_bench;
  try {
    return count_if_asked(argc, argv) ? 0 : run(parse_options(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 2;
  }
}
