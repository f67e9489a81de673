#include "tools/store/sqlite_errors.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include "tools/store/connection.h"

namespace corvan_tool {

namespace {

constexpr int kPrimaryCode = 0xff;
constexpr const char* kDamageAdvice = "; see 'corvan check' and 'corvan salvage'";

const char* advice_after_change(int rc) {
  if (is_damage(rc)) return kDamageAdvice;
  switch (rc & kPrimaryCode) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return "; try again while the client is idle";
    case SQLITE_READONLY:
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
      return "; make the file and its folder writable";
    case SQLITE_FULL:
      return "; make room in the store's folder and in the one for temporary files "
             "(SQLITE_TMPDIR, TMPDIR)";
    default:
      return "";
  }
}

}  // namespace

bool is_damage(int rc) {
  const int code = rc & kPrimaryCode;
  return code == SQLITE_CORRUPT || code == SQLITE_NOTADB;
}

const char* advice_after(int rc) {
  if (is_damage(rc)) return kDamageAdvice;
  const int code = rc & kPrimaryCode;
  const bool is_room = code == SQLITE_FULL || code == SQLITE_IOERR;
  return is_room ? "; name a folder with room for temporary files in TMPDIR" : "";
}

std::string failure_text(const Connection& connection, int rc, const std::string& outcome) {
  const int code = rc & kPrimaryCode;
  const bool is_locked = code == SQLITE_BUSY || code == SQLITE_LOCKED;
  const std::string what = is_locked
                               ? fmt::format("in use by another process ({})", sqlite3_errstr(code))
                               : connection.error();
  return fmt::format("{}; {}{}", what, outcome, advice_after_change(rc));
}

}  // namespace corvan_tool
