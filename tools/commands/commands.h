// The commands that look into a store. None changes what it looks at.

#ifndef TOOLS_COMMANDS_COMMANDS_H_
#define TOOLS_COMMANDS_COMMANDS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "db/cv_db_records.h"

namespace corvan_tool {

class CommandLine;

struct ListOptions {
  std::string folder;
  std::vector<Corvan::SessionType> kinds;  // none: all
  int32_t limit = -1;                      // below 0: no limit
  bool json = false;
};

struct HistoryOptions {
  std::string folder;
  std::string session_id;
  Corvan::SessionType kind = Corvan::CV_PRIVATE;
  std::optional<int64_t> before;  // message ids
  std::optional<int64_t> after;
  int32_t limit = 20;
  std::vector<std::string> object_names;  // none: all
  bool json = false;
};

struct UnreadOptions {
  std::string folder;
  std::vector<Corvan::SessionType> kinds;  // none: all
  bool json = false;
};

struct ShowOptions {
  std::string folder;
  int64_t id = 0;
  bool json = false;
};

struct CheckOptions {
  std::string folder;
  bool json = false;
};

// Each returns the exit status, and throws ToolError when the store cannot be read.
int run_list(const ListOptions& options);
int run_history(const HistoryOptions& options);
int run_unread(const UnreadOptions& options);
int run_show(const ShowOptions& options);
int run_check(const CheckOptions& options);

// Puts list, history, unread and show on the command line, and check.
void add_look(CommandLine& line);
void add_check(CommandLine& line);

}  // namespace corvan_tool

#endif  // TOOLS_COMMANDS_COMMANDS_H_
