#include "tools/store/interrupt.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace corvan_tool {

namespace {

struct Entry {
  std::string path;
  std::string kept;  // the name in errors
};

// Never destroyed: the thread that waits for signals outlives main().
struct Registry {
  std::mutex mutex;
  std::vector<Entry> entries;
};

Registry& registry() {
  static Registry& instance = *new Registry;
  return instance;
}

// Precondition: the registry is locked.
void forget_path(const std::string& path) {
  std::vector<Entry>& all = registry().entries;
  all.erase(std::remove_if(all.begin(), all.end(),
                           [&path](const Entry& one) { return one.path == path; }),
            all.end());
}

[[noreturn]] void end_by(int signal_number) {
  std::signal(signal_number, SIG_DFL);
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal_number);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
  std::raise(signal_number);
  _exit(128 + signal_number);
}

// Another thread may create files in the folder while it is being removed, so this tries again.
// Once the folder is gone, nothing can be created in it.
void remove_for_good(const std::string& folder) {
  constexpr int kAttempts = 1000;
  std::error_code error;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::filesystem::remove_all(folder, error);
    if (!error && std::filesystem::symlink_status(folder, error).type() ==
                      std::filesystem::file_type::not_found)
      return;
  }
}

void wait_for_interrupt(sigset_t signals) {
  int signal_number = 0;
  if (sigwait(&signals, &signal_number) != 0) return;
  // Never unlocked, so that nothing more is kept or begun.
  registry().mutex.lock();
  for (const Entry& entry : registry().entries) remove_for_good(entry.path);
  end_by(signal_number);
}

}  // namespace

void remove_unfinished_when_interrupted() {
  sigset_t signals;
  sigemptyset(&signals);
  bool any = false;
  for (const int signal_number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
    struct sigaction action = {};
    // Ignored, for example under nohup.
    if (sigaction(signal_number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
    sigaddset(&signals, signal_number);
    any = true;
  }
  if (!any) return;
  registry();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread(wait_for_interrupt, signals).detach();
}

std::string make_unfinished(const std::string& kept_as, const std::function<std::string()>& make) {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  std::string path = make();
  registry().entries.push_back({path, kept_as.empty() ? path : kept_as});
  return path;
}

void keep_unfinished(const std::string& path, const std::function<void()>& keep) {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  keep();
  forget_path(path);
}

void remove_unfinished(const std::string& path) {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  std::error_code ignored;  // it may have been kept
  std::filesystem::remove_all(path, ignored);
  forget_path(path);
}

std::string kept_name(const std::string& path) {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  for (const Entry& entry : registry().entries) {
    const std::size_t size = entry.path.size();
    if (path.compare(0, size, entry.path) == 0 && (path.size() == size || path[size] == '/')) {
      return entry.kept + path.substr(size);
    }
  }
  return path;
}

}  // namespace corvan_tool
