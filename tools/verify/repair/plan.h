// Chooses the changes that --repair makes.

#ifndef TOOLS_VERIFY_REPAIR_PLAN_H_
#define TOOLS_VERIFY_REPAIR_PLAN_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/verify/checks.h"

namespace corvan_tool {

// One change, and the finding that it repairs.
struct RepairStep {
  const Rule* rule = nullptr;
  std::optional<ConversationKey> conversation;
  int64_t row = 0;  // the conversation's row id in t_session
  Change change;
};

// A column that a word of --repair covers, but that could not be checked.
struct LeftColumn {
  std::string_view repair;  // that word
  ConversationKey conversation;
  std::string column;
};

struct RepairPlan {
  std::vector<RepairStep> steps;  // in the order in which they are made
  std::vector<LeftColumn> left;
  std::string session_row_id;  // as in Report
};

// `words` are those of --repair.
RepairPlan plan_repair(const Report& report, const std::vector<std::string>& words);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_REPAIR_PLAN_H_
