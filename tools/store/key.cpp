#include "tools/store/key.h"

#include "tools/store/connection.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

using Corvan::KeyRefusal;

#if defined(CORVAN_TOOL_HAS_OTHER_SQLITE)
// The library has an SQLite of its own, which would not see the key.
constexpr bool kSharesSqlite = false;
#else
constexpr bool kSharesSqlite = true;
#endif

Corvan::StoreKey& kept_key() {
  static Corvan::StoreKey key;
  return key;
}

}  // namespace

bool has_cipher() {
  return kSharesSqlite && Corvan::StoreKeys::has_cipher();
}

void require_cipher(const std::string& option) {
  if (has_cipher()) return;
  throw ToolError(
      option +
      ": this corvan was built with an SQLite that has no cipher; use one that was built "
      "with a cipher (docs/encryption.md)");
}

void use_key(const Corvan::StoreKey& key) {
  kept_key() = key;
}

const Corvan::StoreKey& used_key() {
  return kept_key();
}

FolderKey::FolderKey(const std::string& folder) : folder_(folder_name(folder)) {
  if (!used_key().is_valid() || Corvan::StoreKeys::set(folder_, used_key())) return;
  throw ToolError(folder + ": the key cannot be set");
}

FolderKey::~FolderKey() {
  if (used_key().is_valid()) Corvan::StoreKeys::forget(folder_);
}

bool is_refused_key(KeyRefusal refusal) {
  return refusal == KeyRefusal::kNoKey || refusal == KeyRefusal::kWrongKey ||
         refusal == KeyRefusal::kNotEncrypted || refusal == KeyRefusal::kNoCipher;
}

const char* refusal_text(KeyRefusal refusal) {
  switch (refusal) {
    case KeyRefusal::kNoKey:
      return "encrypted or damaged: its first page consists of random bytes; if it is encrypted, "
             "name its key with --key-file; if it is damaged, 'corvan salvage' rescues what can be "
             "read";
    case KeyRefusal::kWrongKey:
      return "the key is wrong, or the first page is damaged; with the right key, 'corvan salvage' "
             "rescues what can be read";
    case KeyRefusal::kNotEncrypted:
      return "not encrypted; leave out --key-file or --passphrase";
    default:
      return Corvan::to_text(refusal);
  }
}

}  // namespace corvan_tool
