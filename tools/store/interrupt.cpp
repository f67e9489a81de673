#include "tools/store/interrupt.h"

#include <algorithm>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

#include "tools/platform/file_system.h"
#include "tools/platform/process.h"

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

// Another thread may create files in the folder while it is being removed, so this tries again.
// Once the folder is gone, nothing can be created in it.
void remove_for_good(const std::string& folder) {
  constexpr int kAttempts = 1000;
  std::error_code error;
  std::error_code ignored;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    remove_with_content(folder, error);
    const auto status = std::filesystem::symlink_status(std::filesystem::u8path(folder), ignored);
    if (!error && status.type() == std::filesystem::file_type::not_found) return;
  }
}

// Never unlocked again, so that nothing more is kept or begun.
void lock_registry() {
  registry().mutex.lock();
}

std::vector<std::string> unfinished_paths() {
  std::vector<std::string> paths;
  for (const Entry& entry : registry().entries) paths.push_back(entry.path);
  return paths;
}

void remove_all_unfinished() {
  for (const Entry& entry : registry().entries) remove_for_good(entry.path);
}

}  // namespace

void remove_unfinished_when_interrupted() {
  registry();
  handle_interrupts({lock_registry, unfinished_paths, remove_all_unfinished});
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
  remove_with_content(path, ignored);
  forget_path(path);
}

std::string kept_name(const std::string& path) {
  const std::lock_guard<std::mutex> lock(registry().mutex);
  for (const Entry& entry : registry().entries) {
    const std::size_t size = entry.path.size();
    if (path.compare(0, size, entry.path) == 0 &&
        (path.size() == size || is_path_delimiter(path[size]))) {
      return entry.kept + path.substr(size);
    }
  }
  return path;
}

}  // namespace corvan_tool
