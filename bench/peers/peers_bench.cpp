// Compares the project's store with alternatives: the same work, the same durability, on the same
// file system, in one run. The contenders take turns at each piece of work, so that disturbances
// affect all of them, and their results are compared. Stores are in the folder named by TMPDIR,
// which must be on a disk.

#include <linux/magic.h>
#include <sys/vfs.h>

#include <algorithm>
#include <cmath>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <optional>
#include <stdexcept>

#include "bench/peers/bounds.h"
#include "bench/peers/contestant.h"
#include "bench/peers/disk_probe.h"
#include "bench/peers/same.h"
#include "bench/peers/workload.h"
#include "bench/support/report.h"
#include "bench/support/timing.h"

namespace corvan_bench {

namespace {

struct Sizes {
  int64_t messages = 100'000;
  int32_t conversations = 2'000;
  int64_t singles = 1'000;  // messages saved in one transaction each
  double limit = 20e6;      // microseconds until a batch replay is stopped
  int reads = 100;          // rounds of a read
  int openings = 20;        // rounds of an opening
  int32_t marked = 40;      // conversations marked as read
  int32_t removals = 10;    // deletions
};

constexpr std::size_t kBatch = 1000;  // deliveries per transaction
constexpr int32_t kPage = 20;         // entries, or messages
constexpr int32_t kPinned = 5;        // conversations
constexpr int64_t kLargestMentions = 20;
constexpr int32_t kRemovedAtOnce = 100;

Sizes sizes_for(const Options& options) {
  Sizes sizes;
  if (options.quick) {
    sizes.messages = 5'000;
    sizes.conversations = 250;
    sizes.singles = 100;
    sizes.reads = 20;
    sizes.openings = 3;
    sizes.marked = 10;
    sizes.removals = 1;
  }
  return sizes;
}

double quantile(std::vector<double> values, double part) {
  const auto at =
      values.begin() + static_cast<std::ptrdiff_t>(part * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

double megabytes_in(const std::string& folder) {
  double bytes = 0;
  for (const auto& file : std::filesystem::directory_iterator(folder)) {
    bytes += static_cast<double>(file.file_size());
  }
  return bytes / 1e6;
}

void require_disk(const std::string& folder) {
  struct statfs found = {};
  Report::verify(statfs(folder.c_str(), &found) == 0, "the kind of " + folder);
  if (found.f_type == TMPFS_MAGIC) {
    throw std::runtime_error(folder + " is in memory: let TMPDIR name a folder on a disk");
  }
}

// The bytes that this process has passed to the kernel, as counted by the kernel; no value if it
// does not report them.
std::optional<int64_t> bytes_by_kernel() {
  std::ifstream io("/proc/self/io");
  std::string name;
  int64_t value = 0;
  while (io >> name >> value) {
    if (name == "wchar:") return value;
  }
  return std::nullopt;
}

// Saves deliveries, in one transaction or without one.
void save(Store& store, const Delivery* begin, const Delivery* end, bool in_transaction) {
  if (in_transaction) store.begin();
  for (const Delivery* each = begin; each != end; ++each) {
    if (store.save(each->message, each->mention) != each->expected_id) {
      throw std::runtime_error("wrong result: the id of a saved message");
    }
  }
  if (in_transaction) store.commit();
}

class Comparison {
 public:
  explicit Comparison(const Options& options)
      : report_("peers", options),
        quick_(options.quick),
        sizes_(sizes_for(options)),
        workload_(sizes_.messages, sizes_.conversations, kLargestMentions) {}

  int run();

 private:
  void introduce();
  void replay_in_batches();
  void save_message_being_sent();
  void measure_files();
  void measure_opening();
  void pin_conversations();
  void measure_reads();
  void measure_marking_read();
  void measure_removing();
  void replay_one_by_one();
  void replay_without_transactions();
  void compare_contents();
  void print_results();

  // Adds the new messages among the deliveries from index `from` on.
  static void catch_up(Store& store, const std::vector<Delivery>& deliveries, std::size_t from);

  // Saves each message in its own transaction, or, for the project's stores, optionally without
  // one. Returns the times of each contestant for each delivery.
  std::vector<std::vector<double>> save_singly(Traffic& traffic, bool corvan_begins);

  // Calls `operation` with each contestant's store and returns the result, which must be equal for
  // all.
  template <typename Operation>
  auto agreed(const std::string& what, Operation&& operation);
  // As agreed(), but timed in rounds and added as a row.
  template <typename Operation>
  auto measure_read(const std::string& what, Operation&& operation);
  // Times an operation that depends on the round, counted from 0.
  template <typename Operation>
  void measure_write(const std::string& what, int32_t rounds, Operation&& operation);

  // Calls `operation` with each contestant's index, forwards in even rounds and backwards in odd
  // ones, so that no contestant always follows the same other one.
  template <typename Operation>
  void in_turn(std::size_t round, Operation&& operation) const {
    const std::size_t last = all_.size() - 1;
    for (std::size_t i = 0; i <= last; ++i) operation(round % 2 == 0 ? i : last - i);
  }

  bool is_ours(std::size_t i) const { return all_[i]->contender.kind == Contender::kOurs; }

  static Report::Row row_of(const std::string& what, const std::vector<double>& values) {
    Report::Row row{what};
    row.insert(row.end(), values.begin(), values.end());
    return row;
  }
  void add_row(const std::string& what, const std::vector<double>& values) {
    work_.push_back(row_of(what, values));
    undisturbed_.push_back(work_.back());
  }
  void add_medians(const std::string& what, const std::vector<std::vector<double>>& times) {
    std::vector<double> medians;
    std::vector<double> quartiles;
    for (const std::vector<double>& each : times) {
      medians.push_back(median(each));
      quartiles.push_back(lower_quartile(each));
    }
    work_.push_back(row_of(what, medians));
    undisturbed_.push_back(row_of(what, quartiles));
  }

  // Adds a row with the writes of a contestant per operation.
  void add_writing(const std::string& what, const std::string& name, const IoCounts& counts,
                   double operations) {
    writing_.push_back({what, name, static_cast<double>(counts.commits) / operations,
                        static_cast<double>(counts.syncs) / operations,
                        static_cast<double>(counts.bytes) / operations});
  }
  void add_writing(const std::string& what, Traffic& traffic, double operations) {
    for (std::size_t i = 0; i < all_.size(); ++i) {
      add_writing(what, all_[i]->contender.name, traffic.of(i), operations);
    }
  }

  Report report_;
  const bool quick_;
  const Sizes sizes_;
  Workload workload_;
  Contestants all_;  // the project's stores first
  DiskProbe disk_;   // measured between the replays with one message per transaction

  // Rows of the tables.
  std::vector<Report::Row> work_;
  std::vector<Report::Row> undisturbed_;  // the work, with lower quartiles instead of medians
  std::vector<Report::Row> writing_;
  std::vector<Report::Row> files_;
};

template <typename Operation>
auto Comparison::agreed(const std::string& what, Operation&& operation) {
  auto first = operation(*all_.front()->store);
  for (const auto& each : all_) {
    Report::verify(same(operation(*each->store), first),
                   what + ", in " + each->contender.name + " and " + all_.front()->contender.name);
  }
  return first;
}

template <typename Operation>
auto Comparison::measure_read(const std::string& what, Operation&& operation) {
  auto expected = agreed(what, operation);
  std::vector<std::vector<double>> times(all_.size());
  for (int round = 0; round < sizes_.reads; ++round) {
    in_turn(static_cast<std::size_t>(round), [&](std::size_t i) {
      Store& store = *all_[i]->store;
      // First without timing: the previous contestant has displaced the processor's caches.
      auto result = operation(store);
      times[i].push_back(time_of([&] { result = operation(store); }));
      Report::verify(same(result, expected), what);
    });
  }
  add_medians(what, times);
  return expected;
}

template <typename Operation>
void Comparison::measure_write(const std::string& what, int32_t rounds, Operation&& operation) {
  std::vector<std::vector<double>> times(all_.size());
  Traffic traffic(all_.size());
  for (int32_t round = 0; round < rounds; ++round) {
    in_turn(static_cast<std::size_t>(round), [&](std::size_t i) {
      const CountInto scope(traffic.of(i));
      times[i].push_back(time_of([&] { operation(*all_[i]->store, round); }));
    });
  }
  traffic.add_threads(all_);
  add_medians(what + ": microseconds", times);
  add_writing(what, traffic, rounds);
}

int Comparison::run() {
  introduce();
  replay_in_batches();
  save_message_being_sent();
  measure_files();
  measure_opening();
  pin_conversations();
  measure_reads();
  measure_marking_read();
  measure_removing();
  replay_one_by_one();
  replay_without_transactions();
  compare_contents();
  print_results();
  return report_.finish();
}

void Comparison::introduce() {
  std::vector<Report::Row> rows;
  for (Contender& contender : contenders()) {
    rows.push_back({contender.name, contender.library, contender.settings});
    all_.push_back(std::make_unique<Contestant>(std::move(contender)));
    if (!quick_) require_disk(all_.back()->folder.path());
  }
  for (const std::string& name : left_out()) {
    rows.push_back({name, "LEFT OUT", "not installed where this benchmark was configured"});
  }
  report_.table("Contenders", {"contender", "library", "settings"}, rows);
}

void Comparison::replay_in_batches() {
  const std::vector<Delivery> deliveries = workload_.next(sizes_.messages);
  std::vector<double> times(all_.size());
  std::vector<std::size_t> replayed(all_.size());
  Traffic traffic(all_.size());
  const std::optional<int64_t> kernel_before = bytes_by_kernel();

  for (std::size_t from = 0; from < deliveries.size(); from += kBatch) {
    const std::size_t to = std::min(from + kBatch, deliveries.size());
    in_turn(from / kBatch, [&](std::size_t i) {
      if (times[i] > sizes_.limit) return;
      const CountInto scope(traffic.of(i));
      times[i] += time_of(
          [&] { save(*all_[i]->store, deliveries.data() + from, deliveries.data() + to, true); });
      replayed[i] = to;
    });
  }
  traffic.add_threads(all_);
  const std::optional<int64_t> kernel_after = bytes_by_kernel();

  double counted_bytes = 0;
  std::vector<double> rates;
  for (std::size_t i = 0; i < all_.size(); ++i) {
    const auto messages = static_cast<double>(replayed[i]);
    rates.push_back(messages / times[i] * 1e6);
    counted_bytes += static_cast<double>(traffic.of(i).bytes);
    add_writing("a transaction of 1,000 messages", all_[i]->contender.name, traffic.of(i),
                messages / kBatch);
    if (replayed[i] < deliveries.size()) catch_up(*all_[i]->store, deliveries, replayed[i]);
  }
  if (kernel_before && kernel_after) {
    const auto kernel_bytes = static_cast<double>(*kernel_after - *kernel_before);
    Report::verify(std::fabs(counted_bytes - kernel_bytes) < 0.01 * kernel_bytes,
                   "the bytes that the stores write, against the kernel's count");
  }

  add_row("replay, 1,000 messages a transaction: messages/s", rates);
  const std::string limit = std::to_string(static_cast<int>(sizes_.limit / 1e6));
  add_row("  messages replayed before it was stopped after " + limit + " s",
          {replayed.begin(), replayed.end()});
}

void Comparison::catch_up(Store& store, const std::vector<Delivery>& deliveries, std::size_t from) {
  store.begin();
  for (std::size_t i = from; i < deliveries.size(); ++i) {
    const Delivery& each = deliveries[i];
    if (each.expected_id < 0) continue;
    Report::verify(store.add(each.message, each.mention) == each.expected_id, "an added message");
  }
  store.commit();
}

void Comparison::save_message_being_sent() {
  const Delivery delivery = workload_.being_sent();
  for (const auto& each : all_) save(*each->store, &delivery, &delivery + 1, true);
}

void Comparison::measure_files() {
  for (const auto& each : all_) {
    const double open = megabytes_in(each->folder.path());
    each->store->close();
    files_.push_back({each->contender.name, open, megabytes_in(each->folder.path())});
  }
}

void Comparison::measure_opening() {
  const auto open_all = [this] {
    for (const auto& each : all_) each->store->open(each->folder.path());
  };
  const auto newest = [](Store& store) { return store.first_page(1); };
  open_all();
  const std::vector<SessionInfo> page = agreed("the newest conversation", newest);
  Report::verify(page.at(0).message_.sent_status_ == kFailed, "a message that was being sent");
  for (const auto& each : all_) each->store->close();

  std::vector<std::function<void()>> openings;
  for (const auto& each : all_) {
    openings.emplace_back([contestant = each.get()] {
      contestant->store->open(contestant->folder.path());
      contestant->store->close();
    });
  }
  add_row("opening and closing: microseconds", alternating_medians(sizes_.openings, openings));
  open_all();
}

void Comparison::pin_conversations() {
  for (int32_t i = 1; i <= kPinned; ++i) {
    for (const auto& each : all_) each->store->pin(workload_.name(i * 7));
  }
}

void Comparison::measure_reads() {
  const std::vector<SessionInfo> list =
      measure_read("first page of the conversation list: microseconds",
                   [](Store& store) { return store.first_page(kPage); });
  Report::verify(list.size() == kPage && list[kPinned - 1].is_top_ == 1 &&
                     list[kPinned].is_top_ == 0 && !list[kPinned].message_.content_.empty(),
                 "the first page");

  const ConversationName largest = workload_.name(Workload::kLargest);
  const std::vector<int64_t>& ids = workload_.ids(Workload::kLargest);
  const int64_t middle = ids[ids.size() / 2];
  const std::vector<MessageResponse> history =
      measure_read("20 messages of history, deep in the largest conversation: microseconds",
                   [&](Store& store) { return store.history(largest, middle, kPage); });
  Report::verify(history.size() == kPage && history[0].msg_id_ == ids[ids.size() / 2 - 1],
                 "a page of history");

  const int64_t unread = measure_read("unread messages in all: microseconds",
                                      [](Store& store) { return store.total_unread(); });
  Report::verify(unread == workload_.unread(), "the unread messages in all");

  for (const auto& each : all_) each->store->prepare_mentions(largest);
  const std::vector<MessageResponse> mentions =
      measure_read("ten newest mentions of the largest conversation: microseconds",
                   [&](Store& store) { return store.mentions(largest); });
  Report::verify(mentions.size() == 10, "the mentions");
}

void Comparison::measure_marking_read() {
  // Conversations of the upper half; measure_removing() uses those of the lower half.
  measure_write("marking a conversation read", sizes_.marked, [&](Store& store, int32_t round) {
    store.mark_read(workload_.name(sizes_.conversations / 2 + round));
  });
  agreed("the unread messages after marking", [](Store& store) { return store.total_unread(); });
}

void Comparison::measure_removing() {
  // One message from each conversation; from every fifth, the newest.
  std::vector<std::vector<int64_t>> rounds(static_cast<std::size_t>(sizes_.removals));
  int32_t conversation = Workload::kLargest;
  for (std::vector<int64_t>& removed : rounds) {
    for (int32_t i = 0; i < kRemovedAtOnce; ++i) {
      const std::vector<int64_t>& ids = workload_.ids(++conversation);
      removed.push_back(i % 5 == 0 ? ids.back() : ids[ids.size() / 2]);
    }
  }
  measure_write("deleting 100 messages by id", sizes_.removals, [&](Store& store, int32_t round) {
    store.remove(rounds[static_cast<std::size_t>(round)]);
  });
  agreed("the unread messages after deleting", [](Store& store) { return store.total_unread(); });
}

void Comparison::replay_one_by_one() {
  Traffic traffic(all_.size());
  const std::vector<std::vector<double>> times = save_singly(traffic, true);
  add_medians("replay, one message a transaction: microseconds a message", times);
  std::vector<double> slow;
  slow.reserve(times.size());
  for (const std::vector<double>& each : times) slow.push_back(quantile(each, 0.99));
  add_row("  99th percentile of the same", slow);
  add_writing("a transaction of one message", traffic, static_cast<double>(sizes_.singles));
}

void Comparison::replay_without_transactions() {
  Traffic traffic(all_.size());
  add_medians("  the same, Corvan without a transaction around it", save_singly(traffic, false));
  for (std::size_t i = 0; i < all_.size() && is_ours(i); ++i) {
    add_writing("one message without a transaction", all_[i]->contender.name, traffic.of(i),
                static_cast<double>(sizes_.singles));
  }
}

std::vector<std::vector<double>> Comparison::save_singly(Traffic& traffic, bool corvan_begins) {
  std::vector<std::vector<double>> times(all_.size());
  std::size_t round = 0;
  for (const Delivery& delivery : workload_.next(sizes_.singles)) {
    disk_.measure();
    in_turn(++round, [&](std::size_t i) {
      const CountInto scope(traffic.of(i));
      const bool begins = !is_ours(i) || corvan_begins;
      times[i].push_back(time_of([&] { save(*all_[i]->store, &delivery, &delivery + 1, begins); }));
    });
  }
  traffic.add_threads(all_);
  return times;
}

void Comparison::compare_contents() {
  agreed("the unread messages at the end", [](Store& store) { return store.total_unread(); });
  const std::vector<SessionInfo> list = agreed("the conversations at the end", [&](Store& store) {
    return store.first_page(sizes_.conversations + 1);
  });
  Report::verify(list.size() == static_cast<std::size_t>(sizes_.conversations),
                 "the number of conversations");
  const int64_t newest = workload_.ids(Workload::kLargest).back();
  agreed("the history at the end", [&](Store& store) {
    return store.history(workload_.name(Workload::kLargest), newest,
                         static_cast<int32_t>(sizes_.messages));
  });
}

void Comparison::print_results() {
  std::vector<std::string> columns{"work"};
  for (const auto& each : all_) columns.push_back(each->contender.name);
  const std::string store = std::to_string(sizes_.messages) + " messages in " +
                            std::to_string(sizes_.conversations) + " conversations";
  report_.table("Work on a store of " + store +
                    "; of messages/s more is better, of microseconds (medians) less",
                columns, work_);
  report_.table("The disk meanwhile: microseconds to append 4 KiB and sync them",
                {"median", "99th percentile"},
                {{median(disk_.times()), quantile(disk_.times(), 0.99)}});
  report_.table("Written by each", {"work", "contender", "commits", "syncs", "bytes"}, writing_);
  report_.table("Files after the replay of " + store + ", in megabytes",
                {"contender", "while open", "closed"}, files_);
  if (!quick_) bound_cached(columns, undisturbed_, report_);
}

}  // namespace

}  // namespace corvan_bench

int main(int argc, char** argv) {
  try {
    corvan_bench::count_sqlite_commits();
    corvan_bench::IoCounts not_the_stores;
    const corvan_bench::CountInto scope(not_the_stores);
    return corvan_bench::Comparison(corvan_bench::parse_options(argc, argv)).run();
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 2;
  }
}
