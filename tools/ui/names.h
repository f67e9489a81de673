// Names of the store's codes.

#ifndef TOOLS_UI_NAMES_H_
#define TOOLS_UI_NAMES_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace corvan_tool {

// The types of conversation: "private", "group", "chatroom", "reception", "system".
const std::map<std::string, Corvan::SessionType>& types_by_name();

// All five types.
std::vector<Corvan::SessionType> all_types();

// A type's name, or the number if it has none.
std::string type_name(int32_t type);

// "sent", "sending", "failed", "seen", or the number.
std::string sent_status_name(int32_t status);

// "unread", "read", or the number.
std::string read_status_name(int32_t status);

}  // namespace corvan_tool

#endif  // TOOLS_UI_NAMES_H_
