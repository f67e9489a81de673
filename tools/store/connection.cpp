#include "tools/store/connection.h"

#include <cstddef>

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

Connection::Connection(const std::string& file, int flags)
    : opened_(
          sqlite3_open_v2(((flags & SQLITE_OPEN_URI) != 0 ? file : unmistakable_path(file)).c_str(),
                          &db_, flags, nullptr)) {
  sqlite3_busy_timeout(db_, 2000);
}

std::string unmistakable_path(const std::string& path) {
  return path.rfind("file:", 0) == 0 ? "./" + path : path;
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
