#include "tools/ui/time.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <ctime>

namespace corvan_tool {

std::string time_text(int64_t time) {
  if (time == 0) return "";
  const auto seconds = static_cast<std::time_t>(time / 1000 - (time % 1000 < 0 ? 1 : 0));
  std::tm utc = {};
  if (gmtime_r(&seconds, &utc) == nullptr) return fmt::to_string(time);
  // The year apart: fmt would pad it to four digits.
  return fmt::format("{}-{:%m-%d %H:%M:%S}", utc.tm_year + 1900LL, utc);
}

}  // namespace corvan_tool
