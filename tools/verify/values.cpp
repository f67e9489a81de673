#include "tools/verify/values.h"

#include <chrono>
#include <limits>

#include "db/cv_db_records.h"

namespace corvan_tool {

namespace {

constexpr int64_t kOneDay = int64_t{24} * 60 * 60 * 1000;
// The year 5138 in seconds, but 1973 in milliseconds: a smaller number is a time in seconds.
constexpr int64_t kLeastTime = 100'000'000'000;
// Likewise, a number from here on is a time in microseconds.
constexpr int64_t kMostTime = 100'000'000'000'000;

}  // namespace

const char* type_name(const Row& row, int column) {
  switch (row.type(column)) {
    case SQLITE_INTEGER:
      return "integer";
    case SQLITE_FLOAT:
      return "real";
    case SQLITE_TEXT:
      return "text";
    case SQLITE_BLOB:
      return "blob";
    default:
      return "null";
  }
}

const Rule& number_type_rule(std::string_view type) {
  return type == "null" ? CORVAN_RULE("integer-null") : CORVAN_RULE("column-type");
}

const Rule& text_type_rule(std::string_view type) {
  return type == "null" ? CORVAN_RULE("text-null") : CORVAN_RULE("column-type");
}

bool is_code(int64_t value) {
  return value >= std::numeric_limits<int32_t>::min() &&
         value <= std::numeric_limits<int32_t>::max();
}

const Rule* wrong_session_type(int64_t type) {
  if (type >= Corvan::CV_PRIVATE && type <= Corvan::CV_SYSTEM) return nullptr;
  return is_code(type) ? &CORVAN_RULE("kind-unknown") : &CORVAN_RULE("code-impossible");
}

const Rule* wrong_time(int64_t time, int64_t now) {
  if (time < kLeastTime || time >= kMostTime) return &CORVAN_RULE("time-unit");
  return time > now + kOneDay ? &CORVAN_RULE("time-future") : nullptr;
}

int64_t time_now() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::milliseconds>(since).count();
}

}  // namespace corvan_tool
