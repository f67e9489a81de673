#include "bench/search/single_calls.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <thread>
#include <utility>

#include "bench/search/database.h"
#include "bench/search/library_contender.h"
#include "bench/support/timing.h"

namespace corvan_bench {

namespace {

using Corvan::MessageResponse;
using Corvan::MessageSearch;
using Corvan::SearchStatus;

constexpr int kSweeps = 3;
constexpr std::chrono::microseconds kTimeLimit = std::chrono::milliseconds(20);

// Messages of the store itself, to save their like.
std::vector<MessageResponse> some_messages(const std::string& store_file, int count) {
  const Database database(store_file);
  Statement rows(database,
                 "select session_id,session_type,sender,object_name,content from t_message "
                 "where id%7=0 limit ?");
  rows.bind(1, int64_t{count});
  std::vector<MessageResponse> messages;
  while (rows.step()) {
    MessageResponse& message = messages.emplace_back();
    message.session_id_ = rows.text(0);
    message.session_type_ = static_cast<Corvan::SessionType>(rows.number(1));
    message.sender_ = rows.text(2);
    message.object_name_ = rows.text(3);
    message.content_ = rows.text(4);
  }
  return messages;
}

// Runs a function on another thread, again and again until it returns false or the object is
// destroyed.
class Background {
 public:
  explicit Background(std::function<bool()> function)
      : thread_([this, function = std::move(function)] { run(function); }) {}
  Background(const Background&) = delete;
  Background& operator=(const Background&) = delete;
  ~Background() {
    is_stopped_ = true;
    if (thread_.joinable()) thread_.join();
  }

  bool is_running() const { return is_running_; }
  // Waits for the thread. Throws what the function threw.
  void stop() {
    is_stopped_ = true;
    thread_.join();
    if (error_) std::rethrow_exception(error_);
  }

 private:
  void run(const std::function<bool()>& function) {
    try {
      while (!is_stopped_ && function()) continue;
    } catch (...) {
      error_ = std::current_exception();
    }
    is_running_ = false;
  }

  std::atomic<bool> is_stopped_{false};
  std::atomic<bool> is_running_{true};
  std::exception_ptr error_;
  std::thread thread_;
};

class Measurement {
 public:
  Measurement(FilledStore& store, const std::vector<SearchQuery>& queries, const CallCounts& counts)
      : store_(store),
        folder_(store.folder()),
        queries_(queries),
        counts_(counts),
        messages_(some_messages(store.file(), counts.catch_ups)) {}

  SingleCalls measure() {
    measure_sweeping();
    measure_catching_up();
    measure_opening();
    measure_finding_while_saving();
    measure_finding_while_building();
    return std::move(calls_);
  }

 private:
  void measure_sweeping();
  void measure_catching_up();
  void measure_opening();
  void measure_finding_while_saving();
  void measure_finding_while_building();

  // A next query of the usual ones.
  const SearchQuery& query();
  void save_one() { store_.save_live(messages_[saved_++ % messages_.size()]); }
  double time_to_find(MessageSearch& search, std::chrono::microseconds time_limit);

  FilledStore& store_;
  const cvrtc::Pathname folder_;
  const std::vector<SearchQuery>& queries_;
  const CallCounts counts_;
  const std::vector<MessageResponse> messages_;
  std::size_t saved_ = 0;
  std::size_t asked_ = 0;
  SingleCalls calls_;
};

const SearchQuery& Measurement::query() {
  for (;;) {
    const SearchQuery& next = queries_[asked_++ % queries_.size()];
    if (next.query_class != QueryClass::kSingleLetter) return next;
  }
}

double Measurement::time_to_find(MessageSearch& search, std::chrono::microseconds time_limit) {
  const SearchQuery& asked = query();
  Corvan::SearchOptions options = options_for(asked, 20);
  options.time_limit = time_limit;
  SearchStatus status = SearchStatus::kOk;
  const double time = time_of([&] { status = search.find(text_of(asked), options).status; });
  Report::verify(status == SearchStatus::kOk, "find()");
  return time;
}

void Measurement::measure_sweeping() {
  MessageSearch search(folder_);
  for (int i = 0; i < kSweeps; ++i) {
    const double before = processor_time();
    const auto compared = static_cast<double>(sweep(search));
    Report::verify(compared > 0, "sweep() compares messages");
    calls_.sweep_processor.add((processor_time() - before) / compared);
  }
}

void Measurement::measure_catching_up() {
  MessageSearch search(folder_);
  catch_up(search, kLargeBudget);
  for (int i = 0; i < counts_.catch_ups; ++i) {
    save_one();
    int64_t indexed = 0;
    const double before = processor_time();
    calls_.catch_up_elapsed.add(time_of([&] { indexed = catch_up(search, kSmallBudget); }));
    calls_.catch_up_processor.add(processor_time() - before);
    Report::verify(indexed == 1, "catch_up() indexes one message");
    calls_.nothing_to_do.add(time_of([&] { catch_up(search, kSmallBudget); }));
  }
}

void Measurement::measure_opening() {
  for (int i = 0; i < counts_.openings; ++i) {
    MessageSearch search(folder_);
    const double time =
        time_of([&search] { Report::verify(search.open() == SearchStatus::kOk, "open()"); });
    calls_.opening.add(time);
    calls_.opening_find.add(time + time_to_find(search, std::chrono::microseconds(0)));
  }
}

void Measurement::measure_finding_while_saving() {
  MessageSearch search(folder_);
  Report::verify(search.open() == SearchStatus::kOk, "open()");
  Background saving([this, &search] {
    save_one();
    return catch_up(search, kSmallBudget) > 0;
  });
  for (int i = 0; i < counts_.finds; ++i) {
    calls_.find_saving.add(time_to_find(search, std::chrono::microseconds(0)));
  }
  saving.stop();
}

void Measurement::measure_finding_while_building() {
  Report::verify(MessageSearch::remove(folder_), "the index is removed");
  MessageSearch search(folder_);
  Report::verify(search.open() == SearchStatus::kOk, "open()");
  Background building([&search] {
    const Corvan::SearchWork work = search.catch_up(kSmallBudget);
    Report::verify(work.status == SearchStatus::kOk, "catch_up()");
    return !work.complete;
  });
  do {
    calls_.find_building.add(time_to_find(search, kTimeLimit));
  } while (building.is_running());
  building.stop();
}

}  // namespace

SingleCalls measure_calls(FilledStore& store, const std::vector<SearchQuery>& queries,
                          const CallCounts& counts) {
  return Measurement(store, queries, counts).measure();
}

void print(const SingleCalls& calls, const std::string& store, Report& report) {
  report.table(
      "Calls of the library, us: " + store, summary_columns("call"),
      {
          summary_row("catch_up() of one message, processor time", calls.catch_up_processor),
          summary_row("catch_up() of one message, elapsed time", calls.catch_up_elapsed),
          summary_row("catch_up() of no message", calls.nothing_to_do),
          summary_row("open() of a new object", calls.opening),
          summary_row("open() and the first find()", calls.opening_find),
          summary_row("sweep(), per unchanged message, processor time", calls.sweep_processor),
          summary_row("find() while messages are saved and indexed", calls.find_saving),
          summary_row("find() within 20 ms while the store is indexed", calls.find_building),
      });
}

}  // namespace corvan_bench
