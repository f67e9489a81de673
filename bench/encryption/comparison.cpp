#include "bench/encryption/comparison.h"

#include <algorithm>
#include <filesystem>

#include "bench/encryption/instructions.h"
#include "bench/peers/io_counts.h"
#include "bench/support/timing.h"

namespace corvan_bench {

namespace {

constexpr int kThousand = 1000;

// Each contender's times in each round, by contender.
using Times = std::map<std::string, std::vector<double>>;

void set_medians(Figures& figures, const std::string& row, const Times& times, double unit) {
  for (const auto& [contender, each] : times) figures.set(row, contender, median(each) / unit);
}

// A passphrase concerns only opening.
bool only_opens(const Contender& contender) {
  return contender.kind().key == KeyForm::kPassphrase;
}

void save_thousand(KeyedStore& store, Feed& feed, int messages_each) {
  feed.make(kThousand);
  if (messages_each > 1) {
    store.begin();
    store.save_batch(feed.made());
    store.commit();
    return;
  }
  for (const auto& message : feed.made()) store.save(*message);
}

}  // namespace

Comparison::Filled::Filled(const ContenderKind& kind, const Sizes& sizes)
    : contender(kind, folder.path()), feed(sizes) {
  contender.open();
  feed.fill(contender.store());
  contender.close();
}

Comparison::Comparison(const Sizes& sizes) : sizes_(sizes) {
  for (const ContenderKind& kind : contender_kinds()) {
    filled_.push_back(std::make_unique<Filled>(kind, sizes));
  }
}

Figures Comparison::count_instructions() const {
  std::map<std::string, std::string> files;
  for (const auto& each : filled_) files[each->contender.name()] = each->contender.file();
  return instructions_of(files, sizes_);
}

Figures Comparison::measure(int rounds) {
  Figures figures;
  measure_opening(rounds, figures);
  measure_files(figures);
  const auto passphrase = std::remove_if(
      filled_.begin(), filled_.end(), [](const auto& each) { return only_opens(each->contender); });
  filled_.erase(passphrase, filled_.end());
  for (const auto& each : filled_) each->contender.open();
  measure_works(rounds, figures);
  measure_writes(1, kBytesSingle, figures);
  measure_writes(kThousand, kBytesBatch, figures);
  for (const auto& each : filled_) each->contender.close();
  return figures;
}

void Comparison::measure_files(Figures& figures) const {
  for (const auto& each : filled_) {
    const Contender& contender = each->contender;
    if (only_opens(contender)) continue;
    const auto size = std::filesystem::file_size(contender.file());
    figures.set(kFileSize, contender.name(), static_cast<double>(size));
  }
}

void Comparison::measure_opening(int rounds, Figures& figures) {
  Times opening;
  Times closing;
  for (int round = 0; round < rounds; ++round) {
    for (const auto& each : filled_) {
      Contender& contender = each->contender;
      opening[contender.name()].push_back(time_of([&contender] { contender.open(); }));
      closing[contender.name()].push_back(time_of([&contender] { contender.close(); }));
    }
  }
  set_medians(figures, kOpening, opening, 1);
  set_medians(figures, kClosing, closing, 1);
}

void Comparison::measure_works(int rounds, Figures& figures) {
  for (const Work& work : works()) {
    Times times;
    for (int round = 0; round < work.rounds(rounds); ++round) {
      for (const auto& each : filled_) {
        std::vector<double>& of_contender = times[each->contender.name()];
        run_work(work, each->contender.store(), each->feed, round,
                 [&of_contender](const auto& calls) { of_contender.push_back(time_of(calls)); });
      }
    }
    set_medians(figures, work.name, times, work.calls * std::max(1, work.messages));
  }
}

// Including the pages that are still in the log.
void Comparison::measure_writes(int messages_each, const char* row, Figures& figures) {
  for (const auto& each : filled_) {
    KeyedStore& store = each->contender.store();
    store.run("pragma wal_checkpoint(truncate)");
    IoCounts counts;
    {
      const CountInto counting(counts);
      save_thousand(store, each->feed, messages_each);
      store.run("pragma wal_checkpoint(passive)");
    }
    // Calls of a module that does not use the program's functions are not counted.
    if (counts.bytes == 0) continue;
    figures.set(row, each->contender.name(), static_cast<double>(counts.bytes));
  }
}

}  // namespace corvan_bench
