// The key of the stores that this run of the tool opens and creates.

#ifndef TOOLS_STORE_KEY_H_
#define TOOLS_STORE_KEY_H_

#include <string>

#include "addons/encryption/store_keys.h"
#include "base/pathname.h"

namespace corvan_tool {

// Whether this program's library and its SQLite can encrypt stores.
bool has_cipher();

// Throws ToolError unless has_cipher(). `option` is the name of the option that gave the key.
void require_cipher(const std::string& option);

// From now on, every store that is opened must be encrypted with this key, and every new one is.
void use_key(const Corvan::StoreKey& key);

// The key given to use_key(); not valid if there was none.
const Corvan::StoreKey& used_key();

// While it exists, the libraries open the files of a folder with used_key(), if that is valid.
class FolderKey {
 public:
  // Throws ToolError if the key cannot be set.
  explicit FolderKey(const std::string& folder);
  FolderKey(const FolderKey&) = delete;
  FolderKey& operator=(const FolderKey&) = delete;
  ~FolderKey();

 private:
  const cvrtc::Pathname folder_;
};

// Whether the file was refused because of its key. Damage and locks are other reasons.
bool is_refused_key(Corvan::KeyRefusal refusal);

// Why a store with or without a key was refused, and what to do.
const char* refusal_text(Corvan::KeyRefusal refusal);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_KEY_H_
