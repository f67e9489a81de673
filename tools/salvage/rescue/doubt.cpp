#include "tools/salvage/rescue/doubt.h"

#include <algorithm>
#include <array>
#include <limits>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

// The smallest and the largest value that the store writes into a column.
std::pair<std::int64_t, std::int64_t> limits_of(const std::string& column) {
  static const std::map<std::string, std::pair<std::int64_t, std::int64_t>> kCodes = {
      {"direction", {0, 2}}, {"is_mention", {0, 1}}, {"is_top", {0, 1}}};
  const auto found = kCodes.find(column);
  if (found != kCodes.end()) return found->second;
  static constexpr std::array<const char*, 6> kInt32 = {
      "session_type", "sent_status", "read_status", "unread_count", "mention_count", "silence"};
  if (std::find(kInt32.begin(), kInt32.end(), column) != kInt32.end()) {
    return {std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()};
  }
  return {std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()};
}

Doubt doubt_about_text(const Value& value) {
  // The store writes NULL if SQLite refuses a text for its length.
  if (value.kind == Value::kNull) return Doubt::kNone;
  if (value.kind != Value::kText) return Doubt::kValue;
  const bool is_text = is_utf8(value.bytes) && value.bytes.find('\0') == std::string_view::npos;
  return is_text ? Doubt::kNone : Doubt::kText;
}

Doubt doubt_about_number(const std::string& column, const Value& value) {
  if (value.kind != Value::kInteger) return Doubt::kValue;
  const auto [smallest, largest] = limits_of(column);
  const bool fits = value.integer >= smallest && value.integer <= largest;
  return fits ? Doubt::kNone : Doubt::kValue;
}

struct DoubtTexts {
  const char* word;
  const char* text;
};
constexpr std::array<DoubtTexts, kDoubts> kDoubtTexts = {{
    {"none", ""},
    {"deleted", "on pages that the file lists as free: probably deleted"},
    {"unreached", "on pages that nothing points to, or in no index: probably deleted"},
    {"log", "only in the log, after a damaged commit"},
    {"versions", "with the same id or key as a different row"},
    {"place", "with an id that does not fit between its neighbours"},
    {"text", "with text that is not UTF-8 or contains a zero byte"},
    {"value", "with a value that its column cannot have"},
}};

}  // namespace

const char* doubt_word(Doubt doubt) {
  return kDoubtTexts.at(static_cast<std::size_t>(doubt)).word;
}

const char* doubt_text(Doubt doubt) {
  return kDoubtTexts.at(static_cast<std::size_t>(doubt)).text;
}

Doubt doubt_about(const KnownTable& table, std::int64_t row_id, const std::vector<Value>& values) {
  const bool has_row_id = table.shape.find(kRowIdShape) != std::string::npos;
  Doubt result = has_row_id && row_id <= 0 ? Doubt::kValue : Doubt::kNone;
  std::size_t column = 0;
  for (std::size_t i = 0; i < values.size(); ++i) {
    if (table.shape[i] == kRowIdShape) continue;
    const std::string& name = table.columns[column++];
    const Doubt doubt = table.shape[i] == kTextShape ? doubt_about_text(values[i])
                                                     : doubt_about_number(name, values[i]);
    if (doubt != Doubt::kNone) result = doubt;
  }
  return result;
}

}  // namespace corvan_tool
