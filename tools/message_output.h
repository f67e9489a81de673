// How messages are written by the commands that show them.

#ifndef TOOLS_MESSAGE_OUTPUT_H_
#define TOOLS_MESSAGE_OUTPUT_H_

#include <string>

#include "db/cv_db_records.h"
#include "tools/json_output.h"

namespace corvan_tool {

// The keys that list, history, show and search have in common; a message of the list has no time of
// its own.
Json message_json(const Corvan::MessageResponse& m, bool with_time);

// How far a message has come: read or not when received, otherwise the way of its sending.
std::string state_text(const Corvan::MessageResponse& m);

}  // namespace corvan_tool

#endif  // TOOLS_MESSAGE_OUTPUT_H_
