// How messages are read and written by the commands that show them.

#ifndef TOOLS_STORE_MESSAGE_ROW_H_
#define TOOLS_STORE_MESSAGE_ROW_H_

#include <sqlite3.h>

#include <string>

#include "db/cv_db_records.h"
#include "tools/ui/json.h"

namespace corvan_tool {

// A message's time in a statement. What is no number is ordered as it is shown.
inline constexpr const char* kMessageTime = "coalesce(cast(sent_time as integer),0)";

// The columns of t_message that message_at() reads, which must be a row's first ones.
extern const std::string kMessageColumns;
Corvan::MessageResponse message_at(sqlite3_stmt* row);

// The keys that list, history, show and search have in common; a message of the list has no time of
// its own.
Json message_json(const Corvan::MessageResponse& m, bool with_time);

// How far a message has come: read or not when received, otherwise the way of its sending.
std::string state_text(const Corvan::MessageResponse& m);

}  // namespace corvan_tool

#endif  // TOOLS_STORE_MESSAGE_ROW_H_
