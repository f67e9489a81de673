// A process that saves, edits, deletes, catches up and sweeps is killed at random moments.
// CORVAN_SEARCH_SEED is the seed, CORVAN_SEARCH_KILLS the number of kills.

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/bounds.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

using Corvan::MessageSearch;
using std::chrono::microseconds;

// Edited messages have this kind. They may be missed until a sweep: the process may have been
// killed before it called changed().
constexpr const char* kEdited = "CV:Edited";

void work_a_little(MessageSearch& search, Vocabulary& random, int64_t& newest) {
  const auto any_id = [&] {
    return static_cast<int64_t>(
        1 + random.below(static_cast<std::size_t>(std::max<int64_t>(1, newest))));
  };
  switch (random.below(8)) {
    case 0: {
      const int64_t id = any_id();
      the_store().set_message_content(id, random.text(), kEdited);
      if (random.one_in(2)) search.changed(id);
      return;
    }
    case 1: {
      const int64_t id = any_id();
      the_store().delete_message({id});
      if (random.one_in(2)) search.changed(id);
      return;
    }
    case 2:
      search.sweep(random.one_in(2) ? microseconds(1) : kPlenty);
      return;
    case 3:
      search.catch_up(random.one_in(2) ? microseconds(1) : kPlenty);
      return;
    case 4:
      search.find("hello");
      return;
    default:
      for (std::size_t i = random.below(10); i > 0; --i) {
        newest = save({random.text(), static_cast<int64_t>(1 + random.below(1000))});
      }
  }
}

// Works until it is killed. Writes a byte when it begins.
[[noreturn]] void work(const std::string& folder, uint64_t seed, int pipe_end) {
  alarm(60);
  try {
    Vocabulary random(seed);
    if (!open_store_in(folder)) _exit(3);
    MessageSearch search{cvrtc::Pathname(folder)};
    int64_t newest = save({"hello"});
    if (write(pipe_end, "x", 1) != 1) _exit(4);
    for (;;) work_a_little(search, random, newest);
  } catch (...) {
    _exit(5);
  }
}

// How the process ended if it was not killed.
std::string kill_at_work(const std::string& folder, uint64_t seed, microseconds after) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) throw std::runtime_error("no pipe");
  const pid_t child = fork();
  if (child < 0) throw std::runtime_error("no process");
  if (child == 0) work(folder, seed, ends[1]);
  close(ends[1]);
  char byte = 0;
  const bool began = read(ends[0], &byte, 1) == 1;
  close(ends[0]);
  std::this_thread::sleep_for(after);
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  const bool killed = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  return began && killed ? "" : "ended with status " + std::to_string(status);
}

Ids edited(const Truth& truth) {
  Ids ids;
  for (const StoredMessage& message : truth.messages()) {
    if (message.kind == kEdited) ids.insert(message.id);
  }
  return ids;
}

std::string check(const std::string& folder, bool sweep) {
  if (!open_store_in(folder)) return "the store does not open";
  const Truth truth(folder + "corvan");
  MessageSearch search{cvrtc::Pathname(folder)};
  std::string wrong = compare(search, truth, few_queries(), edited(truth));
  if (wrong.empty()) wrong = catch_up_all(search);
  if (wrong.empty()) wrong = compare(search, truth, few_queries(), edited(truth));
  if (!sweep || !wrong.empty()) return wrong;
  wrong = mend_all(search);
  return wrong.empty() ? compare(search, truth, few_queries()) : wrong;
}

TEST(SearchKill, KilledProcessLeavesAnIndexThatIsMended) {
  prefer_memory();
  const uint64_t seed = setting("CORVAN_SEARCH_SEED", 1);
  const uint64_t kills = bound("CORVAN_SEARCH_KILLS", 40, 2000);
  const LogCapture log(cvrtc::LS_NONE);
  Vocabulary random(seed);
  auto folder = std::make_unique<TemporaryFolder>();
  for (uint64_t i = seed; i < seed + kills; ++i) {
    if (i % 20 == 0) folder = std::make_unique<TemporaryFolder>();
    const auto after = microseconds(random.below(random.one_in(4) ? 100000 : 10000));
    ASSERT_EQ(kill_at_work(folder->path(), i, after), "");
    const std::string wrong = check(folder->path(), random.one_in(2));
    Corvan::CvDbSingleton::delete_instance();
    ASSERT_EQ(wrong, "") << "CORVAN_SEARCH_SEED=" << seed << ", kill " << i - seed + 1;
  }
}

}  // namespace

}  // namespace corvan_test
