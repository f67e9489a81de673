// Checks of single values.

#ifndef TOOLS_VERIFY_VALUES_H_
#define TOOLS_VERIFY_VALUES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "tools/store/connection.h"
#include "tools/verify/rules.h"

namespace corvan_tool {

// A value's type, as SQLite's function typeof() names it.
const char* type_name(const Row& row, int column);

// The rules that a value breaks if its type is not that of its number or text column.
const Rule& number_type_rule(std::string_view type);
const Rule& text_type_rule(std::string_view type);

inline bool is_integer(const Row& row, int column) {
  return row.type(column) == SQLITE_INTEGER;
}

// Calls `report` with the name and the type of each column that does not hold an integer. The
// columns begin at `first`. `names` has their names, because SQLite would return them as the file
// spells them. Returns whether all of them hold integers.
template <std::size_t Count, typename Report>
bool check_integers(const Row& row, int first, const std::array<const char*, Count>& names,
                    const Report& report) {
  bool is_good = true;
  for (std::size_t i = 0; i < Count; ++i) {
    const int column = first + static_cast<int>(i);
    if (is_integer(row, column)) continue;
    report(names.at(i), type_name(row, column));
    is_good = false;
  }
  return is_good;
}

// As check_integers(), for texts. The columns of the query hold typeof() of the texts, which may be
// large themselves.
template <std::size_t Count, typename Report>
void check_texts(const Row& row, int first, const std::array<const char*, Count>& names,
                 const Report& report) {
  for (std::size_t i = 0; i < Count; ++i) {
    const std::string type = row.text(first + static_cast<int>(i));
    if (type != "text") report(names.at(i), type);
  }
}

// Whether the number fits into the 32 bits of the store's codes.
bool is_code(int64_t value);

// The rule that a type of conversation breaks; null for one of the five types.
const Rule* wrong_session_type(int64_t type);

// The rule that a time breaks; null for a plausible one. `now` is in milliseconds.
const Rule* wrong_time(int64_t time, int64_t now);

// This computer's time in milliseconds since the Unix epoch.
int64_t time_now();

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_VALUES_H_
