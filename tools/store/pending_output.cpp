#include "tools/store/pending_output.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iterator>
#include <mutex>
#include <string>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "tools/store/abandoned_folders.h"
#include "tools/store/output_place.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

namespace fs = std::filesystem;

// What an interrupt removes.
struct Entry {
  std::string path;
  std::string kept;  // what it will be called; of a temporary folder its path
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

// With the registry's lock held.
void forget_path(const std::string& path) {
  std::vector<Entry>& all = registry().entries;
  all.erase(std::remove_if(all.begin(), all.end(),
                           [&path](const Entry& one) { return one.path == path; }),
            all.end());
}

void remove_path(const std::string& path) {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  std::error_code ignored;  // it may be kept
  fs::remove_all(path, ignored);
  forget_path(path);
}

// The pattern of the temporary name beside a place. Of a name that leaves no room for more only the
// beginning, in whole characters, is in it.
std::string temporary_name(const fs::path& place) {
  constexpr const char* kMark = ".unfinished-XXXXXX";
  constexpr std::size_t kLongest = NAME_MAX - std::char_traits<char>::length(kMark);
  std::string name = place.filename().string();
  if (name.size() > kLongest) {
    std::size_t size = kLongest;
    while (size > 0 && (static_cast<unsigned char>(name[size]) & 0xC0) == 0x80) --size;
    name.resize(size);
  }
  return (place.parent_path() / (name + kMark)).string();
}

// Makes an empty file or folder in place of the pattern, its owner's alone. False when it cannot.
bool make_temporary(std::string& pattern, bool is_folder) {
  if (is_folder) return mkdtemp(pattern.data()) != nullptr;
  const int fd = mkstemp(pattern.data());
  if (fd >= 0) close(fd);
  return fd >= 0;
}

// Whether something is there. Throws ToolError when that cannot be told.
bool is_there(const std::string& place) {
  std::error_code error;
  const fs::file_type type = fs::symlink_status(place, error).type();
  if (type == fs::file_type::none) throw ToolError(place + ": " + error.message());
  return type != fs::file_type::not_found;
}

void require_folder(const std::string& path) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (fs::is_directory(status)) return;
  if (!fs::status_known(status)) throw ToolError(path + ": " + error.message());
  throw ToolError(
      path + (fs::exists(status) ? ": not a folder; name one" : ": no such folder; make it first"));
}

// Gives a file or folder its name unless something has it: 0, or the error. Where the system or
// the file system cannot do that in one step, what another process makes in between is replaced.
int rename_to_free(const std::string& from, const std::string& to) {
#ifdef RENAME_NOREPLACE
  const int rc = renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE);
  if (rc == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
#endif
  if (is_there(to)) return EEXIST;
  return std::rename(from.c_str(), to.c_str()) == 0 ? 0 : errno;
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
void remove_for_good(const std::string& folder) {
  constexpr int kAttempts = 1000;
  std::error_code error;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    fs::remove_all(folder, error);
    if (!error && fs::symlink_status(folder, error).type() == fs::file_type::not_found) return;
  }
}

void wait_for_interrupt(sigset_t signals) {
  int signal_number = 0;
  if (sigwait(&signals, &signal_number) != 0) return;
  // Held to the end, so that nothing more is kept or begun.
  registry().mutex.lock();
  for (const Entry& entry : registry().entries) remove_for_good(entry.path);
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

// Syncs the whole file system of a file or folder: thousands of files would wait for the disk one
// by one. False where that cannot be done.
bool sync_file_system([[maybe_unused]] const std::string& path) {
  bool done = false;
#ifdef __linux__
  const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
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

// Makes the name of a file or folder durable.
void require_sync_of_name(const std::string& place) {
  if (sync(fs::path(place).parent_path().string())) return;
  const int error = errno;
  // A folder in which one may only write.
  if (error == EACCES && sync_file_system(place)) return;
  throw ToolError(place + ": is there and whole, but its folder cannot be synced: " +
                  std::strerror(error) + "; a power loss may take its name away");
}

}  // namespace

void remove_unfinished_when_interrupted() {
  sigset_t signals;
  sigemptyset(&signals);
  bool any = false;
  for (const int signal_number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
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
  const std::string pattern = (parent / (std::string(kTemporaryPrefix) + "XXXXXX")).string();
  // Between its making and its entry no interrupt may come.
  const std::lock_guard<std::mutex> lock(registry().mutex);
  while (lock_ == nullptr || !lock_->is_held()) {
    std::string name = pattern;
    if (mkdtemp(name.data()) == nullptr) {
      throw ToolError(name + ": " + std::strerror(errno) +
                      "; name a folder with room for a copy in TMPDIR");
    }
    path_ = name + "/";
    try {
      lock_ = std::make_unique<FolderLock>(name);
    } catch (const ToolError&) {
      rmdir(name.c_str());
      throw;
    }
  }
  registry().entries.push_back({path_, path_});
}

TemporaryFolder::~TemporaryFolder() {
  remove_path(path_);
}

Unfinished::Unfinished(std::string place, bool is_folder) : place_(std::move(place)) {
  while (place_.size() > 1 && place_.back() == '/') place_.pop_back();
  if (is_there(place_))
    throw ToolError(place_ + ": is there already; name a place where nothing is");
  const std::string parent = fs::path(place_).parent_path().string();
  if (!parent.empty()) require_folder(parent);
  require_no_store_file(place_);
  path_ = temporary_name(place_);
  // Between its making and its entry no interrupt may come.
  const std::lock_guard<std::mutex> lock(registry().mutex);
  if (!make_temporary(path_, is_folder)) {
    throw ToolError(place_ + ": cannot be made: " + std::strerror(errno));
  }
  registry().entries.push_back({path_, place_});
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

Unfinished::~Unfinished() {
  remove_path(path_);
}

void Unfinished::keep() {
  require_sync_of_all(path_);
  const std::lock_guard<std::mutex> lock(registry().mutex);
  const int error = rename_to_free(path_, place_);
  if (error == EEXIST) {
    throw ToolError(place_ + ": has come to be there meanwhile; nothing was kept");
  }
  if (error != 0) throw ToolError(place_ + ": " + std::strerror(error) + "; nothing was kept");
  forget_path(path_);
  require_sync_of_name(place_);
}

}  // namespace corvan_tool
