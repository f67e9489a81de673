#include "tools/ui/time.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

namespace corvan_tool {

namespace {

constexpr int64_t kSecondsPerDay = int64_t{24} * 60 * 60;

// The quotient, rounded down, and what is left.
struct Division {
  int64_t quotient;
  int64_t rest;
};
Division divided(int64_t number, int64_t by) {
  const bool is_exact_or_positive = number % by >= 0;
  return is_exact_or_positive ? Division{number / by, number % by}
                              : Division{number / by - 1, number % by + by};
}

// Years begin with March here, so that leap days are at their end. They repeat after 400 years.
void set_date(std::tm& utc, int64_t days) {
  constexpr int64_t kDaysIn400Years = 146097;
  constexpr int64_t kFromMarchOfYear0 = 719468;
  const auto [cycle, day] = divided(days + kFromMarchOfYear0, kDaysIn400Years);
  const int64_t year = (day - day / 1460 + day / 36524 - day / 146096) / 365;
  const int64_t day_of_year = day - (365 * year + year / 4 - year / 100);
  const int64_t month = (5 * day_of_year + 2) / 153;
  utc.tm_mday = static_cast<int>(day_of_year - (153 * month + 2) / 5 + 1);
  utc.tm_mon = static_cast<int>((month + 2) % 12);
  utc.tm_year = static_cast<int>(400 * cycle + year + (month >= 10 ? 1 : 0) - 1900);
  utc.tm_wday = static_cast<int>(divided(days + 4, 7).rest);  // the epoch began on a Thursday
}

}  // namespace

std::tm utc_calendar(int64_t time) {
  const auto [days, second] = divided(divided(time, 1000).quotient, kSecondsPerDay);
  std::tm utc = {};
  set_date(utc, days);
  utc.tm_hour = static_cast<int>(second / 3600);
  utc.tm_min = static_cast<int>(second / 60 % 60);
  utc.tm_sec = static_cast<int>(second % 60);
  return utc;
}

std::string time_text(int64_t time) {
  if (time == 0) return "";
  const std::tm utc = utc_calendar(time);
  // The year apart: fmt would pad it to four digits.
  return fmt::format("{}-{:%m-%d %H:%M:%S}", utc.tm_year + 1900LL, utc);
}

}  // namespace corvan_tool
