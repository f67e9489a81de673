// Times of the store as text.

#ifndef TOOLS_UI_TIME_H_
#define TOOLS_UI_TIME_H_

#include <cstdint>
#include <string>

namespace corvan_tool {

// Milliseconds since the Unix epoch as "2026-05-04 03:02:01" in UTC. Empty for 0; the number if it
// is out of the calendar's range.
std::string time_text(int64_t time);

}  // namespace corvan_tool

#endif  // TOOLS_UI_TIME_H_
