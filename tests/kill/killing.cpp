#include "tests/kill/killing.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <new>
#include <stdexcept>
#include <thread>

namespace corvan_test {

namespace {

using Clock = std::chrono::steady_clock;

// One message of a pipe, small enough that each write is complete or missing.
struct Record {
  int64_t index = 0;
  int64_t result = 0;
};

constexpr unsigned kSeconds = 60;  // for one process; it is killed much earlier
constexpr int kThrew = 3;
constexpr int kNoPipe = 4;

// Both ends of a pipe, closed by the destructor.
class Pipe {
 public:
  Pipe() {
    if (pipe(ends_.data()) != 0) throw std::runtime_error("no pipe");
  }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    close_end(0);
    close_end(1);
  }

  // The reader sees the end of the file only when no process has the write end open.
  void only_read() { close_end(1); }
  void only_write() { close_end(0); }

  bool put(const Record& record) const {
    return write(ends_[1], &record, sizeof(record)) == static_cast<ssize_t>(sizeof(record));
  }

  // No value if the process at the other end is gone.
  std::optional<Record> get() const {
    Record record{};
    ssize_t got = 0;
    do {
      got = read(ends_[0], &record, sizeof(record));
    } while (got < 0 && errno == EINTR);
    if (got != static_cast<ssize_t>(sizeof(record))) return std::nullopt;
    return record;
  }

 private:
  void close_end(std::size_t end) {
    if (ends_.at(end) >= 0) close(ends_.at(end));
    ends_.at(end) = -1;
  }

  std::array<int, 2> ends_{-1, -1};
};

struct Pipes {
  Pipe records;  // from the process
  Pipe start;    // to it
};

// Waits at the operation of the aim until the killer is ready: on a busy machine the killer could
// otherwise sleep through the operation. Ends by a signal, so that neither destructors nor exit
// handlers run.
[[noreturn]] void work(const Plan& plan, const Aim& aim, Pipes& pipes, Watch& watch) {
  alarm(kSeconds);
  pipes.records.only_write();
  pipes.start.only_read();
  try {
    Corvan::CvDbSingleton& store = *Corvan::CvDbSingleton::get_instance();
    for (std::size_t i = 0; i < plan.size(); ++i) {
      if (i == aim.acknowledged) pipes.start.get();
      watch.begin(i);
      const auto start = Clock::now();
      const int64_t result = run(plan[i], store);
      const auto took = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start);
      watch.end(plan[i].phase, static_cast<uint32_t>(took.count()));
      if (!pipes.records.put({static_cast<int64_t>(i), result})) _exit(kNoPipe);
    }
  } catch (...) {
    _exit(kThrew);
  }
  for (;;) pause();
}

std::string ending(int status) {
  if (WIFSIGNALED(status)) {
    const int signal = WTERMSIG(status);
    return signal == SIGKILL ? "" : "died of signal " + std::to_string(signal);
  }
  return "exited with " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

Watch::Watch() {
  void* memory =
      mmap(nullptr, sizeof(Page), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::runtime_error("no shared memory");
  page_ = new (memory) Page;
}

Watch::~Watch() {
  munmap(page_, sizeof(Page));
}

void Watch::end(Phase phase, uint32_t microseconds) {
  page_->microseconds.at(static_cast<std::size_t>(phase)) = microseconds;
  page_->running = 0;
}

std::optional<std::size_t> Watch::running() const {
  const std::size_t running = page_->running;
  if (running == 0) return std::nullopt;
  return running - 1;
}

uint32_t Watch::microseconds(Phase phase) const {
  return page_->microseconds.at(static_cast<std::size_t>(phase));
}

Killed kill_at_work(const Plan& plan, const Aim& aim, Watch& watch) {
  prctl(PR_SET_TIMERSLACK, 1);  // in nanoseconds, so that sleeps end on time
  watch.reset();
  Pipes pipes;
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) work(plan, aim, pipes, watch);
  pipes.records.only_read();
  pipes.start.only_write();

  Killed killed;
  const auto take_record = [&] {
    const std::optional<Record> record = pipes.records.get();
    if (!record) return false;
    if (record->index != static_cast<int64_t>(killed.results.size())) {
      throw std::logic_error("records out of order");
    }
    killed.results.push_back(record->result);
    return true;
  };
  bool alive = true;
  while (alive && killed.results.size() < aim.acknowledged) alive = take_record();
  if (alive) {
    pipes.start.put({});
    std::this_thread::sleep_for(std::chrono::microseconds(aim.microseconds));
  }
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  killed.otherwise = ending(status);
  killed.running = watch.running();
  while (take_record()) {
  }
  return killed;
}

}  // namespace corvan_test
