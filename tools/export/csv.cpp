#include "tools/export/csv.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "tools/ui/names.h"
#include "tools/ui/progress.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/time.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

// Without this mark, some spreadsheet programs guess another encoding.
constexpr const char* kByteOrderMark = "\xEF\xBB\xBF";

constexpr const char* kQuery =
    "select m.id,m.session_type,m.session_id,"
    "(select title from t_session s"
    " where s.session_id collate binary is m.session_id and s.session_type is m.session_type),"
    "m.sent_time,m.sender,m.direction,m.object_name,m.content,m.sent_status,m.read_status,"
    "m.is_mention,m.client_uid,m.server_uid "
    "from t_message m";

enum Meaning { kNumber, kText, kType, kTime, kDirection, kSentState, kReadState };

struct CsvColumn {
  const char* heading;
  int place;  // in the query's row
  Meaning meaning;
};

constexpr std::array<CsvColumn, 15> kColumns = {{
    {"id", 0, kNumber},
    {"kind", 1, kType},
    {"session_id", 2, kText},
    {"title", 3, kText},
    {"time_utc", 4, kTime},
    {"sender", 5, kText},
    {"direction", 6, kDirection},
    {"object_name", 7, kText},
    {"content", 8, kText},
    {"sent_status", 9, kSentState},
    {"read_status", 10, kReadState},
    {"is_mention", 11, kNumber},
    {"sent_time", 4, kNumber},
    {"client_uid", 12, kNumber},
    {"server_uid", 13, kText},
}};

// Converts a text to valid UTF-8 without zero bytes, which readers of CSV cannot handle.
std::string clean(const std::string& text) {
  std::string result;
  std::size_t begin = 0;
  while (begin <= text.size()) {
    const std::size_t end = std::min(text.find('\0', begin), text.size());
    if (begin > 0) result += kReplacementText;
    result += valid_utf8(std::string_view(text).substr(begin, end - begin));
    begin = end + 1;
  }
  return result;
}

// Whether a spreadsheet program treats a cell with this text as a formula. East Asian programs also
// accept the full-width signs.
bool begins_with_sign(std::string_view text) {
  static constexpr std::array<std::string_view, 8> kSigns = {"=",  "+",  "-",  "@",
                                                             "＝", "＋", "－", "＠"};
  return std::any_of(kSigns.begin(), kSigns.end(),
                     [text](std::string_view sign) { return text.substr(0, sign.size()) == sign; });
}

// Whether some program removes this code point from the beginning of a cell.
bool is_removed(int32_t c) {
  switch (c) {
    case '"':
    case ' ':
    case 0xA0:    // the no-break space
    case 0x200B:  // the zero-width space
    case 0x3000:  // the ideographic space
    case 0xFEFF:  // the byte order mark
      return true;
    default:
      return false;
  }
}

// Whether some program ends the line at this code point.
bool ends_line(int32_t c) {
  return (c >= '\n' && c <= '\r') || (c >= 0x1C && c <= 0x1E) || c == 0x85 || c == 0x2028 ||
         c == 0x2029;
}

// Whether some program begins a new cell after this code point. A program that separates fields by
// other characters than commas sees the quotes in the middle of a field, and ignores them. Spaces
// and colons are not in the list: they separate fields only if the user asks for it, and many
// ordinary texts have them before "-" or "@".
bool ends_cell(int32_t c) {
  switch (c) {
    case ';':
    case '|':
    case '\t':
    case 0x1F:    // the unit separator
    case 0x060C:  // the Arabic comma
    case 0x061B:  // the Arabic semicolon
    case 0x3001:  // the ideographic comma
    case 0xFF0C:  // the full-width comma
    case 0xFF1B:  // the full-width semicolon
      return true;
    default:
      return ends_line(c);
  }
}

// The state of the record that is being written.
struct CsvRecord {
  CsvReader reader;
  // Whether a text in the record contained a line end. Some programs end the record there, read the
  // rest as if it were outside quotes, and separate cells at the commas in texts.
  bool has_line_end = false;
};

// Puts an apostrophe before each sign that begins a formula, and before a tab or a line end at the
// beginning of the text.
std::string without_formulas(std::string_view text, CsvRecord& record) {
  constexpr std::string_view kRemoved = "\t\r\n";  // at the beginning of a cell
  const bool begins_removed = !text.empty() && kRemoved.find(text[0]) != std::string_view::npos;
  std::string result = begins_removed ? "'" : "";
  result.reserve(text.size() + 1);
  bool at_begin = true;
  while (!text.empty()) {
    if (at_begin && begins_with_sign(text)) result += '\'';
    const std::string_view before = text;
    const int32_t c = take_code_point(text);
    result += before.substr(0, before.size() - text.size());
    record.has_line_end = record.has_line_end || ends_line(c);
    at_begin = ends_cell(c) || (c == ',' && record.has_line_end) || (at_begin && is_removed(c));
  }
  return result;
}

// Always in quotes, because some programs end fields at other characters than commas.
std::string text_field(const std::string& stored, CsvRecord& record) {
  std::string text = without_formulas(clean(stored), record);
  if (record.reader == CsvReader::kTerminal) text = printable(text);
  std::string result = "\"";
  for (const char c : text) result.append(c == '"' ? 2 : 1, c);
  return result + '"';
}

// A number as it is. If another program stored a text instead, a text field.
std::string number_field(const Row& row, int place, CsvRecord& record) {
  const int type = row.type(place);
  const std::string value = row.text(place);
  return type == SQLITE_TEXT || type == SQLITE_BLOB ? text_field(value, record) : value;
}

template <typename NameOf>
std::string code_field(const Row& row, int place, CsvRecord& record, const NameOf& name_of) {
  const Code code = code_at(row, place);
  return code.number ? name_of(*code.number) : number_field(row, place, record);
}

std::string direction_name(int32_t direction) {
  if (direction == 0) return "own";
  return direction == 1 ? "received" : fmt::to_string(direction);
}

std::string field_of(const Row& row, const CsvColumn& column, CsvRecord& record) {
  switch (column.meaning) {
    case kType:
      return code_field(row, column.place, record, type_name);
    case kTime:
      return time_text(row.int64(column.place));
    case kDirection:
      return code_field(row, column.place, record, direction_name);
    case kSentState:
      return code_field(row, column.place, record, sent_status_name);
    case kReadState:
      return code_field(row, column.place, record, read_status_name);
    case kNumber:
      return number_field(row, column.place, record);
    case kText:
      break;
  }
  return text_field(row.text(column.place), record);
}

std::string headings(CsvReader reader) {
  std::string line = reader == CsvReader::kTerminal ? "" : kByteOrderMark;
  for (const CsvColumn& column : kColumns) {
    if (column.place != 0) line += ',';
    line += column.heading;
  }
  return line + "\r\n";
}

void set_record(std::string& line, const Row& row, CsvReader reader) {
  line.clear();
  CsvRecord record = {reader};
  for (const CsvColumn& column : kColumns) {
    if (column.place != 0) line += ',';
    line += field_of(row, column, record);
  }
  line += "\r\n";
}

int64_t number_of_conversations(const ExportSource& source, const std::string& where) {
  return source.number(fmt::format(
      "select count(*) from (select distinct session_type,session_id collate binary from "
      "t_message{})",
      where));
}

}  // namespace

void export_csv(const ExportSource& source, ExportOutput& output, CsvReader reader,
                ExportCounts& counts) {
  const std::string where = source.is_partial() ? " where " + source.condition() : "";
  const int64_t all = source.rows_of("t_message");
  counts.sessions = number_of_conversations(source, where);
  Progress progress("messages", static_cast<std::uint64_t>(all));
  output.write(headings(reader));
  std::string line;
  source.store().each_row(
      kQuery + where + " order by m.session_id collate binary,m.session_type,m.sent_time,m.id",
      [&](const Row& row) {
        set_record(line, row, reader);
        output.write(line);
        ++counts.messages;
        progress.advance();
      });
  source.require_all("t_message", counts.messages, all);
  output.close();
}

}  // namespace corvan_tool
