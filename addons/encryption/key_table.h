// The folders that have a key or are expected to be encrypted.

#ifndef ADDONS_ENCRYPTION_KEY_TABLE_H_
#define ADDONS_ENCRYPTION_KEY_TABLE_H_

#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "addons/encryption/store_keys.h"

namespace Corvan::encryption {

// All members may be called from any thread.
class KeyTable {
 public:
  // The process's table. It is never destroyed, because connections may be opened until the end.
  static KeyTable& get();

  // These take a folder as an absolute path.
  void set(const std::string& folder, const StoreKey& key);
  void expect(const std::string& folder);
  void clear(const std::string& folder);
  void forget(const std::string& folder);

  // The key for a database file with this path: an invalid key if its folder is only marked as
  // encrypted, nothing if no entry covers the file.
  std::optional<StoreKey> find(const std::string& file) const;

 private:
  struct Entry {
    std::string folder;
    StoreKey key;
  };

  Entry* entry(const std::string& folder);
  std::vector<Entry> entries() const;

  mutable std::mutex mutex_;
  std::vector<Entry> entries_;
};

// Whether the file's name is that of a store.
bool is_store_name(const std::string& file);

// The folder's absolute path without symbolic links, as far as it exists; empty if `folder` is
// empty or not a path.
std::string resolved_folder(const cvrtc::Pathname& folder);

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_KEY_TABLE_H_
