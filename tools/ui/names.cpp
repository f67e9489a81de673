#include "tools/ui/names.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

namespace corvan_tool {

const std::map<std::string, Corvan::SessionType>& kinds_by_name() {
  static const std::map<std::string, Corvan::SessionType> kinds = {
      {"private", Corvan::CV_PRIVATE},   {"group", Corvan::CV_GROUP},
      {"chatroom", Corvan::CV_CHATROOM}, {"reception", Corvan::CV_RECEPTION},
      {"system", Corvan::CV_SYSTEM},
  };
  return kinds;
}

std::vector<Corvan::SessionType> all_kinds() {
  return {Corvan::CV_PRIVATE, Corvan::CV_GROUP, Corvan::CV_CHATROOM, Corvan::CV_RECEPTION,
          Corvan::CV_SYSTEM};
}

std::string kind_name(int32_t kind) {
  for (const auto& [name, value] : kinds_by_name()) {
    if (value == kind) return name;
  }
  return std::to_string(kind);
}

std::string sent_status_name(int32_t status) {
  static constexpr std::array<const char*, 4> kNames = {"sent", "sending", "failed", "seen"};
  const auto index = static_cast<std::size_t>(status);
  return status >= 0 && index < kNames.size() ? kNames.at(index) : std::to_string(status);
}

std::string read_status_name(int32_t status) {
  if (status == 0) return "unread";
  if (status == 1) return "read";
  return std::to_string(status);
}

std::string time_text(int64_t time) {
  if (time == 0) return "";
  const auto seconds = static_cast<std::time_t>(time / 1000 - (time % 1000 < 0 ? 1 : 0));
  std::tm utc = {};
  std::array<char, 64> text = {};
  if (gmtime_r(&seconds, &utc) == nullptr ||
      std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &utc) == 0) {
    return std::to_string(time);
  }
  return text.data();
}

char lower_case(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lower_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) { return lower_case(c); });
  return text;
}

std::string size_text(int64_t bytes) {
  std::array<char, 32> text = {};
  const double kib = static_cast<double>(bytes) / 1024;
  if (kib < 1024) {
    std::snprintf(text.data(), text.size(), "%.0f KiB", kib);
  } else {
    std::snprintf(text.data(), text.size(), "%.1f MiB", kib / 1024);
  }
  return text.data();
}

std::string seconds_text(double seconds) {
  std::array<char, 32> text = {};
  std::snprintf(text.data(), text.size(), "%.2f", seconds);
  return text.data();
}

}  // namespace corvan_tool
