#include "addons/encryption/connection_hook.h"

#include <sqlite3.h>

#include <new>
#include <optional>
#include <string>

#include "addons/encryption/cipher.h"
#include "addons/encryption/file_kind.h"
#include "addons/encryption/key_table.h"
#include "addons/encryption/log_line.h"

namespace Corvan::encryption {

namespace {

thread_local bool is_paused = false;
thread_local KeyRefusal last_refusal = KeyRefusal::kNone;

// Decides about a connection whose file has this path. Nothing if the connection is left alone.
std::optional<Unlocking> decide(sqlite3* connection, const std::string& file) {
  const std::optional<StoreKey> key = KeyTable::get().find(file);
  if (key && key->is_valid()) return unlock(connection, *key);
  if (key) return Unlocking{KeyRefusal::kNoKey, SQLITE_AUTH};
  if (!is_store_name(file)) return std::nullopt;
  switch (main_file_kind(connection)) {
    case FileKind::kRandom:
      return Unlocking{KeyRefusal::kNoKey, SQLITE_AUTH};
    case FileKind::kUnreadable:  // it may be encrypted, and the store's next reading may succeed
      return Unlocking{KeyRefusal::kUnreadable, SQLITE_IOERR};
    default:
      return std::nullopt;
  }
}

void report(const std::string& file, const Unlocking& result, char** message) {
  log_refusal(file.c_str(), result);
  if (message != nullptr) *message = sqlite3_mprintf("%s", to_text(result.refusal));
}

int look_at(sqlite3* connection, char** message) {
  const char* const name = sqlite3_db_filename(connection, "main");
  if (is_paused || name == nullptr || *name == '\0') return SQLITE_OK;
  const std::string file = name;
  const std::optional<Unlocking> result = decide(connection, file);
  if (!result) return SQLITE_OK;
  last_refusal = result->refusal;
  if (result->refusal == KeyRefusal::kNone) return SQLITE_OK;
  report(file, *result, message);
  return result->code;
}

// An exception must not pass through SQLite.
int on_open(sqlite3* connection, char** message, const void* /*routines*/) noexcept {
  try {
    return look_at(connection, message);
  } catch (const std::bad_alloc&) {
    last_refusal = KeyRefusal::kUnreadable;
    log_line("a file was not opened: memory ran out");
    return SQLITE_NOMEM;
  }
}

}  // namespace

int install_hook() {
  return sqlite3_auto_extension(reinterpret_cast<void (*)()>(on_open));
}

KeyRefusal last_hook_refusal() {
  return last_refusal;
}

HookPause::HookPause() : was_paused_(is_paused) {
  is_paused = true;
}

HookPause::~HookPause() {
  is_paused = was_paused_;
}

}  // namespace Corvan::encryption
