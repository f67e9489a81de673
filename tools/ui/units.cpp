#include "tools/ui/units.h"

#include <fmt/format.h>

namespace corvan_tool {

std::string size_text(int64_t bytes) {
  const double kib = static_cast<double>(bytes) / 1024;
  return kib < 1024 ? fmt::format("{:.0f} KiB", kib) : fmt::format("{:.1f} MiB", kib / 1024);
}

std::string seconds_text(double seconds) {
  return fmt::format("{:.2f}", seconds);
}

std::string counted(int64_t count, std::string_view noun) {
  return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

}  // namespace corvan_tool
