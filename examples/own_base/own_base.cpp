// A host's own platform facilities: definitions for the declarations in base/. Corvan::base is not
// linked, so a function that the store calls and this file lacks is an undefined symbol at link
// time.
//
// A real host forwards to its own facilities. These are minimal.

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <locale>
#include <map>
#include <string>
#include <system_error>

#include "base/cv_database.h"
#include "base/cv_utils.h"
#include "base/fatal_message.h"
#include "base/filesystem.h"
#include "base/log_message.h"
#include "base/pathname.h"
#include "base/timestamp.h"

namespace cvrtc {

// ---- Logger: warnings and errors to standard output ---------------------------------------------

LogMessage::LogMessage(LoggingSeverity severity) : severity_(severity) {
  stream_.imbue(std::locale::classic());  // digits without grouping, whatever the global locale
}

LogMessage::~LogMessage() {
  std::cout << "host log " << severity_ << ": " << stream_.str() << '\n';
}

bool LogMessage::Loggable(LoggingSeverity severity) {
  return severity >= LS_WARNING && severity < LS_NONE;
}

// ---- Fatal check: ends the process with status 70 -----------------------------------------------

FatalMessage::FatalMessage(const char* file, int line) {
  stream_.imbue(std::locale::classic());
  stream_ << file << ":" << line << ": ";
}

FatalMessage::~FatalMessage() {
  std::cout << "host fatal: " << stream_.str() << std::endl;
  std::_Exit(70);
}

// ---- Paths: based on std::filesystem ------------------------------------------------------------

// The store's paths are UTF-8. On Windows, std::filesystem::path(text) takes another encoding.
using std::filesystem::u8path;

void Pathname::SetPathname(const std::string& pathname) {
  const std::filesystem::path path = u8path(pathname);
  SetFolder(path.parent_path().u8string());
  SetFilename(path.filename().u8string());
}

void Pathname::SetFolder(const std::string& folder) {
  folder_ = folder.empty() ? folder : (u8path(folder) / "").u8string();
}

bool Pathname::SetFilename(const std::string& filename) {
  const std::filesystem::path path = u8path(filename);
  if (path.has_parent_path()) return false;
  basename_ = path.stem().u8string();
  extension_ = path.extension().u8string();
  return true;
}

bool Pathname::SetExtension(const std::string& extension) {
  std::filesystem::path path = u8path(basename_);
  extension_ = path.replace_extension(u8path(extension)).extension().u8string();
  return true;
}

bool Filesystem::IsFile(const Pathname& path) {
  std::error_code ignored;
  return std::filesystem::is_regular_file(u8path(path.pathname()), ignored);
}

}  // namespace cvrtc

namespace Corvan {

// ---- Clock: a fixed time ------------------------------------------------------------------------

int64_t Timestamp() {
  return 1'700'000'000'000;
}

// ---- Text ---------------------------------------------------------------------------------------

void CvUtils::string_replace(std::string& text, const std::string& from, const std::string& to) {
  if (from.empty()) return;
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

// ---- Schema: the store's tables, fewer indexes, and a table of the host's own -------------------

// Columns and defaults as in docs/schema.md. The store's inserts rely on the defaults.
std::map<std::string, std::string> CvDatabase::table_index() {
  return {
      {"host_note", "create table if not exists host_note(text text)"},
      {"t_message",
       "create table if not exists t_message("
       "id integer primary key autoincrement,"
       "session_id text default '',"
       "session_type integer default 0,"
       "object_name text default '',"
       "content text default '',"
       "sender text default '',"
       "direction integer default 0,"
       "sent_status integer default 0,"
       "read_status integer default 0,"
       "is_mention integer default 0,"
       "sent_time integer default 0,"
       "client_uid integer default 0,"
       "server_uid text default '')"},
      {"t_message_session",
       "create index if not exists t_message_session "
       "on t_message(session_id,session_type,sent_time)"},
      {"t_session",
       "create table if not exists t_session("
       "session_id text default '',"
       "session_type integer default 0,"
       "title text default '',"
       "draft text default '',"
       "is_top integer default 0,"
       "session_time integer default 0,"
       "unread_count integer default 0,"
       "mention_count integer default 0,"
       "silence integer default 0,"
       "latest_id integer default 0,"
       "read_time integer default 0,"
       "receipt_time integer default 0,"
       "unique(session_id,session_type))"},
      {"t_sync",
       "create table if not exists t_sync("
       "user_id text primary key default '',"
       "receive_time integer default 0,"
       "sent_time integer default 0)"},
      {"t_version", "create table if not exists t_version(database_version text default '')"},
      {"t_version_row",
       "insert or replace into t_version(rowid,database_version) values(1,'host-1')"},
  };
}

}  // namespace Corvan
