#include "addons/encryption/key_table.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include "addons/encryption/utf8_path.h"

namespace Corvan::encryption {

namespace {

namespace fs = std::filesystem;

constexpr const char* kStoreName = "corvan";
constexpr const char* kAddonPrefix = "corvan-";

bool is_same(const fs::path& a, const fs::path& b) {
  std::error_code missing;
  return a == b || fs::equivalent(a, b, missing);
}

// The store's file can also be a link, whose target is elsewhere and has another name.
bool is_file_of(const fs::path& file, const fs::path& folder) {
  const std::string name = to_utf8(file.filename());
  const bool is_named = name == kStoreName || name.rfind(kAddonPrefix, 0) == 0;
  return (is_named && is_same(file.parent_path(), folder)) || is_same(file, folder / kStoreName);
}

}  // namespace

KeyTable& KeyTable::get() {
  static auto& table = *new KeyTable;
  return table;
}

void KeyTable::set(const std::string& folder, const StoreKey& key) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (Entry* const known = entry(folder)) {
    known->key = key;
  } else {
    entries_.push_back({folder, key});
  }
}

void KeyTable::expect(const std::string& folder) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (entry(folder) == nullptr) entries_.push_back({folder, StoreKey()});
}

void KeyTable::clear(const std::string& folder) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (Entry* const known = entry(folder)) known->key = StoreKey();
}

void KeyTable::forget(const std::string& folder) {
  const std::lock_guard<std::mutex> lock(mutex_);
  if (const Entry* const known = entry(folder)) {
    entries_.erase(entries_.begin() + (known - entries_.data()));
  }
}

std::optional<StoreKey> KeyTable::find(const std::string& file) const {
  const fs::path path = to_path(file);
  const std::vector<Entry> known = entries();
  const auto found = std::find_if(known.begin(), known.end(), [&path](const Entry& entry) {
    return is_file_of(path, to_path(entry.folder));
  });
  if (found == known.end()) return std::nullopt;
  return found->key;
}

KeyTable::Entry* KeyTable::entry(const std::string& folder) {
  const fs::path path = to_path(folder);
  const auto found = std::find_if(entries_.begin(), entries_.end(), [&path](const Entry& known) {
    return is_same(to_path(known.folder), path);
  });
  return found == entries_.end() ? nullptr : &*found;
}

std::vector<KeyTable::Entry> KeyTable::entries() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return entries_;
}

bool is_store_name(const std::string& file) {
  return to_path(file).filename() == kStoreName;
}

std::string resolved_folder(const cvrtc::Pathname& folder) {
  const fs::path given = to_path(folder.folder());
  if (given.empty()) return {};
  std::error_code failure;
  fs::path path = fs::weakly_canonical(fs::absolute(given, failure), failure);
  if (failure) path = fs::absolute(given, failure).lexically_normal();
  // The normal form of "/a/b/" ends with an empty name.
  return to_utf8(path.has_filename() ? path : path.parent_path());
}

}  // namespace Corvan::encryption
