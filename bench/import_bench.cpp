// What `corvan import` costs beside the saves that it makes. One made-up log is imported by the
// tool and its messages are saved straight from memory, in turns, each time into a new store;
// compared are the processor times, in user and in system mode. Exit status 1 when the import takes
// more than kLargestRatio times as much, or when its memory grows with the log.
//
// Usage: import_bench TOOL [MESSAGES] [--json FILE]
// Logs and stores lie in the folder that TMPDIR names.

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "db/cv_db_singleton.h"

namespace {

constexpr double kLargestRatio = 1.6;
constexpr double kLargestGrowth = 1.1;           // of memory, from a quarter of the messages to all
constexpr std::size_t kFewestForMemory = 20000;  // with fewer, caches of a fixed size still fill
constexpr int kRounds = 3;
constexpr std::size_t kBatch = 1000;  // saves a transaction, as the tool's default
constexpr const char* kUser = "me";

[[noreturn]] void fail(const std::string& what) {
  throw std::runtime_error(what + ": " + std::strerror(errno));
}

class TemporaryFolder {
 public:
  TemporaryFolder() {
    path_ = (std::filesystem::temp_directory_path() / "corvan-bench-XXXXXX").string();
    if (mkdtemp(path_.data()) == nullptr) fail(path_);
  }
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// ---- The messages -------------------------------------------------------------------------------

struct Message {
  std::string session_id;
  Corvan::SessionType session_type = Corvan::CV_PRIVATE;
  std::string object_name;
  std::string sender;
  std::string content;
  bool is_receive = true;
  bool is_mention = false;
  int64_t sent_time = 0;
  int64_t client_uid = 0;
  std::string server_uid;
};

// Always the same messages in the same order. A few of the 2,000 conversations have most of them.
class Messages {
 public:
  Message next() {
    ++count_;
    Message m;
    const double at = fraction();
    const auto session = static_cast<std::uint64_t>(at * at * at * 2000);
    static constexpr std::array<Corvan::SessionType, 8> kTypes = {
        Corvan::CV_GROUP,   Corvan::CV_PRIVATE, Corvan::CV_GROUP,     Corvan::CV_PRIVATE,
        Corvan::CV_PRIVATE, Corvan::CV_GROUP,   Corvan::CV_RECEPTION, Corvan::CV_CHATROOM};
    m.session_type = session % 100 == 99 ? Corvan::CV_SYSTEM : kTypes.at(session % kTypes.size());
    m.session_id = "conversation-" + std::to_string(session);
    static constexpr std::array<const char*, 10> kNames = {
        "CV:TxtMsg", "CV:TxtMsg", "CV:TxtMsg", "CV:TxtMsg",  "CV:TxtMsg",
        "CV:TxtMsg", "CV:ImgMsg", "CV:VcMsg",  "CV:FileMsg", "CV:LBSMsg"};
    m.object_name = kNames.at(random(kNames.size()));
    m.is_receive = m.session_type == Corvan::CV_SYSTEM || random(4) != 0;
    m.is_mention = m.is_receive && m.session_type == Corvan::CV_GROUP && random(30) == 0;
    const bool one_peer = m.session_type == Corvan::CV_PRIVATE;
    m.sender = m.is_receive ? "user-" + std::to_string(one_peer ? session : random(500)) : kUser;
    m.content = content();
    time_ += 20 + static_cast<int64_t>(random(5000));
    m.sent_time = time_;
    m.client_uid = m.is_receive ? 0 : count_;
    std::array<char, 24> uid = {};
    std::snprintf(uid.data(), uid.size(), "%010X-%09lld",
                  static_cast<unsigned>(random(std::uint64_t{1} << 32)),
                  static_cast<long long>(count_));
    m.server_uid = uid.data();
    return m;
  }

 private:
  // 20 to 200 bytes of UTF-8.
  std::string content() {
    static constexpr std::array<const char*, 16> kPhrases = {
        "Good morning",
        " are we still on for today?",
        " \"see the attached plan\"",
        " on my way,",
        " 下午三点开会吗？",
        "好的，没问题。",
        " 资料已经发到邮箱了",
        " 👍",
        " 🎉🎉 done!",
        "\nthanks a lot",
        " https://example.org/a/b?c=1",
        " I will look into it tomorrow,",
        " café at noon ☕",
        " 谢谢",
        " ok",
        " that is what I thought",
    };
    const std::size_t wanted = 20 + random(150);
    std::string text;
    while (text.size() < wanted) text += kPhrases.at(random(kPhrases.size()));
    return text;
  }

  // SplitMix64.
  std::uint64_t random() {
    std::uint64_t z = state_ += 0x9e3779b97f4a7c15U;
    z = (z ^ (z >> 30U)) * 0xbf58476d1ce4e5b9U;
    z = (z ^ (z >> 27U)) * 0x94d049bb133111ebU;
    return z ^ (z >> 31U);
  }
  std::uint64_t random(std::uint64_t limit) { return random() % limit; }
  double fraction() { return static_cast<double>(random() >> 11U) / 9007199254740992.0; }

  std::uint64_t state_ = 20240101;
  int64_t time_ = 1700000000000;
  int64_t count_ = 0;
};

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') result += '\\';
    if (c == '\n') {
      result += "\\n";
    } else {
      result += c;
    }
  }
  return result + '"';
}

void write_log(const std::string& file, std::size_t count) {
  std::ofstream out(file, std::ios::binary);
  Messages messages;
  for (std::size_t i = 0; i < count; ++i) {
    const Message m = messages.next();
    out << R"({"session_id":)" << quoted(m.session_id) << ",\"session_type\":" << m.session_type
        << ",\"object_name\":" << quoted(m.object_name) << ",\"sender\":" << quoted(m.sender)
        << ",\"content\":" << quoted(m.content)
        << ",\"is_receive\":" << (m.is_receive ? "true" : "false");
    if (m.is_mention) out << ",\"is_mention\":true";
    out << ",\"sent_status\":0,\"sent_time\":" << m.sent_time;
    if (m.client_uid != 0) out << ",\"client_uid\":" << m.client_uid;
    out << ",\"server_uid\":" << quoted(m.server_uid) << "}\n";
  }
  if (!out.flush()) fail(file);
}

// ---- Measuring ----------------------------------------------------------------------------------

double processor_seconds(const rusage& usage) {
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

double processor_seconds() {
  rusage usage = {};
  if (getrusage(RUSAGE_SELF, &usage) != 0) fail("getrusage");
  return processor_seconds(usage);
}

// Waits for a child process and expects it to succeed: what it used.
rusage wait_for(pid_t pid, const std::string& what) {
  int status = 0;
  rusage usage = {};
  while (wait4(pid, &status, 0, &usage) < 0) {
    if (errno != EINTR) fail("wait4");
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) throw std::runtime_error(what + ": failed");
  return usage;
}

// Saves messages from memory into a new store: the seconds from before the store is opened until it
// is closed.
double save_directly(const std::string& folder, std::size_t count) {
  std::vector<Message> all;
  all.reserve(count);
  Messages messages;
  for (std::size_t i = 0; i < count; ++i) all.push_back(messages.next());

  const double before = processor_seconds();
  auto* const store = Corvan::CvDbSingleton::get_instance();
  if (!store->init_open_db(cvrtc::Pathname(folder, ""), "", kUser)) {
    throw std::runtime_error(folder + ": the store cannot be opened");
  }
  for (std::size_t begin = 0; begin < count; begin += kBatch) {
    store->start_transaction();
    for (std::size_t i = begin; i < std::min(begin + kBatch, count); ++i) {
      const Message& m = all[i];
      const int64_t id = store->save_message(
          m.session_id, m.session_type, m.object_name, m.sender, m.content, m.is_receive, 0, 0,
          m.is_mention, m.sent_time, m.client_uid, m.server_uid, false, false, m.is_receive);
      if (id < 0) throw std::runtime_error(folder + ": a message was not stored");
    }
    if (!store->commit_transaction()) throw std::runtime_error(folder + ": a commit failed");
  }
  Corvan::CvDbSingleton::delete_instance();
  return processor_seconds() - before;
}

// In a process of its own, as the import is. The messages in memory would otherwise count as the
// import's: a program started by a process is credited with that process's peak of memory.
double measure_direct(const std::string& folder, std::size_t count) {
  std::filesystem::create_directory(folder);
  std::array<int, 2> ends = {};
  if (pipe2(ends.data(), O_CLOEXEC) != 0) fail("pipe");
  const pid_t pid = fork();
  if (pid < 0) fail("fork");
  if (pid == 0) {
    try {
      const double seconds = save_directly(folder, count);
      _exit(write(ends[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
    } catch (const std::exception& error) {
      std::cerr << error.what() << std::endl;
      _exit(1);
    }
  }
  close(ends[1]);
  double seconds = 0;
  const ssize_t taken = read(ends[0], &seconds, sizeof seconds);
  close(ends[0]);
  wait_for(pid, "direct saves");
  if (taken != sizeof seconds) throw std::runtime_error("direct saves: no result");
  return seconds;
}

struct ImportCost {
  double seconds = 0;
  long rss_kib = 0;  // at its peak
};

ImportCost measure_import(const std::string& tool, const std::string& folder,
                          const std::string& log) {
  std::vector<std::string> texts = {tool, "import", folder, "--user", kUser, log};
  std::vector<char*> argv;
  argv.reserve(texts.size() + 1);
  for (std::string& text : texts) argv.push_back(text.data());
  argv.push_back(nullptr);
  const pid_t pid = fork();
  if (pid < 0) fail("fork");
  if (pid == 0) {
    const int nothing = open("/dev/null", O_WRONLY);
    if (nothing >= 0 && dup2(nothing, STDOUT_FILENO) >= 0) execv(argv[0], argv.data());
    std::perror(argv[0]);
    _exit(127);
  }
  const rusage usage = wait_for(pid, tool);
  ImportCost cost;
  cost.seconds = processor_seconds(usage);
  cost.rss_kib = usage.ru_maxrss;
  return cost;
}

// ---- The stores hold the same -------------------------------------------------------------------

struct Close {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct Finalize {
  void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
};

class Rows {
 public:
  Rows(const std::string& folder, const std::string& sql) : folder_(folder) {
    sqlite3* db = nullptr;
    const std::string file = folder + "/corvan";
    const int rc = sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr);
    db_.reset(db);
    sqlite3_stmt* stmt = nullptr;
    if (rc != SQLITE_OK || sqlite3_prepare_v2(db, sql.c_str(), -1, &stmt, nullptr) != SQLITE_OK) {
      throw std::runtime_error(file + ": " + sqlite3_errmsg(db));
    }
    stmt_.reset(stmt);
  }

  // False after the last one.
  bool next(std::string& row) {
    const int rc = sqlite3_step(stmt_.get());
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) {
      throw std::runtime_error(folder_ + ": " + sqlite3_errmsg(db_.get()));
    }
    row.clear();
    for (int i = 0; rc == SQLITE_ROW && i < sqlite3_column_count(stmt_.get()); ++i) {
      const unsigned char* const text = sqlite3_column_text(stmt_.get(), i);
      const auto size = static_cast<std::size_t>(sqlite3_column_bytes(stmt_.get(), i));
      row += std::to_string(size) + ":";
      if (size > 0) row.append(reinterpret_cast<const char*>(text), size);
    }
    return rc == SQLITE_ROW;
  }

 private:
  std::string folder_;
  std::unique_ptr<sqlite3, Close> db_;
  std::unique_ptr<sqlite3_stmt, Finalize> stmt_;
};

std::size_t require_equal_rows(const std::string& one, const std::string& other,
                               const std::string& sql) {
  Rows left(one, sql);
  Rows right(other, sql);
  std::string left_row;
  std::string right_row;
  for (std::size_t count = 0;; ++count) {
    const bool left_more = left.next(left_row);
    const bool right_more = right.next(right_row);
    if (left_more != right_more || left_row != right_row) {
      throw std::runtime_error("the stores differ: " + sql + ": row " + std::to_string(count + 1));
    }
    if (!left_more) return count;
  }
}

void require_equal_stores(const std::string& one, const std::string& other, std::size_t count) {
  if (require_equal_rows(one, other, "select * from t_message order by id") != count) {
    throw std::runtime_error("the stores do not hold all messages");
  }
  require_equal_rows(one, other, "select * from t_session order by session_id,session_type");
}

// ---- The benchmark ------------------------------------------------------------------------------

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

struct Options {
  std::string tool;
  std::size_t messages = 400000;
  std::string json;
};

Options options_of(const std::vector<std::string>& arguments) {
  Options options;
  std::vector<std::string> words;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    if (arguments[i] == "--json" && i + 1 < arguments.size()) {
      options.json = arguments[++i];
    } else {
      words.push_back(arguments[i]);
    }
  }
  bool good = !words.empty() && words.size() <= 2;
  if (good && words.size() == 2) {
    const char* const end = words[1].data() + words[1].size();
    const auto [read_to, error] = std::from_chars(words[1].data(), end, options.messages);
    good = error == std::errc() && read_to == end && options.messages >= 4;
  }
  if (!good) throw std::runtime_error("usage: import_bench TOOL [MESSAGES] [--json FILE]");
  options.tool = words[0];
  return options;
}

int run(const Options& options) {
  const TemporaryFolder folder;
  const std::size_t count = options.messages;
  const std::string log = folder.file("log");
  const std::string quarter_log = folder.file("quarter");
  write_log(log, count);
  write_log(quarter_log, count / 4);
  std::printf("sqlite %s; %zu messages, %ju bytes; stores in %s\n", sqlite3_libversion(), count,
              std::filesystem::file_size(log),
              std::filesystem::temp_directory_path().string().c_str());
#ifndef __OPTIMIZE__
  std::printf("WARNING: built without optimisation\n");
#endif

  const long rss_quarter =
      measure_import(options.tool, folder.file("quarter-store"), quarter_log).rss_kib;

  std::vector<double> direct_seconds;
  std::vector<double> import_seconds;
  long rss_full = 0;
  std::printf("%-8s%12s%12s%8s%18s\n", "round", "direct s", "import s", "ratio", "import RSS KiB");
  for (int round = 1; round <= kRounds; ++round) {
    const std::string direct = folder.file("direct");
    const std::string imported = folder.file("imported");
    direct_seconds.push_back(measure_direct(direct, count));
    const ImportCost cost = measure_import(options.tool, imported, log);
    import_seconds.push_back(cost.seconds);
    rss_full = std::max(rss_full, cost.rss_kib);
    std::printf("%-8d%12.3f%12.3f%8.3f%18ld\n", round, direct_seconds.back(), cost.seconds,
                cost.seconds / direct_seconds.back(), cost.rss_kib);
    std::fflush(stdout);
    require_equal_stores(direct, imported, count);
    std::filesystem::remove_all(direct);
    std::filesystem::remove_all(imported);
  }

  const double direct = median(direct_seconds);
  const double import = median(import_seconds);
  const double ratio = import / direct;
  const double growth = static_cast<double>(rss_full) / static_cast<double>(rss_quarter);
  std::printf("%-8s%12.3f%12.3f%8.3f\n", "median", direct, import, ratio);
  std::printf("import RSS KiB: %ld for a quarter, %ld for all: %+.1f %%\n", rss_quarter, rss_full,
              (growth - 1) * 100);

  if (!options.json.empty()) {
    std::ofstream out(options.json);
    out << R"({"benchmark":"import","messages":)" << count << ",\"import_cpu_seconds\":" << import
        << ",\"direct_cpu_seconds\":" << direct << ",\"ratio\":" << ratio
        << ",\"rss_kib_quarter\":" << rss_quarter << ",\"rss_kib_full\":" << rss_full << "}\n";
    if (!out.flush()) fail(options.json);
  }
  const bool too_slow = ratio > kLargestRatio;
  const bool too_large = growth > kLargestGrowth && count >= kFewestForMemory;
  if (too_slow) std::printf("TOO SLOW: the ratio is over %.1f\n", kLargestRatio);
  if (too_large) std::printf("TOO LARGE: memory grows with the log\n");
  return too_slow || too_large ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(options_of({argv + 1, argv + argc}));
  } catch (const std::exception& error) {
    std::cerr << "import_bench: " << error.what() << '\n';
    return 2;
  }
}
