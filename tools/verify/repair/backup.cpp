#include "tools/verify/repair/backup.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <sqlite3.h>

#include <cstdint>
#include <ctime>
#include <filesystem>
#include <memory>
#include <system_error>

#include "tools/platform/file_system.h"
#include "tools/store/connection.h"
#include "tools/store/interrupt.h"
#include "tools/ui/error.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

namespace {

std::string utc_text(const std::string& folder) {
  try {
    return fmt::format("{:%Y%m%dT%H%M%SZ}", fmt::gmtime(std::time(nullptr)));
  } catch (const fmt::format_error&) {
    throw ToolError(folder + ": the clock has no valid time; name a folder with --backup");
  }
}

[[noreturn]] void refuse_copy(const std::string& to, int rc, const std::string& why) {
  const int code = rc & 0xff;
  const bool is_place = code == SQLITE_FULL || code == SQLITE_IOERR || code == SQLITE_CANTOPEN;
  throw ToolError(
      fmt::format("{}: the copy cannot be made ({}); nothing was changed{}", kept_name(to), why,
                  is_place ? "; make room there, or name another folder with --backup" : ""));
}

// Copies page by page. Returns SQLITE_DONE, or the code of the failure.
int copy_pages(sqlite3_backup* copy, Progress& progress) {
  constexpr int kPagesPerStep = 1024;
  int rc = SQLITE_OK;
  while (rc == SQLITE_OK) {
    rc = sqlite3_backup_step(copy, kPagesPerStep);
    const int done = sqlite3_backup_pagecount(copy) - sqlite3_backup_remaining(copy);
    progress.show(static_cast<std::uint64_t>(done));
  }
  return rc;
}

}  // namespace

std::string backup_place(const std::string& folder) {
  // The folder may be given as "." or "..".
  std::error_code error;
  const std::filesystem::path whole =
      std::filesystem::canonical(std::filesystem::u8path(folder), error);
  if (error) throw ToolError(folder + ": " + error.message() + "; nothing was changed");
  const std::string place = fmt::format("{}.before-repair-{}", path_text(whole), utc_text(folder));
  std::string free_place = place;
  for (int i = 2; std::filesystem::exists(std::filesystem::u8path(free_place), error); ++i) {
    free_place = fmt::format("{}-{}", place, i);
  }
  return free_place;
}

// Through SQLite: opening and closing the file in any other way would release the locks that this
// process holds.
void copy_committed(const std::string& file, const std::string& to, Progress& progress) {
  const Connection from(file, SQLITE_OPEN_READONLY);
  const Connection target(to, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
  for (const Connection* const one : {&from, &target}) {
    if (one->opened() != SQLITE_OK) refuse_copy(to, one->opened(), one->error());
  }
  sqlite3_backup* const copy = sqlite3_backup_init(target.handle(), "main", from.handle(), "main");
  if (copy == nullptr) refuse_copy(to, SQLITE_CANTOPEN, target.error());
  const int rc = copy_pages(copy, progress);
  sqlite3_backup_finish(copy);
  if (rc != SQLITE_DONE) refuse_copy(to, rc, sqlite3_errstr(rc));
}

}  // namespace corvan_tool
