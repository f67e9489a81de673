// Measures the overhead of the store in time and memory against a floor that runs the same
// statements directly, and the times of both libraries on the installed and on the built SQLite. To
// exclude the disk, files are kept in memory if the system has a folder for that, unless TMPDIR
// names another.

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <numeric>
#include <string>
#include <utility>
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

// A contender with its file and its operations.
struct Competitor {
  Competitor(Kind what, const std::string& fixture_folder) : kind(what) {
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

  const Kind kind;
  corvan_test::TemporaryFolder folder;
  std::unique_ptr<Contender> contender;
  std::vector<std::unique_ptr<Operation>> operations = make_operations();
};

using Competitors = std::vector<std::unique_ptr<Competitor>>;  // in the order of contenders()

constexpr std::size_t kStoreAt = 0;
constexpr std::size_t kFloorAt = 1;

// The times of one operation, by competitor and round.
struct Times {
  std::vector<std::vector<double>> of;
  double quartile(std::size_t competitor) const { return lower_quartile(of[competitor]); }
  double ratio() const { return quartile(kStoreAt) / quartile(kFloorAt); }
};

// The competitors in the order of a round. Store and floor alternate in going first, which is
// slower: the last competitor may have used another SQLite.
std::vector<std::size_t> turns_of(int round, std::size_t competitors) {
  std::vector<std::size_t> turns(competitors);
  std::iota(turns.begin(), turns.end(), std::size_t{0});
  if (round % 2 != 0) std::swap(turns[kStoreAt], turns[kFloorAt]);
  return turns;
}

// Each round runs each operation of each competitor once, so that disturbances affect all of them.
std::vector<Times> times_of(const Competitors& all, int rounds) {
  std::vector<Times> times(all.front()->operations.size());
  for (Times& each : times) each.of.resize(all.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t operation = 0; operation < times.size(); ++operation) {
      for (const std::size_t i : turns_of(round, all.size())) {
        times[operation].of[i].push_back(all[i]->microseconds_of_call(operation));
      }
    }
  }
  return times;
}

Report::Row row_of(const std::string& operation, const Times& times) {
  Report::Row row{operation, median(times.of[kStoreAt]), median(times.of[kFloorAt])};
  for (std::size_t i = 0; i < times.of.size(); ++i) row.push_back(times.quartile(i));
  row.push_back(100 * (times.ratio() - 1));
  return row;
}

void compare_times(const Competitors& all, const Options& options, Report& report) {
  int rounds = 201;
  if (options.quick) rounds = 3;
  if (options.full) rounds = 801;
  const std::vector<Times> times = times_of(all, rounds);

  std::vector<std::string> columns = {"operation", "store, median", "floor, median"};
  for (const auto& each : all) columns.emplace_back(name_of(each->kind));
  columns.emplace_back("store beyond the floor, %");
  std::vector<Report::Row> rows;
  for (std::size_t i = 0; i < times.size(); ++i) {
    rows.push_back(row_of(all.front()->operations[i]->name(), times[i]));
  }
  report.table("Microseconds a call, " + std::to_string(rounds) +
                   " rounds, lower quartiles unless a column says median, files in " +
                   std::filesystem::temp_directory_path().string(),
               columns, rows);
  if (options.quick) return;  // three rounds cannot resolve 5 %
  for (std::size_t i = 0; i < times.size(); ++i) {
    report.bound("time of store / floor, lower quartiles, " + all.front()->operations[i]->name(),
                 times[i].ratio(), kAtMost);
  }
}

// The first competitor of this kind; null if there is none.
Competitor* find(const Competitors& all, Kind kind) {
  const auto found =
      std::find_if(all.begin(), all.end(), [kind](const auto& each) { return each->kind == kind; });
  return found == all.end() ? nullptr : found->get();
}

void compare_allocations(const Competitors& all, Report& report) {
  Competitor& store = *all[kStoreAt];
  Competitor& floor = *all[kFloorAt];
  Competitor* const cached = find(all, Kind::kCachedStore);
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
    Report::Row row = {operation.name(),
                       of_records,
                       a_call(of_store.count),
                       a_call(of_floor.count),
                       a_call(of_store.count - of_floor.count),
                       a_call(of_store.bytes),
                       a_call(of_floor.bytes)};
    if (cached != nullptr) row.push_back(a_call(cached->allocations_of_run(i).count));
    rows.push_back(std::move(row));
  }
  std::vector<std::string> columns = {"operation",  "of its records", "store",        "floor",
                                      "difference", "store's bytes",  "floor's bytes"};
  if (cached != nullptr) columns.emplace_back(name_of(cached->kind));
  report.table("Allocations a call, without SQLite's own", columns, rows);
}

int run(const Options& options) {
  if (std::filesystem::is_directory(kMemoryFolder)) setenv("TMPDIR", kMemoryFolder, 0);
  Report report("floor", options);
  const corvan_test::TemporaryFolder fixture;
  write_fixture(fixture.path());
  verify_contenders(fixture.path());

  print_contenders(report);

  Competitors all;
  for (const Kind kind : contenders()) {
    all.push_back(std::make_unique<Competitor>(kind, fixture.path()));
  }
  compare_times(all, options, report);
  compare_allocations(all, report);
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
