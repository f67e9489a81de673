// Formats times for pages, in UTC.

#ifndef TOOLS_EXPORT_HTML_TIMES_H_
#define TOOLS_EXPORT_HTML_TIMES_H_

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace corvan_tool {

// The date of a time in milliseconds since the Unix epoch. Nothing for 0, and for times before the
// year 1 or after 9999.
std::optional<std::tm> calendar(int64_t time);

enum TimeForm {
  kInstant,  // 2026-05-04T03:02:01Z
  kDate,     // 2026-05-04
  kClock,    // 03:02
  kMonth,    // May 2026
  kDay,      // Monday, 4 May 2026
};
std::string formatted(const std::tm& time, TimeForm form);

// An element with the time, or with the number if there is no date.
std::string time_element(int64_t time, TimeForm form);

// "2026-05-04"; empty if there is no date.
std::string date_text(int64_t time);

// "May 2026", or "No date".
std::string month_name(int64_t time);

}  // namespace corvan_tool

#endif  // TOOLS_EXPORT_HTML_TIMES_H_
