// Measures the overhead of `corvan import` over its saves. The tool imports a generated log, and
// the same messages are saved directly from memory, alternately, each time into a new store.
// Compares the processor times (user and system) from before the store is opened until it is
// closed; for the import, those of its whole process.

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/bench_store.h"
#include "bench/support/messages.h"
#include "bench/support/options.h"
#include "bench/support/report.h"
#include "bench/support/timing.h"
#include "db/cv_db_singleton.h"
#include "tests/support/rows.h"
#include "tests/support/temporary_folder.h"

namespace {

using namespace corvan_bench;
using corvan_test::TemporaryFolder;

constexpr double kLargestRatio = 1.6;
constexpr double kLargestGrowth = 1.1;   // of memory, from a quarter of the messages to all of them
constexpr int kFewestForMemory = 20000;  // below that, caches are still filling
constexpr int kRounds = 3;
constexpr int kBatch = 1000;  // saves per transaction: the tool's default

// Always the same messages in the same order.
class Messages {
 public:
  Corvan::MessageResponse next() {
    Corvan::MessageResponse m = stream_.next();
    if (m.is_receive_) m.client_uid_ = 0;             // a log has it only for own messages
    if (++count_ % 4 == 0) m.content_ += "\n\"ok\"";  // these characters are escaped in a log
    return m;
  }

 private:
  MessageStream stream_ = MessageStream(20240101, 2000, 4);
  int count_ = 0;
};

void write_log(const std::string& file, int count) {
  std::ofstream out(file, std::ios::binary);
  Messages messages;
  for (int i = 0; i < count; ++i) {
    const Corvan::MessageResponse m = messages.next();
    nlohmann::ordered_json line = {
        {"session_id", m.session_id_},   {"session_type", m.session_type_},
        {"object_name", m.object_name_}, {"sender", m.sender_},
        {"content", m.content_},         {"is_receive", m.is_receive_},
        {"sent_status", m.sent_status_}, {"sent_time", m.sent_time_}};
    if (m.client_uid_ != 0) line["client_uid"] = m.client_uid_;
    line["server_uid"] = m.server_uid_;
    out << line.dump() << '\n';
  }
  if (!out.flush()) throw std::runtime_error("cannot write " + file);
}

// Processor seconds of this process.
double processor_time() {
  return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

// Processor seconds of the saves, without generating the messages.
double save_directly(BenchStore& store, int count) {
  Messages messages;
  double start = processor_time();
  store.open();
  double seconds = processor_time() - start;
  for (int left = count; left > 0; left -= kBatch) {
    std::vector<Corvan::MessageResponse> batch;
    batch.reserve(kBatch);
    for (int i = 0; i < std::min(left, kBatch); ++i) batch.push_back(messages.next());
    start = processor_time();
    store->start_transaction();
    for (const Corvan::MessageResponse& m : batch) Report::verify(save_live(m) > 0, "a save");
    Report::verify(store->commit_transaction(), "a commit");
    seconds += processor_time() - start;
  }
  start = processor_time();
  store.close();
  return seconds + processor_time() - start;
}

struct ImportCost {
  double seconds;   // of processor time
  double peak_kib;  // of memory
};

ImportCost import_log(const std::string& log, const TemporaryFolder& store) {
  const pid_t pid = fork();
  if (pid < 0) throw std::runtime_error("cannot fork");
  if (pid == 0) {
    const int nothing = open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (nothing >= 0 && dup2(nothing, STDOUT_FILENO) >= 0) {
      execl(CORVAN_PROGRAM, CORVAN_PROGRAM, "import", store.path().c_str(), "--user", "me",
            log.c_str(), static_cast<char*>(nullptr));
    }
    std::perror(CORVAN_PROGRAM);
    _exit(127);
  }
  int status = 0;
  rusage usage = {};
  while (wait4(pid, &status, 0, &usage) < 0) {
    if (errno != EINTR) throw std::runtime_error("cannot wait");
  }
  Report::verify(WIFEXITED(status) && WEXITSTATUS(status) == 0, "the import succeeds");
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return {seconds(usage.ru_utime) + seconds(usage.ru_stime), static_cast<double>(usage.ru_maxrss)};
}

void verify_equal(const std::string& file, const std::string& other, int messages) {
  const auto count = [&](const std::string& rows) {
    return corvan_test::rows(file, "attach '" + other + "' as other;select count(*) from " + rows)
        .at(0);
  };
  Report::verify(count("t_message") == std::to_string(messages), "all messages are stored");
  // Rows have keys and no NULL, so a join matches each row with its equal only.
  for (const std::string table : {"t_message", "t_session"}) {
    const std::string all = count(table);
    Report::verify(
        all == count("other." + table) && all == count(table + " natural join other." + table),
        "both stores have the same rows in " + table);
  }
}

int messages_for(const Options& options) {
  if (options.quick) return 5000;
  return options.full ? 400000 : 60000;
}

int measure(const Options& options) {
  const int count = messages_for(options);
  const TemporaryFolder folder;
  const std::string log = folder.file("log");
  const std::string quarter = folder.file("quarter");
  write_log(log, count);
  write_log(quarter, count / 4);
  const auto size = [](const std::string& file) {
    return static_cast<double>(std::filesystem::file_size(file)) / 1e6;
  };

  // A child process starts with the peak memory of its parent, so memory is measured before the
  // first direct saves.
  const double quarter_peak = import_log(quarter, TemporaryFolder()).peak_kib;
  double peak = 0;
  std::vector<double> import_times;
  std::vector<double> direct_times;
  std::vector<Report::Row> rows;
  const auto add_row = [&rows](const std::string& name, double import, double direct) {
    rows.push_back({name, import, direct, import / direct});
  };
  for (int round = 1; round <= kRounds; ++round) {
    const TemporaryFolder imported;
    const ImportCost cost = import_log(log, imported);
    if (round == 1) peak = cost.peak_kib;
    BenchStore direct;
    import_times.push_back(cost.seconds);
    direct_times.push_back(save_directly(direct, count));
    verify_equal(direct.file(), imported.file("corvan"), count);
    add_row(std::to_string(round), import_times.back(), direct_times.back());
  }
  const double import_time = median(import_times);
  const double direct_time = median(direct_times);
  add_row("median", import_time, direct_time);

  Report report("import", options);
  report.table("Import of " + std::to_string(count) + " messages, processor time",
               {"round", "import, s", "direct saves, s", "ratio"}, rows);
  report.table(
      "Memory of an import", {"log", "messages", "MB of log", "peak, KiB"},
      {{"a quarter", count / 4, size(quarter), quarter_peak}, {"all", count, size(log), peak}});
  report.bound("processor time, import to direct saves", import_time / direct_time, kLargestRatio);
  if (count >= kFewestForMemory) {
    report.bound("memory, all messages to a quarter", peak / quarter_peak, kLargestGrowth);
  }
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
