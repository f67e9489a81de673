#include "addons/encryption/store_keys.h"

#include <sqlite3.h>

#include <string>

#include "addons/encryption/cipher.h"
#include "addons/encryption/connection_hook.h"
#include "addons/encryption/key_table.h"
#include "addons/encryption/log_line.h"

namespace Corvan {

namespace {

using encryption::KeyTable;
using encryption::log_line;
using encryption::resolved_folder;

// The folder's resolved path if it can be watched, otherwise empty.
std::string watched(const cvrtc::Pathname& folder) {
  const std::string path = resolved_folder(folder);
  if (path.empty()) log_line("no folder is given");
  return path.empty() || !StoreKeys::install() ? std::string() : path;
}

}  // namespace

bool StoreKeys::has_cipher() {
  const encryption::HookPause pause;
  sqlite3* connection = nullptr;
  const bool has =
      sqlite3_open_v2(":memory:", &connection, SQLITE_OPEN_READWRITE, nullptr) == SQLITE_OK &&
      encryption::has_cipher(connection);
  sqlite3_close(connection);
  return has;
}

bool StoreKeys::install() {
  const int code = encryption::install_hook();
  if (code != SQLITE_OK) log_line("SQLite does not register extensions: ", sqlite3_errstr(code));
  return code == SQLITE_OK;
}

bool StoreKeys::set(const cvrtc::Pathname& folder, const StoreKey& key) {
  if (!key.is_valid()) {
    log_line(folder.folder(), ": the key is not valid");
    return false;
  }
  const std::string path = watched(folder);
  if (path.empty()) return false;
  KeyTable::get().set(path, key);
  return true;
}

bool StoreKeys::expect(const cvrtc::Pathname& folder) {
  const std::string path = watched(folder);
  if (path.empty()) return false;
  KeyTable::get().expect(path);
  return true;
}

void StoreKeys::clear(const cvrtc::Pathname& folder) {
  KeyTable::get().clear(resolved_folder(folder));
}

void StoreKeys::forget(const cvrtc::Pathname& folder) {
  KeyTable::get().forget(resolved_folder(folder));
}

KeyRefusal StoreKeys::unlock(sqlite3* connection, const StoreKey& key) {
  const encryption::Unlocking result = key.is_valid()
                                           ? encryption::unlock(connection, key)
                                           : encryption::Unlocking{KeyRefusal::kNoKey, SQLITE_AUTH};
  if (result.refusal != KeyRefusal::kNone) {
    encryption::log_refusal(sqlite3_db_filename(connection, "main"), result);
  }
  return result.refusal;
}

KeyRefusal StoreKeys::last_refusal() {
  return encryption::last_hook_refusal();
}

const char* to_text(KeyRefusal refusal) {
  switch (refusal) {
    case KeyRefusal::kNone:
      return "not refused";
    case KeyRefusal::kNoKey:
      return "the file is encrypted, or expected to be, and its folder has no key";
    case KeyRefusal::kWrongKey:
      return "the key is wrong, or the beginning of the file is damaged";
    case KeyRefusal::kNotEncrypted:
      return "the folder has a key, and the file is not encrypted";
    case KeyRefusal::kNoCipher:
      return "there is a key, and this SQLite or its VFS has no cipher";
    case KeyRefusal::kDamaged:
      return "the key is right, and the file is damaged or was cut off";
    case KeyRefusal::kUnreadable:
      return "the file cannot be read";
  }
  return "unknown";
}

}  // namespace Corvan
