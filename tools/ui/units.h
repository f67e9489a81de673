// Sizes, durations and counts as text.

#ifndef TOOLS_UI_UNITS_H_
#define TOOLS_UI_UNITS_H_

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

namespace corvan_tool {

// "12 KiB" or "3.4 MiB".
std::string size_text(int64_t bytes);

// "1.25".
std::string seconds_text(double seconds);

// "1 message", "2 messages".
std::string counted(int64_t count, std::string_view noun);

// The time since its construction.
class Stopwatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace corvan_tool

#endif  // TOOLS_UI_UNITS_H_
