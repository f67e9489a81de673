// How SQLite treats values, and lists that are pasted into statements.

#ifndef TESTS_MODEL_SQL_VALUES_H_
#define TESTS_MODEL_SQL_VALUES_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace corvan_test {

// A bound text ends at its first zero byte.
std::string cut(const std::string& text);
// An integer as the 32-bit column reader returns it.
int32_t low32(int64_t value);

// Sums that wrap around.
int64_t sum64(int64_t a, int64_t b);
int32_t sum32(int32_t a, int32_t b);

// A list pasted into a statement: quoted texts, or numbers, with commas between. No value if SQLite
// cannot parse the statement, such as after a zero byte, which ends it within the list.
std::optional<std::set<std::string>> quoted_list(const std::string& text);
std::optional<std::set<int64_t>> number_list(const std::string& text);
void append(std::string& list, const std::string& element);
std::string kind_list(const std::vector<Corvan::SessionType>& entry);

// A value as an SQL literal.
std::string sql_text(const std::string& value);
std::string sql_text(int64_t value);

// Whether `kind` is listed; true for every kind if none is listed.
bool among(const std::vector<Corvan::SessionType>& entry, int64_t kind);

// Whether the limit is reached; a negative one never is.
bool full(std::size_t size, int32_t limit);

}  // namespace corvan_test

#endif  // TESTS_MODEL_SQL_VALUES_H_
