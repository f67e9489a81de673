// What a store's file is made of, against what the library makes.

#ifndef TOOLS_VERIFY_SCHEMA_CHECKS_H_
#define TOOLS_VERIFY_SCHEMA_CHECKS_H_

#include <cstdint>
#include <string>
#include <vector>

#include "tools/verify/findings.h"

namespace corvan_tool {

class Connection;

struct FileFindings {
  std::vector<Finding> findings;
  bool damaged = false;     // SQLite's integrity check does not pass
  bool has_columns = true;  // the tables have the columns that the store names
};

// Here and below, ToolError, which begins with `name`, is thrown when reading fails for another
// reason than damage.
FileFindings look_at_file(const Connection& connection, const std::string& name);

// Whether the next message receives an id above `largest_id` and every other one that was given.
std::vector<Finding> look_at_sequence(const Connection& connection, int64_t largest_id);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_SCHEMA_CHECKS_H_
