// Measures the cost and the benefit of each index, with stores that differ in one index and are
// filled side by side.

#include <algorithm>
#include <exception>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "bench/support/bench_store.h"
#include "bench/support/messages.h"
#include "bench/support/options.h"
#include "bench/support/report.h"
#include "bench/support/timing.h"

namespace {

using namespace corvan_bench;
using Corvan::CvDbSingleton;

// The minimal set of indexes, as the baseline of the costs.
const std::map<std::string, std::string> kPlainSet = {
    {"t_message_sending", ""},
    {"t_message_session",
     "create index t_message_session on t_message(session_id,session_type,sent_time)"},
    {"t_message_session_type", ""},
    {"t_message_uncovered", ""},
    {"t_message_unread", ""},
    {"t_session_latest_id", "create index t_session_latest_id on t_session(latest_id)"},
    {"t_session_list",
     "create index t_session_list on t_session(session_type,is_top,session_time)"},
};

// An index that is removed from the schema's set, or replaced by the plain one, and an operation
// that needs it.
struct Variant {
  std::string index;
  std::string operation;
  std::function<void(CvDbSingleton&)> run;
};

std::vector<Variant> variants() {
  const std::string id = MessageStream::largest_id();
  const Corvan::SessionType type = MessageStream::kLargestType;
  return {
      {"t_message_sending", "opening: clear_sendstatus",
       [](CvDbSingleton& s) { s.clear_sendstatus(true); }},
      {"t_message_session", "a page of a kind of message that is not there",
       [=](CvDbSingleton& s) {
         std::vector<Corvan::MessageResponse> page;
         s.get_history_message_by_object_name(id, type, {"CV:FileMsg"}, 0, 20, page, true);
         Report::verify(page.empty(), "no message of that kind");
       }},
      {"t_message_session_type", "get_max_message_id",
       [=](CvDbSingleton& s) {
         Report::verify(s.get_max_message_id(type, id, 2) > 0, "a newest message");
       }},
      {"t_message_uncovered", "a receipt that comes again",
       [=](CvDbSingleton& s) {
         Report::verify(s.update_message_receipt_status(id, type, int64_t{1} << 60), "a receipt");
       }},
      {"t_message_unread", "get_mention_message",
       [=](CvDbSingleton& s) {
         std::vector<Corvan::MessageResponse> list;
         Report::verify(!s.get_mention_message(id, type, list), "no mentions");
       }},
      {"t_session_latest_id", "get_cate_unread_count of two kinds",
       [](CvDbSingleton& s) {
         int32_t unread = 0;
         s.get_cate_unread_count({Corvan::CV_PRIVATE, Corvan::CV_GROUP}, unread, true);
         Report::verify(unread > 0, "unread messages");
       }},
      {"t_session_list", "load_session of two kinds, past the pinned ones",
       [](CvDbSingleton& s) {
         std::vector<Corvan::Session> page;
         std::string kinds = "1,2";
         s.load_session(page, kinds, int64_t{1} << 60, 20, false);
         Report::verify(page.size() == 20, "a full page");
       }},
  };
}

struct Sizes {
  int rounds;
  int messages;  // per round and kind of save
  int conversations;
};

// A client fetches history in pages of one conversation and saves each page as a batch. Live
// messages arrive in packets, which are large after a reconnect, with a few messages of each
// conversation; each message is a single save.
constexpr int kHistoryPage = 50;
constexpr int kBatch = 1000;
constexpr int kBurst = 4;
constexpr int kPacket = 10;
constexpr int kLargePacket = 1000;

// One store, with the times of its saves per round, in microseconds per message.
class Filled {
 public:
  Filled(const std::map<std::string, std::string>& replaced, const Sizes& sizes)
      : sizes_(sizes),
        fetched_(7, sizes.conversations, kHistoryPage),
        live_(8, sizes.conversations, kBurst) {
    store_.open();
    store_.close();
    store_.replace_indexes(replaced);
  }

  void round() {
    store_.open();
    save_batches();
    save_singly(kPacket, packets_);
    save_singly(kLargePacket, large_packets_);
    store_.close();
  }

  const BenchStore& store() const { return store_; }
  BenchStore& store() { return store_; }
  const std::vector<double>& batches() const { return batches_; }
  const std::vector<double>& packets() const { return packets_; }
  const std::vector<double>& large_packets() const { return large_packets_; }
  double bytes() const {
    return store_.number("select sum(pgsize) from dbstat") /
           store_.number("select count(*) from t_message");
  }
  double bytes_of(const std::string& index) const {
    return store_.number("select sum(pgsize) from dbstat where name='" + index + "'") /
           store_.number("select count(*) from t_message");
  }

 private:
  void save_batches() {
    std::vector<std::vector<std::unique_ptr<Corvan::MessageResponse>>> batches;
    for (int left = sizes_.messages; left > 0; left -= kBatch) {
      batches.push_back(fetched_.batch(std::min(left, kBatch)));
    }
    note_time(batches_, [&] {
      for (auto& batch : batches) {
        store_->start_transaction();
        store_->save_message(batch);
        Report::verify(store_->commit_transaction(), "a commit");
      }
    });
  }

  void save_singly(int in_transaction, std::vector<double>& times) {
    std::vector<Corvan::MessageResponse> messages;
    for (int i = 0; i < sizes_.messages; ++i) messages.push_back(live_.next());
    note_time(times, [&] {
      int in_hand = 0;
      for (const Corvan::MessageResponse& message : messages) {
        if (in_hand++ == 0) store_->start_transaction();
        Report::verify(save_live(message) > 0, "a save");
        if (in_hand < in_transaction && &message != &messages.back()) continue;
        Report::verify(store_->commit_transaction(), "a commit");
        in_hand = 0;
      }
    });
  }

  // Notes the time per message, including the checkpoint of the log.
  void note_time(std::vector<double>& times, const std::function<void()>& save) {
    const double time = time_of([&] {
      save();
      store_->execute_none_query("pragma wal_checkpoint(restart)");
    });
    times.push_back(time / sizes_.messages);
  }

  Sizes sizes_;
  BenchStore store_;
  MessageStream fetched_;
  MessageStream live_;
  std::vector<double> batches_;
  std::vector<double> packets_;
  std::vector<double> large_packets_;
};

// The median of the ratios per round: a disturbance affects both sides of a ratio.
double median_ratio(const std::vector<double>& a, const std::vector<double>& b) {
  std::vector<double> ratios;
  for (std::size_t i = 0; i < a.size(); ++i) ratios.push_back(a[i] / b[i]);
  return median(ratios);
}

double time_of_operation(BenchStore& store, const std::function<void(CvDbSingleton&)>& run) {
  store.open();
  std::vector<double> times;
  for (int i = 0; i < 15; ++i) {
    times.push_back(time_of([&] { run(*CvDbSingleton::get_instance()); }));
  }
  store.close();
  return median(times);
}

int measure(const Options& options) {
  const Sizes sizes = options.quick ? Sizes{3, 500, 100} : Sizes{15, 3000, 2000};
  Filled plain(kPlainSet, sizes);
  Filled whole({}, sizes);
  std::vector<std::unique_ptr<Filled>> without;
  for (const Variant& variant : variants()) {
    without.push_back(std::make_unique<Filled>(
        std::map<std::string, std::string>{*kPlainSet.find(variant.index)}, sizes));
  }
  std::vector<Filled*> all = {&plain, &whole};
  for (const auto& each : without) all.push_back(each.get());
  for (int round = 0; round < sizes.rounds; ++round) {
    // Each round begins with another store, so that no store always follows the same one.
    std::rotate(all.begin(), all.begin() + 1, all.end());
    for (Filled* each : all) each->round();
  }

  Report report("index_cost", options);
  const double batches = median_ratio(plain.batches(), whole.batches());
  const double packets = median_ratio(plain.packets(), whole.packets());
  const double large_packets = median_ratio(plain.large_packets(), whole.large_packets());
  report.table(
      "Saves under the plain set of indexes and under the schema's, us or bytes a message",
      {"saves", "plain", "schema", "rate, schema to plain"},
      {{"batches of 1,000", median(plain.batches()), median(whole.batches()), batches},
       {"single, 10 a transaction", median(plain.packets()), median(whole.packets()), packets},
       {"single, 1,000 a transaction", median(plain.large_packets()), median(whole.large_packets()),
        large_packets},
       {"size of the file", plain.bytes(), whole.bytes(), nullptr}});
  // Measured before any operation changes a store.
  const double whole_bytes = whole.bytes();
  std::vector<double> saved_bytes;
  for (const auto& each : without) saved_bytes.push_back(whole_bytes - each->bytes());
  if (!options.quick) {
    report.bound_below("rate of batches, schema to plain", batches, 0.75);
    report.bound_below("rate of single saves, 10 a transaction, schema to plain", packets, 0.85);
    report.bound("file size, schema to plain", whole.bytes() / plain.bytes(), 1.35);
  }

  std::vector<Report::Row> rows;
  for (std::size_t i = 0; i < without.size(); ++i) {
    const Variant variant = variants()[i];
    Filled& other = *without[i];
    rows.push_back({variant.index, saved_bytes[i],
                    100 * (median_ratio(whole.batches(), other.batches()) - 1),
                    100 * (median_ratio(whole.large_packets(), other.large_packets()) - 1),
                    variant.operation, time_of_operation(other.store(), variant.run),
                    time_of_operation(whole.store(), variant.run)});
  }
  report.table("What each index costs against the plain set's in its place, or none, and buys",
               {"index", "bytes a message", "batch save, %", "single save, %", "operation",
                "without, us", "with, us"},
               rows);

  std::vector<Report::Row> shared;
  for (const char* index :
       {"t_message_client_uid", "t_message_sent_time", "t_message_server_uid"}) {
    shared.push_back({index, whole.bytes_of(index)});
  }
  report.table("Indexes of both sets", {"index", "bytes a message"}, shared);
  return report.finish();
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return measure(parse_options(argc, argv));
  } catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << '\n';
    return 2;
  }
}
