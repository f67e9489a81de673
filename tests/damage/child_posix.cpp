#include "tests/damage/child.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <stdexcept>

namespace corvan_test {

namespace {

constexpr unsigned kSeconds = 60;

class SharedOutcome {
 public:
  SharedOutcome() {
    void* memory =
        mmap(nullptr, sizeof(Outcome), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) throw std::runtime_error("no shared memory");
    outcome_ = new (memory) Outcome;
  }
  SharedOutcome(const SharedOutcome&) = delete;
  SharedOutcome& operator=(const SharedOutcome&) = delete;
  ~SharedOutcome() { munmap(outcome_, sizeof(Outcome)); }

  Outcome& operator*() const { return *outcome_; }

 private:
  Outcome* outcome_;
};

[[noreturn]] void run(const std::function<void(Outcome&)>& work, Outcome& outcome) {
  alarm(kSeconds);
  try {
    work(outcome);
  } catch (const std::exception& error) {
    complain(outcome, std::string("exception: ") + error.what());
  }
  std::exit(0);
}

std::string ended_otherwise(int status) {
  if (WIFSIGNALED(status)) return "killed by signal " + std::to_string(WTERMSIG(status));
  if (WEXITSTATUS(status) != 0) return "exit code " + std::to_string(WEXITSTATUS(status));
  return "";
}

}  // namespace

Ended in_child(const std::function<void(Outcome&)>& work) {
  const SharedOutcome shared;
  std::cout.flush();  // else both processes would write what is in the buffers
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) run(work, *shared);
  int status = 0;
  if (waitpid(child, &status, 0) != child) throw std::runtime_error("no end of the process");
  Ended ended{*shared, ended_otherwise(status)};
  if (!ended.otherwise.empty()) {
    ended.otherwise += std::string(" in ") + ended.outcome.running.data();
  }
  return ended;
}

}  // namespace corvan_test
