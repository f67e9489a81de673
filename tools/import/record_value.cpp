#include "tools/import/record_value.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

std::optional<std::string> from_hex(const std::string& digits) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  if (digits.size() % 2 != 0) return std::nullopt;
  std::string result;
  result.reserve(digits.size() / 2);
  for (std::size_t i = 0; i < digits.size(); i += 2) {
    const std::size_t high = kDigits.find(digits[i]);
    const std::size_t low = kDigits.find(digits[i + 1]);
    if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
    result += static_cast<char>(high << 4 | low);
  }
  return result;
}

std::optional<double> to_real(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  if (text.empty() || *end != '\0' || real_text(value) != text) return std::nullopt;
  return value;
}

// Converts the result of a bind: an empty text, or SQLite's error.
std::string bind_error(int rc) {
  return rc == SQLITE_OK ? "" : sqlite3_errstr(rc);
}

std::string bind_text(sqlite3_stmt* stmt, int place, const std::string& text,
                      sqlite3_destructor_type lifetime) {
  return bind_error(
      sqlite3_bind_text64(stmt, place, text.data(), text.size(), lifetime, SQLITE_UTF8));
}

std::string bind_integer(sqlite3_stmt* stmt, int place, const Json& value) {
  return bind_error(sqlite3_bind_int64(stmt, place, value.get<int64_t>()));
}

std::string bind_real(sqlite3_stmt* stmt, int place, const std::string& text) {
  const std::optional<double> real = to_real(text);
  if (!real) return "\"real\" is not a floating-point number as an export writes it";
  return bind_error(sqlite3_bind_double(stmt, place, *real));
}

std::string bind_hex(sqlite3_stmt* stmt, int place, const std::string& key,
                     const std::string& digits) {
  const std::optional<std::string> bytes = from_hex(digits);
  if (!bytes) return fmt::format("\"{}\" must consist of pairs of the digits 0-9 and a-f", key);
  if (key == "text_hex") return bind_text(stmt, place, *bytes, SQLITE_TRANSIENT);
  return bind_error(
      sqlite3_bind_blob64(stmt, place, bytes->data(), bytes->size(), SQLITE_TRANSIENT));
}

// Binds a value that is an object with one member.
std::string bind_wrapped(sqlite3_stmt* stmt, int place, const Json& value) {
  if (value.size() != 1) return "must have one member";
  const std::string& key = value.begin().key();
  const Json& content = value.begin().value();
  if (key == "integer") {
    if (!is_whole(content)) return "\"integer\" must be a whole number of 64 bits";
    return bind_integer(stmt, place, content);
  }
  if (key != "text" && key != "text_hex" && key != "blob_hex" && key != "real") {
    return fmt::format("unknown key \"{}\"", shortened(key));
  }
  if (!content.is_string()) return fmt::format("\"{}\" must be a text", key);
  const auto& text = content.get_ref<const std::string&>();
  if (key == "text") return bind_text(stmt, place, text, SQLITE_STATIC);
  if (key == "real") return bind_real(stmt, place, text);
  return bind_hex(stmt, place, key, text);
}

}  // namespace

std::string bind_value(sqlite3_stmt* stmt, int place, const Json& value, const ExportColumn& column,
                       bool& needs_check) {
  if (value.is_null()) return bind_error(sqlite3_bind_null(stmt, place));
  if (value.is_object()) {
    needs_check = true;
    return bind_wrapped(stmt, place, value);
  }
  if (column.is_text) {
    if (!value.is_string()) return "must be a text";
    return bind_text(stmt, place, value.get_ref<const std::string&>(), SQLITE_STATIC);
  }
  if (!is_whole(value)) return "must be a whole number of 64 bits";
  return bind_integer(stmt, place, value);
}

bool is_whole(const Json& value) {
  return value.is_number_integer() &&
         (!value.is_number_unsigned() || value.get<std::uint64_t>() <= INT64_MAX);
}

const char* type_of(const Json& value, const ExportColumn& column) {
  if (value.is_null()) return "null";
  if (!value.is_object()) return column.is_text ? "text" : "integer";
  const std::string& key = value.begin().key();
  if (key == "integer") return "integer";
  if (key == "real") return "real";
  return key == "blob_hex" ? "blob" : "text";
}

}  // namespace corvan_tool
