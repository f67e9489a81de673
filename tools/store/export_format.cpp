#include "tools/store/export_format.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

constexpr const char* kDigits = "0123456789abcdef";

std::string to_hex(std::string_view bytes) {
  std::string result;
  result.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    result += kDigits[byte >> 4];
    result += kDigits[byte & 15];
  }
  return result;
}

std::optional<std::string> from_hex(const std::string& digits) {
  if (digits.size() % 2 != 0) return std::nullopt;
  const std::string_view all = kDigits;
  std::string result;
  result.reserve(digits.size() / 2);
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const std::size_t high = all.find(digits[i]);
    const std::size_t low = all.find(digits[i + 1]);
    if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
    result += static_cast<char>(high << 4 | low);
  }
  return result;
}

std::string real_text(double value) {
  std::array<char, 40> text = {};
  std::snprintf(text.data(), text.size(), "%.17g", value);
  return text.data();
}

std::optional<double> real_of(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || real_text(value) != text) return std::nullopt;
  return value;
}

// A value in an object of one member, which says what the value is.
std::string wrapped(const char* what, const std::string& json) {
  return std::string("{\"") + what + "\":" + json + "}";
}

// Of a text or a blob; of a text in UTF-8, in whatever form the file holds it.
std::string_view bytes_at(sqlite3_stmt* row, int place) {
  const void* const bytes = sqlite3_column_type(row, place) == SQLITE_TEXT
                                ? sqlite3_column_text(row, place)
                                : sqlite3_column_blob(row, place);
  if (bytes == nullptr) return "";
  return {static_cast<const char*>(bytes),
          static_cast<std::size_t>(sqlite3_column_bytes(row, place))};
}

// Whether the text takes more room in JSON, which writes control characters as six, than in
// hexadecimal digits. The longest line that a restore reads has room for these.
bool is_shorter_in_hex(std::string_view text) {
  return json_growth(text) > text.size();
}

// What is wrong where SQLite did not take a value.
std::string bound(int rc) {
  return rc == SQLITE_OK ? "" : sqlite3_errstr(rc);
}

std::string bind_text(sqlite3_stmt* stmt, int place, const std::string& text,
                      sqlite3_destructor_type lifetime) {
  return bound(sqlite3_bind_text64(stmt, place, text.data(), text.size(), lifetime, SQLITE_UTF8));
}

std::string bind_wrapped(sqlite3_stmt* stmt, int place, const Json& value) {
  if (value.size() != 1) return "must have one member";
  const std::string& what = value.begin().key();
  const Json& content = value.begin().value();
  if (what == "integer") {
    if (!is_whole(content)) return "\"integer\" must be a whole number of 64 bits";
    return bound(sqlite3_bind_int64(stmt, place, content.get<int64_t>()));
  }
  if (what != "text" && what != "text_hex" && what != "blob_hex" && what != "real") {
    return "unknown key \"" + shortened(what) + "\"";
  }
  if (!content.is_string()) return "\"" + what + "\" must be a text";
  const auto& text = content.get_ref<const std::string&>();
  if (what == "text") return bind_text(stmt, place, text, SQLITE_STATIC);
  if (what == "real") {
    const std::optional<double> real = real_of(text);
    if (!real) return "\"real\" is no floating-point number as an export writes it";
    return bound(sqlite3_bind_double(stmt, place, *real));
  }
  const std::optional<std::string> bytes = from_hex(text);
  if (!bytes) return "\"" + what + "\" must hold pairs of the digits 0-9 and a-f";
  if (what == "text_hex") return bind_text(stmt, place, *bytes, SQLITE_TRANSIENT);
  return bound(sqlite3_bind_blob64(stmt, place, bytes->data(), bytes->size(), SQLITE_TRANSIENT));
}

}  // namespace

const std::vector<ExportTable>& export_tables() {
  static const std::vector<ExportTable> tables = {
      {"version", "versions", "t_version", false, {{"rowid", false}, {"database_version", true}}},
      {"sync",
       "syncs",
       "t_sync",
       false,
       {{"rowid", false}, {"user_id", true}, {"receive_time", false}, {"sent_time", false}}},
      {"session",
       "sessions",
       "t_session",
       true,
       {{"rowid", false},
        {"session_id", true},
        {"session_type", false},
        {"title", true},
        {"draft", true},
        {"is_top", false},
        {"session_time", false},
        {"unread_count", false},
        {"mention_count", false},
        {"silence", false},
        {"latest_id", false},
        {"read_time", false},
        {"receipt_time", false}}},
      {"message",
       "messages",
       "t_message",
       true,
       {{"id", false},
        {"session_id", true},
        {"session_type", false},
        {"object_name", true},
        {"content", true},
        {"sender", true},
        {"direction", false},
        {"sent_status", false},
        {"read_status", false},
        {"is_mention", false},
        {"sent_time", false},
        {"client_uid", false},
        {"server_uid", true}}},
      {"sequence",
       "sequences",
       "sqlite_sequence",
       false,
       {{"rowid", false}, {"name", true}, {"seq", false}}},
  };
  return tables;
}

std::string column_list(const ExportTable& table, const std::string& row_id) {
  std::string list;
  for (const ExportColumn& column : table.columns) {
    list += (list.empty() ? "" : ",") + (column.is_row_id() ? row_id : column.name);
  }
  return list;
}

void append_value(std::string& line, sqlite3_stmt* row, int place, const ExportColumn& column) {
  const int type = sqlite3_column_type(row, place);
  if (type == SQLITE_NULL) {
    line += "null";
  } else if (type == SQLITE_INTEGER) {
    const std::string number = std::to_string(sqlite3_column_int64(row, place));
    line += column.is_text ? wrapped("integer", number) : number;
  } else if (type == SQLITE_FLOAT) {
    line += wrapped("real", json_text(real_text(sqlite3_column_double(row, place))));
  } else {
    const std::string_view bytes = bytes_at(row, place);
    if (type == SQLITE_BLOB) {
      line += wrapped("blob_hex", json_text(to_hex(bytes)));
    } else if (bytes.find('\0') != std::string_view::npos || !is_utf8(bytes) ||
               is_shorter_in_hex(bytes)) {
      line += wrapped("text_hex", json_text(to_hex(bytes)));
    } else {
      line += column.is_text ? json_text(bytes) : wrapped("text", json_text(bytes));
    }
  }
}

std::string bind_value(sqlite3_stmt* stmt, int place, const Json& value, const ExportColumn& column,
                       bool& needs_check) {
  if (value.is_null()) return bound(sqlite3_bind_null(stmt, place));
  if (value.is_object()) {
    needs_check = true;
    return bind_wrapped(stmt, place, value);
  }
  if (column.is_text) {
    if (!value.is_string()) return "must be a text";
    return bind_text(stmt, place, value.get_ref<const std::string&>(), SQLITE_STATIC);
  }
  if (!is_whole(value)) return "must be a whole number of 64 bits";
  return bound(sqlite3_bind_int64(stmt, place, value.get<int64_t>()));
}

bool is_whole(const Json& value) {
  return value.is_number_integer() &&
         (!value.is_number_unsigned() || value.get<std::uint64_t>() <= INT64_MAX);
}

const char* class_of(const Json& value, const ExportColumn& column) {
  if (value.is_null()) return "null";
  if (!value.is_object()) return column.is_text ? "text" : "integer";
  const std::string& what = value.begin().key();
  if (what == "integer") return "integer";
  if (what == "real") return "real";
  return what == "blob_hex" ? "blob" : "text";
}

}  // namespace corvan_tool
