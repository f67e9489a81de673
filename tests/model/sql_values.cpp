#include "tests/model/sql_values.h"

namespace corvan_test {

using Corvan::SessionType;

std::string cut(const std::string& text) {
  return text.substr(0, text.find('\0'));
}

int32_t low32(int64_t value) {
  return static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(value)));
}

int64_t sum64(int64_t a, int64_t b) {
  return static_cast<int64_t>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
}

int32_t sum32(int32_t a, int32_t b) {
  return low32(int64_t{a} + b);
}

std::optional<std::set<std::string>> quoted_list(const std::string& text) {
  std::set<std::string> list;
  std::size_t at = 0;
  while (at < text.size()) {
    if (!list.empty() && text[at++] != ',') return std::nullopt;
    if (at >= text.size() || text[at++] != '\'') return std::nullopt;
    std::string element;
    for (;; ++at) {
      if (at >= text.size() || text[at] == '\0') return std::nullopt;
      if (text[at] == '\'' && text.compare(at, 2, "''") != 0) break;
      if (text[at] == '\'') ++at;
      element += text[at];
    }
    list.insert(element);
    ++at;
  }
  return list;
}

std::optional<std::set<int64_t>> number_list(const std::string& text) {
  std::set<int64_t> list;
  std::size_t at = 0;
  while (at < text.size()) {
    if (!list.empty() && text[at++] != ',') return std::nullopt;
    std::size_t end = text.find(',', at);
    if (end == std::string::npos) end = text.size();
    const std::string number = text.substr(at, end - at);
    const std::size_t digits = number.substr(0, 1) == "-" ? 1 : 0;
    if (number.size() == digits ||
        number.find_first_not_of("0123456789", digits) != std::string::npos) {
      return std::nullopt;
    }
    list.insert(std::stoll(number));
    at = end;
  }
  return list;
}

void append(std::string& list, const std::string& element) {
  if (!list.empty()) list += ",";
  list += element;
}

std::string kind_list(const std::vector<SessionType>& entry) {
  std::string list;
  for (const SessionType kind : entry) {
    if (kind >= Corvan::CV_PRIVATE && kind <= Corvan::CV_SYSTEM) append(list, std::to_string(kind));
  }
  return list;
}

bool among(const std::vector<SessionType>& entry, int64_t kind) {
  const std::set<int64_t> kinds = number_list(kind_list(entry)).value();
  return kinds.empty() || kinds.count(kind) > 0;
}

bool full(std::size_t size, int32_t limit) {
  return limit >= 0 && size >= static_cast<std::size_t>(limit);
}

std::string sql_text(const std::string& value) {
  std::string literal = "'";
  for (const char c : value) {
    literal += c;
    if (c == '\'') literal += c;
  }
  return literal + "'";
}

std::string sql_text(int64_t value) {
  return std::to_string(value);
}

}  // namespace corvan_test
