// Reads messages for the commands that show them, and writes them as JSON.

#ifndef TOOLS_STORE_MESSAGE_ROW_H_
#define TOOLS_STORE_MESSAGE_ROW_H_

#include <string>
#include <vector>

#include "db/cv_db_records.h"
#include "tools/store/connection.h"
#include "tools/ui/json.h"

namespace corvan_tool {

// SQL for a message's time. A time that is not a number is 0, both when shown and when sorted.
inline constexpr const char* kMessageTime = "coalesce(cast(sent_time as integer),0)";

// The columns of t_message that message_at() reads. They must come first in the row.
extern const std::string kMessageColumns;
Corvan::MessageResponse message_at(const Row& row);

// The JSON keys that list, history, show and search share. Only list omits the time.
Json message_json(const Corvan::MessageResponse& m, bool with_time);

// The read state of a received message, the sent state of an own one.
std::string state_text(const Corvan::MessageResponse& m);

// The types as a list for SQL's in(...); all five if there are none.
std::string listed_types(const std::vector<Corvan::SessionType>& types);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_MESSAGE_ROW_H_
