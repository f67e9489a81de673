#include "tests/damage/child.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <new>
#include <stdexcept>

namespace corvan_test {

namespace {

constexpr unsigned kSeconds = 60;

template <std::size_t size>
void put(std::array<char, size>& field, const std::string& text) {
  const std::size_t count = std::min(text.size(), size - 1);
  std::copy_n(text.begin(), count, field.begin());
  field.at(count) = '\0';
}

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

void note_running(Outcome& outcome, const std::string& operation) {
  put(outcome.running, operation);
}

void note_deletion(Outcome& outcome, const std::string& operation) {
  if (!outcome.deleted) put(outcome.deleted_by, operation);
  outcome.deleted = true;
}

void note_failure(Outcome& outcome, const std::string& line) {
  if (!outcome.failed) put(outcome.failure, line);
  outcome.failed = true;
}

void complain(Outcome& outcome, const std::string& text) {
  put(outcome.complaint, outcome.complaint.data() + text + "\n");
}

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
