#include "tools/store/connection.h"

#include <cstddef>
#include <optional>

#include "addons/encryption/cipher.h"
#include "addons/encryption/connection_hook.h"
#include "tools/store/key.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

// A null pointer would bind SQL NULL.
const char* bytes_of(std::string_view text) {
  return text.data() == nullptr ? "" : text.data();
}

}  // namespace

std::string_view Row::text_view(int column) const {
  const unsigned char* const text = sqlite3_column_text(stmt_, column);
  if (text == nullptr) return "";
  return {reinterpret_cast<const char*>(text),
          static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column))};
}

std::string_view Row::blob(int column) const {
  const void* const bytes = sqlite3_column_blob(stmt_, column);
  if (bytes == nullptr) return "";
  return {static_cast<const char*>(bytes),
          static_cast<std::size_t>(sqlite3_column_bytes(stmt_, column))};
}

Statement::Statement(const Connection& connection, const std::string& sql, unsigned flags)
    : prepared_(connection.opened()) {
  if (prepared_ != SQLITE_OK) return;
  prepared_ = sqlite3_prepare_v3(connection.handle(), sql.c_str(), -1, flags, &stmt_, nullptr);
}

void Statement::bind(int parameter, std::string_view text) {
  sqlite3_bind_text64(stmt_, parameter, bytes_of(text), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

void Statement::bind_blob(int parameter, std::string_view bytes) {
  sqlite3_bind_blob64(stmt_, parameter, bytes_of(bytes), bytes.size(), SQLITE_STATIC);
}

Connection::Connection(const std::string& file, int flags) : opened_(open(file, flags)) {}

// Unlocking waits a fraction of a second for a lock that excludes readers.
int Connection::open(const std::string& file, int flags) {
  constexpr int kAttempts = 7;
  int rc = open_once(file, flags);
  for (int i = 1; i < kAttempts && (rc & 0xff) == SQLITE_BUSY; ++i) {
    sqlite3_close_v2(db_);
    rc = open_once(file, flags);
  }
  sqlite3_busy_timeout(db_, 2000);
  return rc;
}

// A database that has no file of its own needs no key.
int Connection::open_once(const std::string& file, int flags) {
  const bool is_keyed = used_key().is_valid() && !file.empty() && file != ":memory:";
  std::optional<Corvan::encryption::HookPause> pause;
  if (is_keyed) pause.emplace();
  const bool is_uri = (flags & SQLITE_OPEN_URI) != 0;
  const std::string name = is_uri ? file : unmistakable_path(file);
  const int rc = sqlite3_open_v2(name.c_str(), &db_, flags, nullptr);
  if (rc == SQLITE_OK && is_keyed) return unlock();
  if (rc == SQLITE_AUTH) refusal_ = Corvan::StoreKeys::last_refusal();
  return rc;
}

int Connection::unlock() {
  const Corvan::encryption::Unlocking result = Corvan::encryption::unlock(db_, used_key());
  refusal_ = result.refusal;
  return result.code;
}

std::string Connection::error() const {
  return refusal_ == Corvan::KeyRefusal::kNone ? sqlite3_errmsg(db_) : sqlite3_errstr(opened_);
}

void require_unlocked(const Connection& connection, const std::string& name) {
  if (!is_refused_key(connection.refusal())) return;
  throw ToolError(name + ": " + refusal_text(connection.refusal()));
}

std::string unmistakable_path(const std::string& path) {
  return path.rfind("file:", 0) == 0 ? "./" + path : path;
}

cvrtc::Pathname folder_name(const std::string& folder) {
  return {unmistakable_path(folder), ""};
}

std::string quoted_name(const std::string& name) {
  std::string result = "\"";
  for (const char c : name) result.append(c == '"' ? 2 : 1, c);
  return result + '"';
}

std::string quoted_texts(const std::vector<std::string>& texts) {
  std::string result;
  for (const std::string& text : texts) {
    result += result.empty() ? "'" : ",'";
    for (const char c : text) result.append(c == '\'' ? 2 : 1, c);
    result += '\'';
  }
  return result;
}

}  // namespace corvan_tool
