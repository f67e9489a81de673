#include "tools/ui/names.h"

#include <array>
#include <cstddef>

namespace corvan_tool {

const std::map<std::string, Corvan::SessionType>& types_by_name() {
  static const std::map<std::string, Corvan::SessionType> types = {
      {"private", Corvan::CV_PRIVATE},   {"group", Corvan::CV_GROUP},
      {"chatroom", Corvan::CV_CHATROOM}, {"reception", Corvan::CV_RECEPTION},
      {"system", Corvan::CV_SYSTEM},
  };
  return types;
}

std::vector<Corvan::SessionType> all_types() {
  return {Corvan::CV_PRIVATE, Corvan::CV_GROUP, Corvan::CV_CHATROOM, Corvan::CV_RECEPTION,
          Corvan::CV_SYSTEM};
}

std::string type_name(int32_t type) {
  for (const auto& [name, value] : types_by_name()) {
    if (value == type) return name;
  }
  return std::to_string(type);
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

}  // namespace corvan_tool
