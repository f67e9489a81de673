#include "bench/encryption/instructions.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <future>
#include <string_view>
#include <vector>

#include "bench/floor/callgrind.h"
#include "tests/support/temporary_folder.h"

namespace corvan_bench {

namespace {

using Counts = std::map<std::string, int64_t>;

constexpr std::string_view kCount = "--count";
constexpr std::array kCounted = {kPlain, kEncrypted, kCachedPlain, kCachedEncrypted};

// Uncounted runs warm SQLite's caches: as many reads as fetch all pages of a store that fits.
void count_works(Contender& contender, Traffic& traffic) {
  for (const Work& work : works()) {
    const int warming = work.messages > 0 ? 1 : 10;
    for (int round = 0; round < warming; ++round) {
      run_work(work, contender.store(), traffic, round, [](const auto& calls) { calls(); });
    }
    run_work(work, contender.store(), traffic, warming,
             [&work](const auto& calls) { count_instructions(work.name, calls); });
  }
}

void count(Contender& contender, const Sizes& sizes) {
  Traffic traffic(sizes);
  traffic.skip();
  contender.open();
  contender.close();
  count_instructions(kOpening, [&contender] { contender.open(); });
  count_works(contender, traffic);
  contender.close();
}

Counts counts_of(const std::string& name, const std::string& file, const Sizes& sizes) {
  const corvan_test::TemporaryFolder store;
  const corvan_test::TemporaryFolder dumps;
  std::filesystem::copy_file(file, store.file("corvan"));
  return run_under_callgrind(
      dumps.path(), {std::string(kCount), name, store.path(), std::to_string(sizes.messages),
                     std::to_string(sizes.conversations)});
}

void set_counts(Figures& figures, const std::string& contender, const Counts& counts) {
  figures.set(kOpening, contender, static_cast<double>(counts.at(kOpening)));
  for (const Work& work : works()) {
    const auto units = static_cast<double>(work.calls * std::max(1, work.messages));
    figures.set(work.name, contender, static_cast<double>(counts.at(work.name)) / units);
  }
}

}  // namespace

Figures instructions_of(const std::map<std::string, std::string>& files, const Sizes& sizes) {
  std::map<std::string, std::future<Counts>>
      running;  // side by side, which counts do not depend on
  for (const char* const name : kCounted) {
    running[name] = std::async(std::launch::async, counts_of, name, files.at(name), sizes);
  }
  Figures figures;
  for (const char* const name : kCounted) set_counts(figures, name, running[name].get());
  return figures;
}

bool count_if_asked(int argc, char** argv) {
  if (argc != 6 || argv[1] != kCount) return false;
  Contender contender(kind_named(argv[2]), argv[3]);
  count(contender, {std::stoi(argv[4]), std::stoi(argv[5])});
  return true;
}

}  // namespace corvan_bench
