// Times of the store as text.

#ifndef TOOLS_UI_TIME_H_
#define TOOLS_UI_TIME_H_

#include <cstdint>
#include <ctime>
#include <string>

namespace corvan_tool {

// The date in UTC, for any number of milliseconds since the Unix epoch. The C library's functions
// refuse times before 1970 on some systems. Does not set tm_yday.
std::tm utc_calendar(int64_t time);

// Milliseconds since the Unix epoch as "2026-05-04 03:02:01" in UTC. Empty for 0.
std::string time_text(int64_t time);

}  // namespace corvan_tool

#endif  // TOOLS_UI_TIME_H_
