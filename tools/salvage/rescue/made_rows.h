// Rows that are made from other data because their own are lost.

#ifndef TOOLS_SALVAGE_RESCUE_MADE_ROWS_H_
#define TOOLS_SALVAGE_RESCUE_MADE_ROWS_H_

#include <cstdint>
#include <string>

#include "tools/salvage/coverage.h"
#include "tools/salvage/rescue/rescue_file.h"

namespace corvan_tool {

struct MadeSessions {
  std::int64_t count = 0;
  std::int64_t lost_besides = 0;  // of them, those that are not yet counted as lost
};

// Makes lost conversations from index entries. If no index could be read whole, makes one also for
// each conversation that messages belong to. Makes none if t_session was read whole: a conversation
// without a row was then removed from the list.
MadeSessions make_sessions(const RescueFile& file, const TableCoverage& coverage);

// Writes the version of a new store if the version is lost. Returns how many rows were made.
std::int64_t make_version(const RescueFile& file, const std::string& version);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_RESCUE_MADE_ROWS_H_
