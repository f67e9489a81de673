// Counts the instructions of the store's operations: of both libraries, on the installed and on the
// built SQLite, and of a floor that runs the same statements directly. All counts include SQLite.
// Unlike times, they do not depend on the machine's load.

#include <exception>
#include <functional>
#include <future>
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

using Counts = std::map<std::string, double>;  // instructions per call, by operation

constexpr const char* kCount = "--count";  // counts_of() passes it to a new process of this program

Kind kind_of(const std::string& name) {
  for (const Kind kind : contenders()) {
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
Counts counts_of(Kind kind, const std::string& fixture_folder) {
  const corvan_test::TemporaryFolder folder;
  copy_fixture(fixture_folder, folder.path());
  const auto runs = run_under_callgrind(folder.path(), {kCount, name_of(kind), folder.path()});
  Counts counts;
  for (const std::unique_ptr<Operation>& operation : make_operations()) {
    const auto run = static_cast<double>(runs.at(operation->name()));
    counts[operation->name()] = run / operation->calls();
  }
  return counts;
}

// The counts of every contender, and the operations in order.
struct Comparison {
  std::vector<Kind> kinds;
  std::map<Kind, Counts> counts;
  std::vector<std::string> operations;

  bool has(Kind kind) const { return counts.count(kind) > 0; }
  double count(Kind kind, const std::string& operation) const {
    return counts.at(kind).at(operation);
  }
  double ratio(Kind kind, Kind to, const std::string& operation) const {
    return count(kind, operation) / count(to, operation);
  }
};

Comparison compare_contenders(const std::string& fixture_folder) {
  Comparison comparison;
  comparison.kinds = contenders();
  std::map<Kind, std::future<Counts>> running;  // side by side, which counts do not depend on
  for (const Kind kind : comparison.kinds) {
    running[kind] = std::async(std::launch::async, counts_of, kind, std::cref(fixture_folder));
  }
  for (auto& [kind, counts] : running) comparison.counts[kind] = counts.get();
  for (const std::unique_ptr<Operation>& operation : make_operations()) {
    comparison.operations.push_back(operation->name());
  }
  return comparison;
}

void print_counts(const Comparison& comparison, Report& report) {
  std::vector<std::string> columns{"operation"};
  for (const Kind kind : comparison.kinds) columns.emplace_back(name_of(kind));
  columns.emplace_back("store beyond the floor, %");
  std::vector<Report::Row> rows;
  for (const std::string& operation : comparison.operations) {
    Report::Row row{operation};
    for (const Kind kind : comparison.kinds) row.push_back(comparison.count(kind, operation));
    row.push_back(100 * (comparison.ratio(Kind::kStore, Kind::kFloor, operation) - 1));
    rows.push_back(std::move(row));
  }
  report.table("Instructions a call", columns, rows);
}

void bound_overhead(const Comparison& comparison, Report& report) {
  constexpr double kAtMost = 1.05;
  for (const std::string& operation : comparison.operations) {
    report.bound("instructions of store / floor, " + operation,
                 comparison.ratio(Kind::kStore, Kind::kFloor, operation), kAtMost);
  }
}

void bound_cached(const Comparison& comparison, Report& report) {
  constexpr double kSmall = 20'000;  // instructions; a look-up weighs more in a small operation
  for (const std::string& operation : comparison.operations) {
    const double limit = comparison.count(Kind::kCachedFloor, operation) > kSmall ? 1.10 : 1.20;
    report.bound("instructions of db_cached / floor, statements kept, " + operation,
                 comparison.ratio(Kind::kCachedStore, Kind::kCachedFloor, operation), limit);
  }
}

// Work inside SQLite's pages dominates the batch and the deletion of 20. Reading a page of messages
// locks the connection and copies a text for each column, which no option of SQLite saves.
void bound_built(const Comparison& comparison, Report& report) {
  constexpr double kAtMost = 0.6;
  constexpr double kReading = 0.65;
  for (const std::string& operation : comparison.operations) {
    if (operation == kBatchSave || operation == kBatchDeletion) continue;
    report.bound("instructions of store, built SQLite / store, " + operation,
                 comparison.ratio(Kind::kBuiltStore, Kind::kStore, operation),
                 operation == kHistoryPage ? kReading : kAtMost);
    report.bound("instructions of db_cached, built SQLite / store, " + operation,
                 comparison.ratio(Kind::kBuiltCachedStore, Kind::kStore, operation), kAtMost);
  }
}

int compare(const Options& options) {
  Report report("instructions", options);
  const corvan_test::TemporaryFolder fixture;
  write_fixture(fixture.path());
  verify_contenders(fixture.path());
  print_contenders(report);

  const Comparison comparison = compare_contenders(fixture.path());
  print_counts(comparison, report);
  bound_overhead(comparison, report);
  if (comparison.has(Kind::kCachedStore)) bound_cached(comparison, report);
  if (comparison.has(Kind::kBuiltCachedStore)) bound_built(comparison, report);
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
