#include "tools/export/html/times.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include "tools/ui/time.h"

namespace corvan_tool {

std::optional<std::tm> calendar(int64_t time) {
  constexpr int kFirstYear = 1 - 1900;
  constexpr int kLastYear = 9999 - 1900;
  const std::tm utc = utc_calendar(time);
  if (time == 0 || utc.tm_year < kFirstYear || utc.tm_year > kLastYear) return std::nullopt;
  return utc;
}

std::string formatted(const std::tm& time, TimeForm form) {
  const int year = time.tm_year + 1900;  // not %Y, which would add zeros to years below 1000
  switch (form) {
    case kInstant:
      return fmt::format("{}-{:%m-%dT%H:%M:%S}Z", year, time);
    case kDate:
      return fmt::format("{}-{:%m-%d}", year, time);
    case kClock:
      return fmt::format("{:%H:%M}", time);
    case kMonth:
      return fmt::format("{:%B} {}", time, year);
    case kDay:
      break;
  }
  return fmt::format("{:%A}, {} {:%B} {}", time, time.tm_mday, time, year);
}

std::string time_element(int64_t time, TimeForm form) {
  const std::optional<std::tm> date = calendar(time);
  if (!date) return fmt::format("<span>no date ({})</span>", time);
  return fmt::format(R"(<time datetime="{}">{}</time>)", formatted(*date, kInstant),
                     formatted(*date, form));
}

std::string date_text(int64_t time) {
  const std::optional<std::tm> date = calendar(time);
  return date ? formatted(*date, kDate) : "";
}

std::string month_name(int64_t time) {
  const std::optional<std::tm> date = calendar(time);
  return date ? formatted(*date, kMonth) : "No date";
}

}  // namespace corvan_tool
