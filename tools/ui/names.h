// How codes and times of the store are written for people.

#ifndef TOOLS_UI_NAMES_H_
#define TOOLS_UI_NAMES_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace corvan_tool {

// "private", "group", "chatroom", "reception", "system", each with its kind.
const std::map<std::string, Corvan::SessionType>& kinds_by_name();

// All five kinds.
std::vector<Corvan::SessionType> all_kinds();

// A kind's name, or its number when it has none.
std::string kind_name(int32_t kind);

// "sent", "sending", "failed", "seen", or the number.
std::string sent_status_name(int32_t status);

// "unread", "read", or the number.
std::string read_status_name(int32_t status);

// Milliseconds since the Unix epoch as "2026-05-04 03:02:01" in UTC; empty for 0, the number for a
// time that no calendar reaches.
std::string time_text(int64_t time);

// A to Z in lower case, all else as it is.
char lower_case(char c);
std::string lower_case(std::string text);

// As "12 KiB" or "3.4 MiB".
std::string size_text(int64_t bytes);

// As "1.25".
std::string seconds_text(double seconds);

}  // namespace corvan_tool

#endif  // TOOLS_UI_NAMES_H_
