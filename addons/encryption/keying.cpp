#include "addons/encryption/keying.h"

#include <sqlite3.h>

#include <array>

#include "addons/encryption/secret.h"

namespace Corvan::encryption {

namespace {

enum class Cipher { kNone, kMultipleCiphers, kSqlcipher };

// Whether a pragma answers with a row. SQLite ignores pragmas that it does not know. Returns
// SQLite's result code.
int ask(sqlite3* connection, const char* pragma, bool& answered) {
  answered = false;
  const auto note = [](void* result, int /*columns*/, char** values, char** /*names*/) {
    *static_cast<bool*>(result) = values[0] != nullptr;
    return 0;
  };
  return sqlite3_exec(connection, pragma, note, &answered, nullptr);
}

int find_cipher(sqlite3* connection, Cipher& cipher) {
  bool answered = false;
  cipher = Cipher::kNone;
  int code = ask(connection, "pragma cipher_version", answered);
  if (answered) cipher = Cipher::kSqlcipher;
  if (code != SQLITE_OK || answered) return code;
  code = ask(connection, "pragma cipher", answered);
  if (answered) cipher = Cipher::kMultipleCiphers;
  return code;
}

// Settings that must not depend on how the cipher was built. SQLCipher takes the page size only
// after the key, and would otherwise choose one of its own.
int configure(sqlite3* connection, Cipher cipher) {
  const bool is_sqlcipher = cipher == Cipher::kSqlcipher;
  const int code =
      run(connection, is_sqlcipher ? "pragma cipher_page_size=4096" : "pragma page_size=4096");
  return code == SQLITE_OK ? run(connection, "pragma temp_store=2") : code;
}

// Ciphers set the key while the statement is prepared. It is not run, because SQLite's log quotes
// statements that fail; newer releases also quote those that cannot be prepared, unless told not
// to.
int prepare_unlogged(sqlite3* connection, const char* sql) {
  sqlite3_stmt* statement = nullptr;
#if defined(SQLITE_PREPARE_DONT_LOG)
  const int code =
      sqlite3_prepare_v3(connection, sql, -1, SQLITE_PREPARE_DONT_LOG, &statement, nullptr);
#else
  const int code = sqlite3_prepare_v2(connection, sql, -1, &statement, nullptr);
#endif
  sqlite3_finalize(statement);
  return code;
}

// Prepares the statement that sets the key. SQLite and the cipher release their copies of it
// without wiping them. Copies hold all of it, or only the value, which is shorter.
int set_key(sqlite3* connection, const Secret& statement) {
  constexpr std::size_t kShorter = 15;
  const int code = prepare_unlogged(connection, statement.c_str());
  const std::size_t size = statement.view().size() + 1;
  wipe_released(size);
  if (size > kShorter) wipe_released(size - kShorter);
  return code;
}

// SQLCipher does not report that memory ran out while it took the key. The connection would then
// store plain text.
Unlocking check_keyed(sqlite3* connection, Cipher cipher) {
  if (cipher != Cipher::kSqlcipher) return {};
  bool has_codec = false;
  const int code = ask(connection, "pragma cipher_page_size", has_codec);
  if (code == SQLITE_OK && has_codec) return {};
  return {KeyRefusal::kUnreadable, code == SQLITE_OK ? SQLITE_NOMEM : code};
}

// The first pragma makes SQLite overwrite the memory that it frees, which contains copies of the
// key's statement; builds that cannot do so ignore it. AEGIS-256 takes a fifth of the time of
// ChaCha20-Poly1305, the cipher's default, on processors with AES instructions.
int choose_cipher(sqlite3* connection) {
  const int code = run(connection, "pragma memory_security=fill");
  return code == SQLITE_OK ? run(connection, "pragma cipher='aegis'") : code;
}

}  // namespace

int run(sqlite3* connection, const char* sql) {
  return sqlite3_exec(connection, sql, nullptr, nullptr, nullptr);
}

bool has_cipher(sqlite3* connection) {
  Cipher cipher = Cipher::kNone;
  return find_cipher(connection, cipher) == SQLITE_OK && cipher != Cipher::kNone;
}

// Every statement must succeed: without one of them, a new file would get another format.
Unlocking give_key(sqlite3* connection, const StoreKey& key) {
  Cipher cipher = Cipher::kNone;
  int code = find_cipher(connection, cipher);
  if (code == SQLITE_OK && cipher == Cipher::kNone) return {KeyRefusal::kNoCipher, SQLITE_AUTH};
  if (code == SQLITE_OK && cipher == Cipher::kMultipleCiphers) {
    code = choose_cipher(connection);
  }
  if (code != SQLITE_OK) return {KeyRefusal::kUnreadable, code};
  code = set_key(connection, key.secret());
  if (code == SQLITE_OK) code = configure(connection, cipher);
  if (code == SQLITE_NOMEM) return {KeyRefusal::kUnreadable, code};
  if (code != SQLITE_OK) return {KeyRefusal::kNoCipher, code};  // the VFS does not encrypt
  return check_keyed(connection, cipher);
}

void wipe_released(std::size_t size) {
  std::array<void*, 24> blocks{};
  for (void*& block : blocks) {
    block = sqlite3_malloc(static_cast<int>(size));
    if (block != nullptr) wipe(block, size);
  }
  for (void* const block : blocks) sqlite3_free(block);
}

}  // namespace Corvan::encryption
