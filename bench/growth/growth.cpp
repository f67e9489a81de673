// How the time of each operation grows with what is stored.

#include <algorithm>
#include <iostream>
#include <map>
#include <memory>

#include "base/log_message.h"
#include "bench/growth/filled_store.h"
#include "bench/growth/operations.h"
#include "bench/support/options.h"
#include "bench/support/report.h"
#include "bench/support/timing.h"

namespace {

using namespace corvan_bench;

constexpr double kMostForReads = 1.5;
constexpr double kMostForWrites = 2.5;  // deeper trees, random server uids
constexpr double kMostForOpening = 1.5;

// The median of a few milliseconds of calls, after some to warm up. `before` prepares each call,
// `after` follows it.
double time_of_operation(
    const std::function<void()>& run, const std::function<void()>& before = [] {},
    const std::function<void()>& after = [] {}) {
  std::vector<double> times;
  double spent = 0;
  for (int i = 0; times.size() < 5 || (spent < 4000 && times.size() < 200); ++i) {
    before();
    const double time = time_of(run);
    after();
    if (i < 3) continue;
    times.push_back(time);
    spent += time;
  }
  return median(times);
}

// The smallest median of several passes over all sizes, by operation and size.
class Times {
 public:
  explicit Times(std::size_t sizes) : sizes_(sizes) {}

  void add(const std::string& operation, std::size_t size, double time) {
    auto [found, is_new] = times_.try_emplace(operation, sizes_, 0.0);
    if (is_new) order_.push_back(operation);
    double& best = found->second[size];
    best = best == 0 ? time : std::min(best, time);
  }

  const std::vector<std::string>& operations() const { return order_; }
  const std::vector<double>& of(const std::string& operation) const { return times_.at(operation); }

 private:
  std::size_t sizes_;
  std::map<std::string, std::vector<double>> times_;
  std::vector<std::string> order_;
};

class Growth {
 public:
  explicit Growth(const Options& options) : options_(options), report_("growth", options) {
    std::vector<std::pair<int64_t, int>> sizes = {{10000, 1000}, {100000, 10000}};
    if (options.quick) sizes = {{5000, 500}, {20000, 2000}};
    if (!options.quick) sizes.emplace_back(1000000, 100000);
    if (options.full) sizes.emplace_back(10000000, 100000);
    for (const auto& [messages, conversations] : sizes) {
      std::cerr << "filling a store of " << messages << " messages\n";
      stores_.push_back(std::make_unique<FilledStore>(messages, conversations));
    }
  }

  int run() {
    Times read(stores_.size());
    Times sum(stores_.size());
    Times write(stores_.size());
    Times opening(stores_.size() + 1);
    BenchStore empty;
    empty.open();
    empty.close();
    for (int pass = 0; pass < (options_.quick ? 1 : 3); ++pass) {
      opening.add("opening", 0, time_of_opening(empty));
      for (std::size_t i = 0; i < stores_.size(); ++i) {
        FilledStore& filled = *stores_[i];
        opening.add("opening", i + 1, time_of_opening(filled.store()));
        filled.store().open();
        for (const Target* target : {&filled.largest(), &filled.tiny()}) {
          measure(reads(*target), " [" + target->name + "]", i, read);
        }
        measure(store_reads(filled), "", i, read);
        for (const Sum& each : sums()) measure({each.operation}, "", i, sum);
        filled.store().close();
      }
    }
    // Measured before the writes change the conversations.
    const std::vector<Report::Row> growing = measure_exceptions();
    for (int pass = 0; pass < (options_.quick ? 1 : 3); ++pass) {
      for (std::size_t i = 0; i < stores_.size(); ++i) {
        FilledStore& filled = *stores_[i];
        open_without_syncs(filled);
        for (const Target* target : {&filled.largest(), &filled.tiny()}) {
          Corvan::CvDbSingleton::get_instance()->update_message_receipt_status(
              target->session_id, target->session_type, int64_t{1} << 60);
          measure_writes(writes(filled, *target), " [" + target->name + "]", i, write);
        }
        filled.store().close();
      }
    }
    tell_opening(opening);
    tell("Reads, us", read, kMostForReads);
    tell("Writes of a fixed number of rows, each in a transaction, without syncs, us", write,
         kMostForWrites);
    tell_sums(sum);
    report_.table("What grows, at " + std::to_string(stores_[bounded()]->messages()) + " messages",
                  {"operation", "reason", "with each", "of these", "us", "ns each", "at most"},
                  growing);
    check_each("what grows", growing);
    return report_.finish();
  }

 private:
  static void measure(const std::vector<Operation>& operations, const std::string& suffix,
                      std::size_t size, Times& times) {
    for (const Operation& each : operations) {
      times.add(each.name + suffix, size, time_of_operation(each.run));
    }
  }

  static void measure_writes(const std::vector<Operation>& operations, const std::string& suffix,
                             std::size_t size, Times& times) {
    // Inside this transaction, an operation with its own transaction would fail to begin it, and
    // would commit this one.
    Corvan::CvDbSingleton& store = *Corvan::CvDbSingleton::get_instance();
    for (const Operation& each : operations) {
      times.add(each.name + suffix, size,
                time_of_operation(
                    each.run, [&store] { store.start_transaction(); },
                    [&store] { store.execute_none_query("rollback transaction"); }));
    }
  }

  // Waiting for the disk at each commit would hide the rest.
  static void open_without_syncs(FilledStore& filled) {
    filled.store().open();
    filled.store()->execute_none_query("pragma synchronous=off");
  }

  static double time_of_opening(BenchStore& store) {
    std::vector<double> times;
    for (int i = 0; i < 15; ++i) {
      times.push_back(time_of([&] { store.open(); }));
      store.close();
    }
    return median(times);
  }

  std::vector<std::string> columns(const std::string& first) const {
    std::vector<std::string> names = {first};
    for (const auto& each : stores_) names.push_back(std::to_string(each->messages()));
    return names;
  }

  // The index of the size that the bounds apply to: a million messages, or the largest if all are
  // smaller.
  std::size_t bounded() const { return std::min<std::size_t>(stores_.size() - 1, 2); }

  void check(const std::string& what, double ratio, double at_most) {
    if (!options_.quick) report_.bound(what, ratio, at_most);
  }

  void tell(const std::string& title, const Times& times, double at_most) {
    std::vector<std::string> names = columns("operation");
    names.emplace_back("growth");
    std::vector<Report::Row> rows;
    double worst = 0;
    std::string worst_name;
    for (const std::string& operation : times.operations()) {
      const std::vector<double>& each = times.of(operation);
      const double growth = each[bounded()] / each[0];
      Report::Row row = {operation};
      row.insert(row.end(), each.begin(), each.end());
      row.emplace_back(growth);
      rows.push_back(std::move(row));
      if (growth > worst) {
        worst = growth;
        worst_name = operation;
      }
    }
    report_.table(title, names, rows);
    check("most growth, of " + worst_name, worst, at_most);
  }

  void tell_opening(const Times& times) {
    std::vector<std::string> names = columns("");
    names.insert(names.begin() + 1, "empty");
    const std::vector<double>& each = times.of("opening");
    Report::Row row = {"opening"};
    row.insert(row.end(), each.begin(), each.end());
    report_.table("Opening a store, us", names, {row});
    check("opening, to an empty store", each[bounded() + 1] / each[0], kMostForOpening);
  }

  void tell_sums(const Times& times) {
    std::vector<std::string> names = columns("operation");
    names.emplace_back("ns a conversation");
    names.emplace_back("at most");
    std::vector<Report::Row> rows;
    for (const Sum& sum : sums()) {
      const std::vector<double>& each = times.of(sum.operation.name);
      Report::Row row = {sum.operation.name};
      row.insert(row.end(), each.begin(), each.end());
      row.emplace_back(1000 * each[bounded()] /
                       static_cast<double>(stores_[bounded()]->conversations()));
      row.emplace_back(sum.at_most);
      rows.push_back(std::move(row));
    }
    report_.table("Sums over all conversations, us", names, rows);
    check_each("sums", rows);
  }

  // Checks rows that end with a measured number and its bound; reports the row that is closest to
  // its bound.
  void check_each(const std::string& what, const std::vector<Report::Row>& rows) {
    double worst = 0;
    std::string worst_name;
    for (const Report::Row& row : rows) {
      const double part = row[row.size() - 2].get<double>() / row.back().get<double>();
      if (part <= worst) continue;
      worst = part;
      worst_name = row.front().get<std::string>();
    }
    check(what + ", part of what is allowed, of " + worst_name, worst, 1);
  }

  std::vector<Report::Row> measure_exceptions() {
    FilledStore& filled = *stores_[bounded()];
    std::vector<Report::Row> rows;
    open_without_syncs(filled);
    for (const Exception& each : exceptions(filled)) {
      const double time = time_of_operation(each.run);
      rows.push_back({each.operation, each.reason, each.unit, static_cast<double>(each.count), time,
                      1000 * time / static_cast<double>(each.count), each.at_most});
    }
    filled.store().close();
    return rows;
  }

  Options options_;
  Report report_;
  std::vector<std::unique_ptr<FilledStore>> stores_;
};

}  // namespace

int main(int argc, char** argv) {
  // Do not log the failure to begin a transaction inside another.
  cvrtc::LogMessage::SetMinSeverity(cvrtc::LS_NONE);
  try {
    return Growth(parse_options(argc, argv)).run();
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 2;
  }
}
