#include "addons/encryption/cipher.h"

#include <sqlite3.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>

#include "addons/encryption/connection_hook.h"
#include "addons/encryption/file_kind.h"
#include "addons/encryption/log_line.h"
#include "addons/encryption/utf8_path.h"

namespace Corvan::encryption {

namespace {

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

Unlocking open_with(sqlite3* connection, const StoreKey& key) {
  const Unlocking keyed = give_key(connection, key);
  return keyed.refusal == KeyRefusal::kNone ? probe(connection) : keyed;
}

// A connection that is closed with a wrong key must not write the log back to the file. SQLite 3.16
// and later can be told so; the headers may be older than the library.
constexpr int kFirstThatLeavesLog = 3016000;

void leave_log_alone(sqlite3* connection) {
  constexpr int kNoCheckpointOnClose = 1006;  // SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE
  sqlite3_db_config(connection, kNoCheckpointOnClose, 1, nullptr);
}

bool has_content(const std::string& file) {
  std::error_code missing;
  const auto size = std::filesystem::file_size(to_path(file), missing);
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

Unlocking try_key(const std::string& name, int flags, const StoreKey& key) {
  const HookPause pause;
  sqlite3* trial = nullptr;
  const int code = sqlite3_open_v2(name.c_str(), &trial, flags, nullptr);
  const Unlocking result =
      code == SQLITE_OK ? open_with(trial, key) : Unlocking{KeyRefusal::kUnreadable, code};
  sqlite3_close(trial);
  return result;
}

// Tries the key on a connection that cannot write, and that leaves the log when it is closed. A
// refusal counts unless the reason may be that it cannot write.
Unlocking try_beside_log(const std::string& file, const StoreKey& key) {
  const Unlocking result = try_key(file, SQLITE_OPEN_READONLY, key);
  const int kind = result.code & 0xff;
  return kind == SQLITE_READONLY || kind == SQLITE_CANTOPEN ? Unlocking() : result;
}

// A path as a URI of a file that SQLite must neither lock nor change.
std::string immutable_uri(const std::string& file) {
  std::string uri = "file:";
  for (const char c : file) {
    const bool is_special = c == '%' || c == '?' || c == '#';
    uri += is_special ? (c == '%' ? "%25" : c == '?' ? "%3f" : "%23") : std::string(1, c);
  }
  return uri + "?immutable=1";
}

// The pages that the database had when the journal's transaction began; 0 if the file is no journal
// that SQLite would use.
std::uint64_t pages_before(const std::string& journal) {
  constexpr std::string_view kMagic("\xd9\xd5\x05\xf9\x20\xa1\x63\xd7", 8);
  constexpr std::size_t kPages = 16;
  std::array<char, 20> header{};
  std::ifstream file(to_path(journal), std::ios::binary);
  if (!file.read(header.data(), header.size())) return 0;
  if (std::string_view(header.data(), kMagic.size()) != kMagic) return 0;
  std::uint64_t pages = 0;
  for (std::size_t i = kPages; i < header.size(); ++i) {
    pages = pages << 8U | static_cast<unsigned char>(header.at(i));
  }
  return pages;
}

// With a wrong key, SQLite would write the pages of an interrupted transaction's journal back to
// the file. The file is in the middle of the transaction, so that only the first page tells
// something.
Unlocking try_beside_journal(const std::string& file, const StoreKey& key) {
  constexpr int kFlags = SQLITE_OPEN_READONLY | SQLITE_OPEN_URI;
  const Unlocking result = try_key(immutable_uri(file), kFlags, key);
  return result.refusal == KeyRefusal::kWrongKey ? result : Unlocking();
}

// What a wrong key could change is tried first on a connection that changes nothing.
Unlocking try_first(sqlite3* connection, const StoreKey& key) {
  const char* const name = sqlite3_db_filename(connection, "main");
  const std::string file = name == nullptr ? "" : name;
  // A database of one page has no rows. After a loss of power, its page can be incomplete.
  if (pages_before(file + "-journal") > 1) {
    const Unlocking result = try_beside_journal(file, key);
    if (result.refusal != KeyRefusal::kNone) return result;
  }
  if (!has_content(file + "-wal")) return {};
  wipe_for_recovery();
  if (sqlite3_libversion_number() >= kFirstThatLeavesLog) return {};
  return try_beside_log(file, key);
}

}  // namespace

Unlocking unlock(sqlite3* connection, const StoreKey& key) {
  const FileKind kind = main_file_kind(connection);
  if (kind == FileKind::kUnreadable) return {KeyRefusal::kUnreadable, SQLITE_IOERR};
  if (kind == FileKind::kPlain) return {KeyRefusal::kNotEncrypted, SQLITE_NOTADB};
  const Unlocking trial = try_first(connection, key);
  if (trial.refusal != KeyRefusal::kNone) return trial;
  const Unlocking result = open_with(connection, key);
  if (result.refusal != KeyRefusal::kNone) leave_log_alone(connection);
  return result;
}

void log_refusal(const char* file, const Unlocking& result) {
  log_line(file == nullptr ? "" : file, ": ", to_text(result.refusal), " (",
           sqlite3_errstr(result.code), ")");
}

}  // namespace Corvan::encryption
