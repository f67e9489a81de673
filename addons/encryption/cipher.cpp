#include "addons/encryption/cipher.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include "addons/encryption/connection_hook.h"
#include "addons/encryption/log_line.h"
#include "addons/encryption/secret.h"

namespace Corvan::encryption {

namespace {

using FirstPage = std::array<unsigned char, 4096>;

constexpr std::string_view kPlainHeader("SQLite format 3\0", 16);

int run(sqlite3* connection, const char* sql) {
  return sqlite3_exec(connection, sql, nullptr, nullptr, nullptr);
}

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

// Pearson's chi-squared statistic of the bytes' values. For random bytes it is about 255, with a
// standard deviation of 23. Text, zeros and SQLite's pages are far beyond the limit.
bool is_random(const unsigned char* bytes, std::size_t count) {
  constexpr double kValues = 256;
  constexpr double kLimit = 255 + 12 * 23;
  std::array<double, 256> seen{};
  for (std::size_t i = 0; i < count; ++i) ++seen[bytes[i]];
  double squares = 0;
  for (const double value : seen) squares += value * value;
  return squares * kValues / static_cast<double>(count) - static_cast<double>(count) < kLimit;
}

// Whether any block consists of random bytes: part of a page may have been overwritten.
bool has_random_block(const unsigned char* bytes, std::size_t count) {
  constexpr std::size_t kBlock = 512;
  if (count < kBlock) return is_random(bytes, count);
  for (std::size_t i = 0; i + kBlock <= count; i += kBlock) {
    if (is_random(bytes + i, kBlock)) return true;
  }
  return false;
}

FileKind kind_of(const unsigned char* bytes, std::size_t count) {
  if (count == 0) return FileKind::kEmpty;
  const std::string_view begin(reinterpret_cast<const char*>(bytes), count);
  const std::size_t header = std::min(count, kPlainHeader.size());
  if (begin.substr(0, header) == kPlainHeader.substr(0, header)) return FileKind::kPlain;
  return has_random_block(bytes, count) ? FileKind::kRandom : FileKind::kOther;
}

// Settings that must not depend on how the cipher was built. SQLCipher takes the page size only
// after the key, and would otherwise choose one of its own.
int configure(sqlite3* connection, Cipher cipher) {
  const bool is_sqlcipher = cipher == Cipher::kSqlcipher;
  const int code =
      run(connection, is_sqlcipher ? "pragma cipher_page_size=4096" : "pragma page_size=4096");
  return code == SQLITE_OK ? run(connection, "pragma temp_store=2") : code;
}

// Another connection that is being closed, or that recovers the log, locks the file for a moment.
// The store, too, would open the file then.
int read_schema(sqlite3* connection) {
  constexpr std::chrono::milliseconds kPause(5);
  constexpr int kAttempts = 60;
  int code = SQLITE_OK;
  for (int i = 0; i < kAttempts; ++i) {
    code = run(connection, "select count(*) from sqlite_master");
    if ((code & 0xff) != SQLITE_BUSY) break;
    std::this_thread::sleep_for(kPause);
  }
  return code;
}

// Reads all of the schema. If it cannot be read, the store's first statement would fail.
Unlocking probe(sqlite3* connection) {
  const int code = read_schema(connection);
  switch (code & 0xff) {
    case SQLITE_OK:
      return {};
    case SQLITE_NOTADB:
      return {KeyRefusal::kWrongKey, code};
    case SQLITE_CORRUPT:
      return {KeyRefusal::kDamaged, code};
    default:
      return {KeyRefusal::kUnreadable, code};
  }
}

// A connection that is closed with a wrong key must not write the log back to the file. SQLite 3.16
// and later can be told so.
constexpr int kFirstThatLeavesLog = 3016000;

void leave_log_alone([[maybe_unused]] sqlite3* connection) {
#if defined(SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE)
  sqlite3_db_config(connection, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
#endif
}

// Wipes memory that was released: blocks of this size are likely to be in the places where earlier
// ones were.
void wipe_released(std::size_t size) {
  std::array<void*, 24> blocks{};
  for (void*& block : blocks) {
    block = sqlite3_malloc(static_cast<int>(size));
    if (block != nullptr) wipe(block, size);
  }
  for (void* const block : blocks) sqlite3_free(block);
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

// The first makes SQLite overwrite the memory that it frees, which contains copies of the key's
// statement. Builds that cannot do so ignore it.
int choose_cipher(sqlite3* connection) {
  const int code = run(connection, "pragma memory_security=fill");
  return code == SQLITE_OK ? run(connection, "pragma cipher='chacha20'") : code;
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
  const Unlocking keyed = check_keyed(connection, cipher);
  return keyed.refusal == KeyRefusal::kNone ? probe(connection) : keyed;
}

bool has_log(const char* file) {
  std::error_code missing;
  const auto size = std::filesystem::file_size(std::string(file) + "-wal", missing);
  return !missing && size > 0;
}

// While SQLite recovers a log whose first frame is not valid, it copies a block of memory that it
// has not written to into the file `*-shm`. The block can have held messages.
void wipe_for_recovery() {
  constexpr std::size_t kPage = 4096;
  constexpr std::size_t kFrameHeader = 24;
  constexpr std::size_t kIndexBlock = 32768;
  wipe_released(kPage + kFrameHeader + kIndexBlock);
}

// Tries the key on a connection that cannot write, and that leaves the log when it is closed. A
// refusal counts unless the reason may be that it cannot write.
Unlocking try_read_only(const char* file, const StoreKey& key) {
  const HookPause pause;
  sqlite3* trial = nullptr;
  const int code = sqlite3_open_v2(file, &trial, SQLITE_OPEN_READONLY, nullptr);
  const Unlocking result =
      code == SQLITE_OK ? give_key(trial, key) : Unlocking{KeyRefusal::kUnreadable, code};
  sqlite3_close(trial);
  const int kind = result.code & 0xff;
  return kind == SQLITE_READONLY || kind == SQLITE_CANTOPEN ? Unlocking() : result;
}

// Before a file with a log is read. Older releases of SQLite need a trial.
Unlocking prepare_for_log(sqlite3* connection, const StoreKey& key) {
  const char* const file = sqlite3_db_filename(connection, "main");
  if (file == nullptr || !has_log(file)) return {};
  wipe_for_recovery();
  if (sqlite3_libversion_number() >= kFirstThatLeavesLog) return {};
  return try_read_only(file, key);
}

}  // namespace

FileKind main_file_kind(sqlite3* connection) {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(connection, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  if (file == nullptr || file->pMethods == nullptr) return FileKind::kUnreadable;
  sqlite3_int64 size = 0;
  if (file->pMethods->xFileSize(file, &size) != SQLITE_OK) return FileKind::kUnreadable;
  FirstPage page{};
  const auto count = static_cast<int>(std::min<sqlite3_int64>(size, page.size()));
  if (count > 0 && file->pMethods->xRead(file, page.data(), count, 0) != SQLITE_OK) {
    return FileKind::kUnreadable;
  }
  return kind_of(page.data(), static_cast<std::size_t>(count));
}

bool has_cipher(sqlite3* connection) {
  Cipher cipher = Cipher::kNone;
  return find_cipher(connection, cipher) == SQLITE_OK && cipher != Cipher::kNone;
}

Unlocking unlock(sqlite3* connection, const StoreKey& key) {
  const FileKind kind = main_file_kind(connection);
  if (kind == FileKind::kUnreadable) return {KeyRefusal::kUnreadable, SQLITE_IOERR};
  if (kind == FileKind::kPlain) return {KeyRefusal::kNotEncrypted, SQLITE_NOTADB};
  const Unlocking trial = prepare_for_log(connection, key);
  if (trial.refusal != KeyRefusal::kNone) return trial;
  const Unlocking result = give_key(connection, key);
  if (result.refusal != KeyRefusal::kNone) leave_log_alone(connection);
  return result;
}

void log_refusal(const char* file, const Unlocking& result) {
  log_line(file == nullptr ? "" : file, ": ", to_text(result.refusal), " (",
           sqlite3_errstr(result.code), ")");
}

}  // namespace Corvan::encryption
