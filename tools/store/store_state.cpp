#include "tools/store/store_state.h"

#include <cerrno>
#include <cstdint>
#include <utility>

#include "base/cv_utils.h"
#include "tools/platform/file_system.h"
#include "tools/platform/files.h"
#include "tools/store/connection.h"
#include "tools/store/file_names.h"
#include "tools/store/regular_file.h"
#include "tools/store/sqlite_errors.h"
#include "tools/store/store_copy.h"
#include "tools/store/store_files.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

// Counts the file's tables, and those among them that a store has. Returns SQLITE_DONE, or the code
// of the failure.
int count_tables(const Connection& connection, int32_t& ours, int32_t& all) {
  return connection.each_row(
      "select count(case when lower(name) in('t_message','t_session','t_sync','t_version') then 1 end),"
      "count(*) from sqlite_master where type='table'",
      [&](const Row& row) {
        ours = row.int32(0);
        all = row.int32(1);
      });
}

constexpr int32_t kTables = 4;

bool has_store_tables(const Connection& connection) {
  int32_t ours = 0;
  int32_t all = 0;
  return count_tables(connection, ours, all) == SQLITE_DONE && ours == kTables;
}

// For a file without a log. Locks nothing and writes nothing, not even files beside it.
bool holds_store_tables(const std::string& file) {
  std::string uri = "file:" + file;
  for (const auto& [character, code] : {std::pair("%", "%25"), {"?", "%3f"}, {"#", "%23"}}) {
    Corvan::CvUtils::string_replace(uri, character, code);
  }
  return has_store_tables(Connection(uri + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI));
}

// The page size in the log's header; 0 if there is no header.
int64_t page_size_of_log(const std::string& file) {
  constexpr std::uint64_t kPlace = 8;
  std::string bytes;
  if (!ReadOnlyFile(file + kLogSuffix, true).read(kPlace, 4, bytes)) return 0;
  int64_t size = 0;
  for (const char byte : bytes) size = size << 8 | static_cast<unsigned char>(byte);
  return size;
}

int64_t page_size_of_file(const Connection& connection) {
  int64_t size = 0;
  connection.each_row("pragma page_size", [&size](const Row& row) { size = row.int64(0); });
  return size;
}

// For a file with a log and the log's index, as while a client has the store open. The log is not
// changed; SQLite may rebuild the index.
bool holds_store_tables_with_log(const std::string& file) {
  FileStatus status;
  if (!read_status(file + kIndexSuffix, status)) return false;
  const int64_t log_page_size = page_size_of_log(file);
  const Connection connection(file, SQLITE_OPEN_READONLY);
  sqlite3_db_config(connection.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  return has_store_tables(connection) && page_size_of_file(connection) == log_page_size;
}

// Without this check SQLite would open a read-only file and leave a log and its index beside it.
void require_writable(const std::string& file) {
  if (may_write_file(file)) return;
  if (errno != EACCES && errno != EPERM && errno != EROFS) return;
  throw ToolError(file + ": " + sqlite3_errstr(SQLITE_READONLY) +
                  "; nothing was changed; make the file and its folder writable");
}

}  // namespace

StoreState look_at_store(const std::string& file, const std::string& name, std::string& detail) {
  FileStatus status;
  if (!read_status(file, status)) return StoreState::kEmpty;

  const Connection connection(file);
  require_unlocked(connection, name);
  int32_t ours = 0;
  int32_t all = 0;
  const int rc = count_tables(connection, ours, all);
  if (is_damage(rc)) {
    detail = connection.error();
    return StoreState::kDamaged;
  }
  if (rc != SQLITE_DONE) throw ToolError(name + ": " + connection.error());
  // SQLite reads a log whose page size differs from the file's without an error. It notices
  // the difference only at a checkpoint. If it writes before, it reads memory beyond its pages.
  if (is_damage(connection.run("pragma wal_checkpoint"))) {
    detail = connection.error();
    return StoreState::kDamaged;
  }
  if (all == 0) return StoreState::kEmpty;
  return ours == kTables ? StoreState::kStore : StoreState::kForeign;
}

void require_store(const std::string& file, const std::string& name, bool may_be_empty) {
  std::string detail;
  switch (look_at_store(file, name, detail)) {
    case StoreState::kStore:
      return;
    case StoreState::kEmpty:
      if (may_be_empty) return;
      throw ToolError(name + ": an empty file, not a message store");
    case StoreState::kForeign:
      throw ToolError(name + ": a database, but not a message store");
    case StoreState::kDamaged:
      throw ToolError(name + ": damaged (" + detail +
                      "); keep a copy: opening it with the library deletes it; 'corvan salvage' "
                      "rescues what can be read");
  }
}

std::string damage_of_store(const std::string& file, const std::string& name) {
  std::string detail;
  if (look_at_store(file, name, detail) == StoreState::kDamaged) return detail;
  require_store(file, name, false);
  return "";
}

void require_store_in(const std::string& folder, bool may_be_empty) {
  const std::string file = store_file(folder);
  require_regular_files(store_file(folder));
  // A log is part of the store: with a log that does not fit, the store counts as damaged.
  if (!(has_log(file) ? holds_store_tables_with_log(file) : holds_store_tables(file))) {
    const StoreCopy copy(folder);
    require_store(store_file(copy.folder()), file, may_be_empty);
  }
  require_writable(file);
  require_writable(real_file(file) + kLogSuffix);
}

}  // namespace corvan_tool
