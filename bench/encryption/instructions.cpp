#include "bench/encryption/instructions.h"

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
constexpr int kCountedReads = 5;  // rounds
constexpr std::array kCounted = {kPlain, kEncrypted, kCachedPlain, kCachedEncrypted};

// Runs these rounds of a read, or one of a save.
void run_rounds(const Work& work, Contender& contender, Feed& feed, int first, int count) {
  for (int round = first; round < first + (work.reads() ? count : 1); ++round) {
    run_work(work, contender.store(), feed, round, [](const auto& calls) { calls(); });
  }
}

// Uncounted runs warm SQLite's caches: as many reads as fetch all pages of a store that fits.
void count_work(const Work& work, Contender& contender, Feed& feed) {
  constexpr int kWarming = 50;
  run_rounds(work, contender, feed, 0, kWarming);
  if (work.reads()) {
    count_instructions(work.name,
                       [&] { run_rounds(work, contender, feed, kWarming, kCountedReads); });
    return;
  }
  run_work(work, contender.store(), feed, 0,
           [&work](const auto& calls) { count_instructions(work.name, calls); });
}

void count(Contender& contender, const Sizes& sizes) {
  Feed feed(sizes);
  feed.skip();
  contender.open();
  contender.close();
  count_instructions(kOpening, [&contender] { contender.open(); });
  for (const Work& work : works()) count_work(work, contender, feed);
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
    const int counted = work.reads() ? kCountedReads : work.messages;
    const auto units = static_cast<double>(work.calls * counted);
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
