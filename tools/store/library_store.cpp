#include "tools/store/library_store.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

#include "base/cv_utils.h"
#include "base/log_message.h"
#include "base/pathname.h"
#include "tools/store/connection.h"
#include "tools/store/file_names.h"
#include "tools/store/regular_file.h"
#include "tools/store/store_copy.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

// How many of a store's tables a file has, and how many tables in all: SQLITE_DONE, or the code of
// the failure.
int count_tables(const Connection& connection, int32_t& ours, int32_t& all) {
  return connection.each_row(
      "select count(case when lower(name) in('t_message','t_session','t_sync','t_version') then 1 end),"
      "count(*) from sqlite_master where type='table'",
      [&](sqlite3_stmt* row) {
        ours = sqlite3_column_int(row, 0);
        all = sqlite3_column_int(row, 1);
      });
}

constexpr int32_t kTables = 4;

bool has_store_tables(const Connection& connection) {
  int32_t ours = 0;
  int32_t all = 0;
  return count_tables(connection, ours, all) == SQLITE_DONE && ours == kTables;
}

// Whether a file without a log holds the tables of a store. Nothing is locked or written, not even
// beside it.
bool holds_store_tables(const std::string& file) {
  std::string uri = "file:" + file;
  for (const auto& [character, code] : {std::pair("%", "%25"), {"?", "%3f"}, {"#", "%23"}}) {
    Corvan::CvUtils::string_replace(uri, character, code);
  }
  return has_store_tables(Connection(uri + "?immutable=1", SQLITE_OPEN_READONLY | SQLITE_OPEN_URI));
}

// The page size that a log's header names; 0 if there is no header.
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
  connection.each_row("pragma page_size",
                      [&size](sqlite3_stmt* row) { size = sqlite3_column_int64(row, 0); });
  return size;
}

// The same of a file whose log has its index beside it, as while a client has the store open. The
// log stays as it is; the index may be made anew.
bool holds_store_tables_with_log(const std::string& file) {
  struct stat status = {};
  if (stat((file + kIndexSuffix).c_str(), &status) != 0) return false;
  const int64_t log_page_size = page_size_of_log(file);
  const Connection connection(file, SQLITE_OPEN_READONLY);
  sqlite3_db_config(connection.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
  return has_store_tables(connection) && page_size_of_file(connection) == log_page_size;
}

// SQLite opens what may only be read all the same, and leaves a log and its index beside it.
void require_writable(const std::string& file) {
  if (faccessat(AT_FDCWD, file.c_str(), W_OK, AT_EACCESS) == 0) return;
  if (errno != EACCES && errno != EPERM && errno != EROFS) return;
  throw ToolError(file + ": " + sqlite3_errstr(SQLITE_READONLY) +
                  "; nothing was changed; make the file and its folder writable");
}

}  // namespace

StoreState look_at_store(const std::string& file, const std::string& name, std::string& detail) {
  struct stat status = {};
  if (stat(file.c_str(), &status) != 0) return StoreState::kEmpty;

  const Connection connection(file);
  int32_t ours = 0;
  int32_t all = 0;
  const int rc = count_tables(connection, ours, all);
  if (rc == SQLITE_CORRUPT || rc == SQLITE_NOTADB) {
    detail = connection.error();
    return StoreState::kDamaged;
  }
  if (rc != SQLITE_DONE) throw ToolError(name + ": " + connection.error());
  // A log of another page size can be read. SQLite notices it only here, and when it writes, it
  // reads memory beyond its pages.
  const int checkpoint = connection.run("pragma wal_checkpoint") & 0xff;
  if (checkpoint == SQLITE_CORRUPT || checkpoint == SQLITE_NOTADB) {
    detail = connection.error();
    return StoreState::kDamaged;
  }
  if (all == 0) return StoreState::kEmpty;
  return ours == kTables ? StoreState::kStore : StoreState::kForeign;
}

std::vector<int64_t> messages_being_sent(const std::string& file, const std::string& name) {
  std::vector<int64_t> ids;
  const Connection connection(file);
  const int rc = connection.each_row(
      "select id from t_message where sent_status=1",
      [&ids](sqlite3_stmt* row) { ids.push_back(sqlite3_column_int64(row, 0)); });
  if (rc != SQLITE_DONE) {
    throw ToolError(name + ": " + connection.error() + "; see 'corvan check' and 'corvan salvage'");
  }
  return ids;
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
                      "brings out what can be read");
  }
}

void require_store_in(const std::string& folder, bool may_be_empty) {
  const std::string file = store_file(folder);
  require_regular_files(folder);
  // A log counts as much as the file, and a wrong one makes a damaged store of it.
  if (!(has_log(file) ? holds_store_tables_with_log(file) : holds_store_tables(file))) {
    const StoreCopy copy(folder);
    require_store(store_file(copy.folder()), file, may_be_empty);
  }
  require_writable(file);
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(file, error);
  if (!error) require_writable(real.string() + kLogSuffix);
}

OpenStore::OpenStore(const std::string& folder, const std::string& user) {
  cvrtc::LogMessage::SetSink([this](cvrtc::LoggingSeverity /*severity*/, const std::string& text) {
    if (!failure_.empty()) return;
    const std::size_t last_field = text.rfind(";;;");  // SQLite's own words
    failure_ = last_field == std::string::npos ? text : text.substr(last_field + 3);
  });
  if (!(*this)->init_open_db(cvrtc::Pathname(unmistakable_path(folder), ""), "", user)) {
    const std::string why = failure_.empty() ? "cannot be opened" : failure_;
    Corvan::CvDbSingleton::delete_instance();
    cvrtc::LogMessage::SetSink(nullptr);
    throw ToolError(cvrtc::Pathname(folder, "corvan").pathname() + ": " + why);
  }
}

OpenStore::~OpenStore() {
  Corvan::CvDbSingleton::delete_instance();
  cvrtc::LogMessage::SetSink(nullptr);
}

}  // namespace corvan_tool
