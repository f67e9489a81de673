// Counts the instructions of the store's operations against a floor that runs the same statements
// directly. Both counts include SQLite. Unlike times, they do not depend on the machine's load.

#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "bench/floor/callgrind.h"
#include "bench/floor/contenders.h"
#include "bench/floor/fixture.h"
#include "bench/floor/operations.h"
#include "bench/floor/verification.h"
#include "bench/support/options.h"
#include "bench/support/report.h"
#include "tests/support/temporary_folder.h"

namespace corvan_bench {

namespace {

constexpr double kAtMost = 1.05;
constexpr const char* kCount = "--count";  // compare() passes it to a new process of this program

Kind kind_of(const std::string& name) {
  for (const Kind kind : {Kind::kStore, Kind::kFloor, Kind::kCachedFloor}) {
    if (name == name_of(kind)) return kind;
  }
  throw std::runtime_error("no contender " + name);
}

// Counts every operation of a contender. The first, uncounted run warms SQLite's caches.
int count(Kind kind, const std::string& folder) {
  const std::unique_ptr<Contender> contender = make_contender(kind, folder);
  for (const std::unique_ptr<Operation>& operation : make_operations()) {
    run_operation(*operation, *contender, false, [](const auto& calls) { calls(); });
    run_operation(*operation, *contender, false, [&operation](const auto& calls) {
      count_instructions(operation->name(), calls);
    });
    operation->result();  // throws if it is wrong
  }
  return 0;
}

// One process per contender, so that all start in the same state.
std::map<std::string, int64_t> counts_of(Kind kind, const std::string& fixture_folder) {
  const corvan_test::TemporaryFolder folder;
  copy_fixture(fixture_folder, folder.path());
  return run_under_callgrind(folder.path(), {kCount, name_of(kind), folder.path()});
}

int compare(const Options& options) {
  Report report("instructions", options);
  const corvan_test::TemporaryFolder fixture;
  write_fixture(fixture.path());
  verify_contenders(fixture.path());

  const auto store = counts_of(Kind::kStore, fixture.path());
  const auto floor = counts_of(Kind::kFloor, fixture.path());
  const auto cached = counts_of(Kind::kCachedFloor, fixture.path());
  std::vector<Report::Row> rows;
  std::vector<std::pair<std::string, double>> ratios;
  for (const std::unique_ptr<Operation>& operation : make_operations()) {
    const std::string& name = operation->name();
    const double calls = operation->calls();
    const double of_store = static_cast<double>(store.at(name)) / calls;
    const double of_floor = static_cast<double>(floor.at(name)) / calls;
    const double of_cached = static_cast<double>(cached.at(name)) / calls;
    rows.push_back({name, of_store, of_floor, 100 * (of_store / of_floor - 1), of_cached});
    ratios.emplace_back(name, of_store / of_floor);
  }
  report.table("Instructions a call",
               {"operation", "store", "floor", "beyond the floor, %", "floor, statements kept"},
               rows);
  for (const auto& [name, ratio] : ratios) {
    report.bound("instructions of store / floor, " + name, ratio, kAtMost);
  }
  return report.finish();
}

}  // namespace

}  // namespace corvan_bench

int main(int argc, char** argv) {
  using namespace corvan_bench;
  try {
    if (argc == 4 && argv[1] == std::string(kCount)) return count(kind_of(argv[2]), argv[3]);
    return compare(parse_options(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 1;
  }
}
