// Compares the search of Corvan::search with `like` and with two tokenizers of FTS5: on real logs,
// and on a generated store.

#include <algorithm>
#include <array>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bench/search/asking.h"
#include "bench/search/bounds.h"
#include "bench/search/building.h"
#include "bench/search/filled_store.h"
#include "bench/search/library_contender.h"
#include "bench/search/messages.h"
#include "bench/search/query_sample.h"
#include "bench/search/recall.h"
#include "bench/search/single_calls.h"
#include "bench/search/sql_contenders.h"
#include "bench/support/options.h"
#include "bench/support/report.h"

namespace corvan_bench {

namespace {

// How much is done on one store.
struct Effort {
  int64_t messages;          // at most
  int rounds;                // of building
  std::size_t queries;       // of each class
  std::size_t compared;      // of each class, for which all matches are compared
  std::size_t step_of_like;  // `like` is asked every so many-th query
  CallCounts calls;
};

struct Log {
  const char* file;
  double bytes_per_message;  // the bound
};
constexpr std::array kLogs = {Log{"kdconv-zh.jsonl", 60}, Log{"ubuntu-irc.jsonl", 25}};

constexpr int64_t kAll = 1'000'000'000;

Effort effort_on_log(const Options& options) {
  if (options.quick) return {5000, 1, 24, 4, 5, {50, 5, 50}};
  return {kAll, 3, 240, 20, 10, {1000, 50, 2000}};
}

Effort effort_on_generated(const Options& options) {
  if (options.quick) return {20'000, 1, 24, 4, 20, {50, 5, 50}};
  return {options.full ? 5'000'000 : 1'000'000, 1, 240, 5, 20, {1000, 50, 2000}};
}

class StoreComparison {
 public:
  StoreComparison(std::string name, MessageSource& source, const Effort& effort,
                  const Options& options, Report& report);

  void run(std::optional<double> bytes_per_message);

 private:
  std::vector<SearchQuery> queries() const;
  bool has_chinese() const;
  void find_all_by_scanning();
  void build_indexes(std::optional<double> bytes_per_message);
  void ask_all();
  void compare_matches();
  void measure_single_calls();
  void progress(const char* step) const;

  const std::string name_;
  const Effort effort_;
  const Options& options_;
  Report& report_;
  FilledStore store_;
  const std::vector<SearchQuery> queries_;
  Matches matches_;
  LikeContender like_;
  Fts5Contender trigram_;
  Fts5Contender unicode61_;
  LibraryContender library_;
};

StoreComparison::StoreComparison(std::string name, MessageSource& source, const Effort& effort,
                                 const Options& options, Report& report)
    : name_(std::move(name)),
      effort_(effort),
      options_(options),
      report_(report),
      store_(source, effort.messages),
      queries_(sample_queries(store_.file(), effort.queries)),
      matches_(queries_, effort.compared, kAll),
      like_(store_.file(), effort.step_of_like),
      trigram_(kTrigram, "trigram", store_.file()),
      unicode61_(kUnicode61, "unicode61", store_.file()),
      library_(kLibrary, store_.folder(), kSmallBudget) {}

void StoreComparison::run(std::optional<double> bytes_per_message) {
  find_all_by_scanning();
  build_indexes(bytes_per_message);
  const std::vector<Contender*> contenders{&like_, &trigram_, &unicode61_, &library_};
  for (Contender* const contender : contenders) contender->open();
  ask_all();
  compare_matches();
  for (Contender* const contender : contenders) contender->close();
  measure_single_calls();
}

bool StoreComparison::has_chinese() const {
  return std::any_of(queries_.begin(), queries_.end(),
                     [](const SearchQuery& query) { return query.is_chinese(); });
}

// For people who wait: on standard error.
void StoreComparison::progress(const char* step) const {
  std::cerr << name_ << ": " << step << '\n';
}

void StoreComparison::find_all_by_scanning() {
  progress("scanning");
  LibraryContender scan(kScan, store_.folder(), kSmallBudget);
  scan.remove();
  scan.open();
  Report::verify(scan.search().progress().indexed == 0, "nothing is indexed");
  matches_.add(scan);
}

void StoreComparison::build_indexes(std::optional<double> bytes_per_message) {
  progress("building");
  LibraryContender at_once(std::string(kLibrary) + ", large budget", store_.folder(), kLargeBudget);
  const std::vector<Building> buildings =
      build({&trigram_, &unicode61_, &at_once, &library_}, effort_.rounds, store_.messages());
  print(buildings, name_, report_);
  if (!options_.quick) bound_building(name_, buildings, bytes_per_message, report_);
}

void StoreComparison::ask_all() {
  progress("asking");
  const std::size_t warm_up = queries_.size() / 10;
  const std::vector<Asked> asked =
      ask({&like_, &trigram_, &unicode61_, &library_}, queries_, warm_up);
  print(asked, name_, report_);
  if (!options_.quick) bound_asking(name_, asked.back(), report_);
}

void StoreComparison::compare_matches() {
  progress("comparing");
  for (Contender* const contender :
       std::vector<Contender*>{&like_, &trigram_, &unicode61_, &library_}) {
    matches_.add(*contender);
  }
  matches_.print(name_, report_);
  bound_results(name_, matches_, has_chinese(), report_);
}

void StoreComparison::measure_single_calls() {
  progress("single calls");
  const SingleCalls calls = measure_calls(store_, queries_, effort_.calls);
  print(calls, name_, report_);
  if (!options_.quick) bound_calls(name_, calls, report_);
}

void compare_on_logs(const Options& options, Report& report) {
  for (const Log& log : kLogs) {
    const std::string file = std::string(CORVAN_DATA_DIR) + "/" + log.file;
    if (!std::filesystem::exists(file)) {
      std::cout << "\nLEFT OUT: there is no log " << file
                << "; -DCORVAN_DATA_DIR=FOLDER names the folder of the logs\n";
      continue;
    }
    LoggedMessages messages(file);
    StoreComparison(log.file, messages, effort_on_log(options), options, report)
        .run(log.bytes_per_message);
  }
}

int run(const Options& options) {
  Report report("search", options);
  compare_on_logs(options, report);
  const Effort effort = effort_on_generated(options);
  GeneratedMessages messages(effort.messages);
  StoreComparison("generated, " + std::to_string(effort.messages) + " messages", messages, effort,
                  options, report)
      .run(std::nullopt);
  return report.finish();
}

}  // namespace

}  // namespace corvan_bench

int main(int argc, char** argv) {
  try {
    return corvan_bench::run(corvan_bench::parse_options(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 2;
  }
}
