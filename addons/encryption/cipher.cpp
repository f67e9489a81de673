#include "addons/encryption/cipher.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>

#include "addons/encryption/log_line.h"
#include "addons/encryption/secret.h"

namespace Corvan::encryption {

namespace {

using FirstPage = std::array<unsigned char, 4096>;

constexpr std::string_view kPlainHeader("SQLite format 3\0", 16);

int run(sqlite3* connection, const char* sql) {
  return sqlite3_exec(connection, sql, nullptr, nullptr, nullptr);
}

// Whether a pragma answers with a row. SQLite ignores pragmas that it does not know.
bool answers(sqlite3* connection, const char* pragma) {
  bool answered = false;
  const auto note = [](void* result, int /*columns*/, char** values, char** /*names*/) {
    *static_cast<bool*>(result) = values[0] != nullptr;
    return 0;
  };
  return sqlite3_exec(connection, pragma, note, &answered, nullptr) == SQLITE_OK && answered;
}

bool is_sqlcipher(sqlite3* connection) {
  return answers(connection, "pragma cipher_version");
}
bool is_multiple_ciphers(sqlite3* connection) {
  return answers(connection, "pragma cipher");
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

FileKind kind_of(const unsigned char* bytes, std::size_t count) {
  if (count == 0) return FileKind::kEmpty;
  const std::string_view begin(reinterpret_cast<const char*>(bytes), count);
  const std::size_t header = std::min(count, kPlainHeader.size());
  if (begin.substr(0, header) == kPlainHeader.substr(0, header)) return FileKind::kPlain;
  return is_random(bytes, count) ? FileKind::kRandom : FileKind::kOther;
}

// Settings that must not depend on how the cipher was built. SQLCipher takes the page size only
// after the key, and would otherwise choose one of its own.
void configure(sqlite3* connection, bool sqlcipher) {
  run(connection, sqlcipher ? "pragma cipher_page_size=4096" : "pragma page_size=4096");
  run(connection, "pragma temp_store=2");
}

// Reads all of the schema. If it cannot be read, the store's first statement would fail.
Unlocking probe(sqlite3* connection) {
  const int code = run(connection, "select count(*) from sqlite_master");
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

// A connection that is closed with a wrong key must not write the log back to the file.
void leave_log_alone([[maybe_unused]] sqlite3* connection) {
#if defined(SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE)
  sqlite3_db_config(connection, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
#endif
}

// SQLite overwrites the memory that it frees, which contains copies of the key's statement. Builds
// that cannot do so ignore the pragma.
void choose_cipher(sqlite3* connection) {
  run(connection, "pragma memory_security=fill");
  run(connection, "pragma cipher='chacha20'");
}

Unlocking give_key(sqlite3* connection, const StoreKey& key) {
  const bool sqlcipher = is_sqlcipher(connection);
  if (!sqlcipher && !is_multiple_ciphers(connection)) {
    return {KeyRefusal::kNoCipher, SQLITE_AUTH};
  }
  if (!sqlcipher) choose_cipher(connection);
  const int keyed = run(connection, key.secret().c_str());
  if (keyed == SQLITE_NOMEM) return {KeyRefusal::kUnreadable, keyed};
  if (keyed != SQLITE_OK) return {KeyRefusal::kNoCipher, keyed};  // the VFS does not encrypt
  configure(connection, sqlcipher);
  return probe(connection);
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
  return is_sqlcipher(connection) || is_multiple_ciphers(connection);
}

Unlocking unlock(sqlite3* connection, const StoreKey& key) {
  const FileKind kind = main_file_kind(connection);
  if (kind == FileKind::kUnreadable) return {KeyRefusal::kUnreadable, SQLITE_IOERR};
  if (kind == FileKind::kPlain) return {KeyRefusal::kNotEncrypted, SQLITE_NOTADB};
  const Unlocking result = give_key(connection, key);
  if (result.refusal != KeyRefusal::kNone) leave_log_alone(connection);
  return result;
}

void log_refusal(const char* file, const Unlocking& result) {
  log_line(file == nullptr ? "" : file, ": ", to_text(result.refusal), " (",
           sqlite3_errstr(result.code), ")");
}

}  // namespace Corvan::encryption
