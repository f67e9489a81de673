#include "tools/export/html/markup.h"

#include <array>

#include "tools/export/html/text.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kColours = 8;

}  // namespace

std::string page_begin(std::string_view title) {
  return "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
         "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; "
         "style-src 'unsafe-inline'; base-uri 'none'; form-action 'none'\">\n"
         "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
         "<meta name=\"referrer\" content=\"no-referrer\">\n"
         "<meta name=\"color-scheme\" content=\"light dark\">\n<title>" +
         html_line(title) + "</title>\n<style>\n" + kPageStyle + "</style>\n</head>\n<body>\n";
}

std::string page_end() {
  return "<footer><p>Exported by corvan " CORVAN_VERSION
         ". Times are in UTC.</p></footer>\n</body>\n</html>\n";
}

std::string colour_class(std::string_view name) {
  std::uint32_t hash = 2166136261U;
  for (const char c : name) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  return "c" + std::to_string((hash >> 8) % kColours);
}

std::optional<std::tm> calendar(int64_t time) {
  constexpr int kFirstYear = 1 - 1900;
  constexpr int kLastYear = 9999 - 1900;
  const auto seconds = static_cast<std::time_t>(time / 1000 - (time % 1000 < 0 ? 1 : 0));
  std::tm utc = {};
  if (time == 0 || gmtime_r(&seconds, &utc) == nullptr || utc.tm_year < kFirstYear ||
      utc.tm_year > kLastYear) {
    return std::nullopt;
  }
  return utc;
}

std::string formatted(const std::tm& time, TimeForm form) {
  std::array<char, 64> text = {};
  char* const to = text.data();
  const std::size_t size = text.size();
  switch (form) {
    case kInstant:
      std::strftime(to, size, "%Y-%m-%dT%H:%M:%SZ", &time);
      break;
    case kDate:
      std::strftime(to, size, "%Y-%m-%d", &time);
      break;
    case kClock:
      std::strftime(to, size, "%H:%M", &time);
      break;
    case kMonth:
      std::strftime(to, size, "%B %Y", &time);
      break;
    case kDay:
      std::strftime(to, size, "%A, ", &time);
      return to + std::to_string(time.tm_mday) + " " + formatted(time, kMonth);
  }
  return to;
}

std::string counted(int64_t count, const std::string& what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

}  // namespace corvan_tool
