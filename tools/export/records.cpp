#include "tools/export/records.h"

#include <fmt/compile.h>
#include <fmt/format.h>

#include <cstddef>
#include <iterator>
#include <string_view>

#include "tools/ui/json.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

std::string to_hex(std::string_view bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string result;
  result.reserve(2 * bytes.size());
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    result += kDigits[byte >> 4];
    result += kDigits[byte & 15];
  }
  return result;
}

// A value as an object of one member; `json` is the member's value as JSON.
std::string wrapped(const char* key, const std::string& json) {
  return fmt::format(FMT_COMPILE(R"({{"{}":{}}})"), key, json);
}

// Whether a text must be written as hexadecimal digits. JSON writes a control character as six
// characters, so a text can be longer in JSON than in digits. The limit for a line in a restore
// allows for digits only.
bool needs_hex(std::string_view text) {
  return text.find('\0') != std::string_view::npos || !is_utf8(text) ||
         json_growth(text) > text.size();
}

std::string text_value(std::string_view text, const ExportColumn& column) {
  if (needs_hex(text)) return wrapped("text_hex", json_text(to_hex(text)));
  return column.is_text ? json_text(text) : wrapped("text", json_text(text));
}

std::string value_at(const Row& row, int place, const ExportColumn& column) {
  switch (row.type(place)) {
    case SQLITE_NULL:
      return "null";
    case SQLITE_INTEGER: {
      const std::string number = fmt::to_string(row.int64(place));
      return column.is_text ? wrapped("integer", number) : number;
    }
    case SQLITE_FLOAT:
      return wrapped("real", json_text(real_text(row.real(place))));
    case SQLITE_BLOB:
      return wrapped("blob_hex", json_text(to_hex(row.blob(place))));
    default:
      return text_value(row.text_view(place), column);
  }
}

}  // namespace

void write_record(std::string& line, const Row& row, const ExportTable& table) {
  line.clear();
  fmt::format_to(std::back_inserter(line), FMT_COMPILE(R"({{"type":"{}")"), table.type);
  int place = 0;
  for (const ExportColumn& column : table.columns) {
    fmt::format_to(std::back_inserter(line), FMT_COMPILE(R"(,"{}":{})"), column.name,
                   value_at(row, place++, column));
  }
  line += "}\n";
}

}  // namespace corvan_tool
