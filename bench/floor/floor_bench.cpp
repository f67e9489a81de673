// Measures the overhead of the store in time and memory against a floor that runs the same
// statements directly. To exclude the disk, files are kept in memory if the system has a folder for
// that, unless TMPDIR names another.

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "bench/floor/allocations.h"
#include "bench/floor/contenders.h"
#include "bench/floor/fixture.h"
#include "bench/floor/operations.h"
#include "bench/floor/verification.h"
#include "bench/support/options.h"
#include "bench/support/report.h"
#include "bench/support/timing.h"
#include "tests/support/temporary_folder.h"

namespace corvan_bench {

namespace {

constexpr double kAtMost = 1.05;
constexpr const char* kMemoryFolder = "/dev/shm";

// Disturbances can only slow a run down, so the lower quartile reflects the operation better than
// the median.
double lower_quartile(std::vector<double> values) {
  const auto quarter = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 4);
  std::nth_element(values.begin(), quarter, values.end());
  return *quarter;
}

// A contender with its file and its operations.
struct Competitor {
  Competitor(Kind kind, const std::string& fixture_folder) {
    copy_fixture(fixture_folder, folder.path());
    contender = make_contender(kind, folder.path());
  }

  double microseconds_of_call(std::size_t operation) {
    Operation& op = *operations[operation];
    double run = 0;
    run_operation(op, *contender, false, [&run](const auto& calls) { run = time_of(calls); });
    op.result();  // throws if it is wrong
    return run / op.calls();
  }

  Allocations allocations_of_run(std::size_t operation) {
    Allocations run;
    run_operation(*operations[operation], *contender, false, [&run](const auto& calls) {
      const Allocations before = allocations();
      calls();
      run.count = allocations().count - before.count;
      run.bytes = allocations().bytes - before.bytes;
    });
    return run;
  }

  corvan_test::TemporaryFolder folder;
  std::unique_ptr<Contender> contender;
  std::vector<std::unique_ptr<Operation>> operations = make_operations();
};

struct Times {
  std::vector<double> store, floor, cached;
  double ratio() const { return lower_quartile(store) / lower_quartile(floor); }
};

// Each round runs each operation of each contender once, so that disturbances affect all of them.
// Store and floor alternate in going first.
std::vector<Times> times_of(Competitor& store, Competitor& floor, Competitor& cached, int rounds) {
  std::vector<Times> times(store.operations.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < times.size(); ++i) {
      if (round % 2 == 0) times[i].store.push_back(store.microseconds_of_call(i));
      times[i].floor.push_back(floor.microseconds_of_call(i));
      if (round % 2 != 0) times[i].store.push_back(store.microseconds_of_call(i));
      times[i].cached.push_back(cached.microseconds_of_call(i));
    }
  }
  return times;
}

void compare_times(Competitor& store, Competitor& floor, Competitor& cached, const Options& options,
                   Report& report) {
  int rounds = 201;
  if (options.quick) rounds = 3;
  if (options.full) rounds = 801;
  const std::vector<Times> times = times_of(store, floor, cached, rounds);
  std::vector<Report::Row> rows;
  for (std::size_t i = 0; i < times.size(); ++i) {
    rows.push_back({store.operations[i]->name(), median(times[i].store), median(times[i].floor),
                    lower_quartile(times[i].store), lower_quartile(times[i].floor),
                    100 * (times[i].ratio() - 1), lower_quartile(times[i].cached)});
  }
  report.table("Microseconds a call, " + std::to_string(rounds) + " rounds, files in " +
                   std::filesystem::temp_directory_path().string(),
               {"operation", "store, median", "floor, median", "store, lower quartile",
                "floor, lower quartile", "beyond the floor, %", "floor, statements kept"},
               rows);
  if (options.quick) return;  // three rounds cannot resolve 5 %
  for (std::size_t i = 0; i < times.size(); ++i) {
    report.bound("time of store / floor, lower quartiles, " + store.operations[i]->name(),
                 times[i].ratio(), kAtMost);
  }
}

void compare_allocations(Competitor& store, Competitor& floor, Report& report) {
  std::vector<Report::Row> rows;
  for (std::size_t i = 0; i < store.operations.size(); ++i) {
    const Operation& operation = *store.operations[i];
    const Allocations of_store = store.allocations_of_run(i);
    const Allocations of_floor = floor.allocations_of_run(i);
    const Allocations before = allocations();
    operation.copy_records();
    const int64_t of_records = allocations().count - before.count;
    const auto a_call = [&operation](int64_t number) {
      return static_cast<double>(number) / operation.calls();
    };
    rows.push_back({operation.name(), of_records, a_call(of_store.count), a_call(of_floor.count),
                    a_call(of_store.count - of_floor.count), a_call(of_store.bytes),
                    a_call(of_floor.bytes)});
  }
  report.table("Allocations a call, without SQLite's own",
               {"operation", "of its records", "store", "floor", "difference", "store's bytes",
                "floor's bytes"},
               rows);
}

int run(const Options& options) {
  if (std::filesystem::is_directory(kMemoryFolder)) setenv("TMPDIR", kMemoryFolder, 0);
  Report report("floor", options);
  const corvan_test::TemporaryFolder fixture;
  write_fixture(fixture.path());
  verify_contenders(fixture.path());

  Competitor store(Kind::kStore, fixture.path());
  Competitor floor(Kind::kFloor, fixture.path());
  Competitor cached(Kind::kCachedFloor, fixture.path());
  compare_times(store, floor, cached, options, report);
  compare_allocations(store, floor, report);
  return report.finish();
}

}  // namespace

}  // namespace corvan_bench

int main(int argc, char** argv) {
  try {
    return corvan_bench::run(corvan_bench::parse_options(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 1;
  }
}
