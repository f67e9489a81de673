#include "tools/unfinished.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "tools/tool_error.h"

namespace corvan_tool {

namespace {

namespace fs = std::filesystem;

// What an interrupt removes. Never destroyed: the thread that waits for signals outlives main().
struct Registry {
  std::mutex mutex;
  std::vector<std::string> paths;
};

Registry& registry() {
  static Registry& instance = *new Registry;
  return instance;
}

// With the registry's lock held.
void forget_path(const std::string& path) {
  std::vector<std::string>& paths = registry().paths;
  paths.erase(std::remove(paths.begin(), paths.end(), path), paths.end());
}

void remove_path(const std::string& path) {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  std::error_code ignored;  // it may never have come to be
  fs::remove_all(path, ignored);
  forget_path(path);
}

// What stands behind a name until it is kept.
std::string mark() {
  return ".unfinished-" + std::to_string(getpid());
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

// What another thread makes in a folder while it is being removed keeps it from going; once the
// folder is gone nothing can be made there.
void remove_for_good(const std::string& path) {
  constexpr int kAttempts = 1000;
  std::error_code error;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    fs::remove_all(path, error);
    if (!error && fs::symlink_status(path, error).type() == fs::file_type::not_found) return;
  }
}

void wait_for_interrupt(sigset_t signals) {
  int signal_number = 0;
  if (sigwait(&signals, &signal_number) != 0) return;
  // Held to the end, so that nothing more is kept or begun.
  registry().mutex.lock();
  for (const std::string& path : registry().paths) remove_for_good(path);
  end_by(signal_number);
}

// Makes a file's content, or a folder's entries, durable. False when they cannot be written.
bool sync(const std::string& path) {
  const int fd = open(path.empty() ? "." : path.c_str(), O_RDONLY | O_CLOEXEC);
  const bool done =
      fd >= 0 && (fsync(fd) == 0 || errno == EINVAL);  // or it cannot be synced at all
  if (fd >= 0) close(fd);
  return done;
}

void require_sync(const std::string& path) {
  if (!sync(path))
    throw ToolError(kept_name(path) + ": " + std::strerror(errno) + "; nothing was kept");
}

// Syncs the whole file system of a folder: thousands of files would wait for the disk one by one.
// False where that cannot be done.
bool sync_file_system([[maybe_unused]] const std::string& folder) {
  bool done = false;
#ifdef __linux__
  const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  done = fd >= 0 && syncfs(fd) == 0;
  if (fd >= 0) close(fd);
#endif
  return done;
}

// Makes a file, or a folder with all it holds, durable.
void require_sync_of_all(const std::string& path) {
  constexpr auto kFew = 16;
  if (fs::is_directory(path)) {
    const fs::recursive_directory_iterator all(path);
    if (std::distance(begin(all), end(all)) > kFew && sync_file_system(path)) return;
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
      require_sync(entry.path().string());
    }
  }
  require_sync(path);
}

}  // namespace

void remove_unfinished_when_interrupted() {
  sigset_t signals;
  sigemptyset(&signals);
  bool any = false;
  for (const int signal_number : {SIGHUP, SIGINT, SIGTERM}) {
    struct sigaction action = {};
    // As under nohup.
    if (sigaction(signal_number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
    sigaddset(&signals, signal_number);
    any = true;
  }
  if (!any) return;
  registry();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread(wait_for_interrupt, signals).detach();
}

TemporaryFolder::TemporaryFolder() {
  std::error_code error;
  const fs::path parent = fs::temp_directory_path(error);
  if (error) throw ToolError("the folder for temporary files (TMPDIR): " + error.message());
  std::string name = (parent / "corvan-look-XXXXXX").string();
  // Between its making and its entry no interrupt may come.
  const std::lock_guard<std::mutex> lock(registry().mutex);
  if (mkdtemp(name.data()) == nullptr) {
    throw ToolError(name + ": " + std::strerror(errno) +
                    "; name a folder with room for a copy in TMPDIR");
  }
  path_ = name + "/";
  registry().paths.push_back(path_);
}

TemporaryFolder::~TemporaryFolder() {
  remove_path(path_);
}

Unfinished::Unfinished(std::string place, bool is_folder) : place_(std::move(place)) {
  while (place_.size() > 1 && place_.back() == '/') place_.pop_back();
  std::error_code error;
  if (fs::symlink_status(place_, error).type() != fs::file_type::not_found) {
    throw ToolError(place_ + ": is there already; name a place where nothing is");
  }
  const fs::path parent = fs::path(place_).parent_path();
  if (!parent.empty() && !fs::is_directory(parent, error)) {
    throw ToolError(parent.string() + ": no such folder; make it first");
  }
  path_ = place_ + mark();
  // Between its making and its entry no interrupt may come.
  const std::lock_guard<std::mutex> lock(registry().mutex);
  if (is_folder && !fs::create_directory(path_, error)) {
    throw ToolError((error ? place_ + ": cannot be made: " + error.message()
                           : path_ + ": is there already; remove it"));
  }
  registry().paths.push_back(path_);
}

std::string kept_name(const std::string& path) {
  const std::size_t at = path.rfind(mark());
  return at == std::string::npos ? path : std::string(path).erase(at, mark().size());
}

Unfinished::~Unfinished() {
  remove_path(path_);
}

void Unfinished::keep() {
  require_sync_of_all(path_);
  const std::lock_guard<std::mutex> lock(registry().mutex);
  std::error_code error;
  if (fs::symlink_status(place_, error).type() != fs::file_type::not_found) {
    throw ToolError(place_ + ": has come to be there meanwhile; nothing was kept");
  }
  if (std::rename(path_.c_str(), place_.c_str()) != 0) {
    throw ToolError(place_ + ": " + std::strerror(errno) + "; nothing was kept");
  }
  forget_path(path_);
  sync(fs::path(place_).parent_path().string());
}

}  // namespace corvan_tool
