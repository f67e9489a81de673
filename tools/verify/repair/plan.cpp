#include "tools/verify/repair/plan.h"

#include <algorithm>
#include <utility>

namespace corvan_tool {

namespace {

// The word of --repair that covers a column of t_session.
std::string_view repair_of_column(std::string_view column) {
  if (column == "latest_id") return kLatest;
  return column == "session_time" ? kTimes : kCounters;
}

class Planner {
 public:
  explicit Planner(const std::vector<std::string>& words) : words_(words) {}

  void take(const Finding& finding) {
    if (!finding.changes.empty() && wants(finding.rule->repair)) add_steps(finding);
    for (const std::string& column : finding.unchecked) {
      const std::string_view repair = repair_of_column(column);
      if (wants(repair)) plan_.left.push_back({repair, *finding.conversation, column});
    }
  }

  RepairPlan result() { return std::move(plan_); }

 private:
  bool wants(std::string_view word) const {
    return std::find(words_.begin(), words_.end(), word) != words_.end();
  }

  void add_steps(const Finding& finding) {
    // Repairing latest_id also sets session_time.
    if (finding.rule->repair == kTimes && finding.conversation == repaired_latest_) return;
    if (finding.rule->repair == kLatest) repaired_latest_ = finding.conversation;
    for (const Change& change : finding.changes) {
      if (change.old_value == change.new_value) continue;
      plan_.steps.push_back({finding.rule, finding.conversation, finding.row, change});
    }
  }

  const std::vector<std::string>& words_;
  std::optional<ConversationKey> repaired_latest_;  // the last conversation with such a finding
  RepairPlan plan_;
};

}  // namespace

RepairPlan plan_repair(const Report& report, const std::vector<std::string>& words) {
  Planner planner(words);
  for (const Finding& finding : report.findings) planner.take(finding);
  RepairPlan plan = planner.result();
  plan.session_row_id = report.session_row_id;
  return plan;
}

}  // namespace corvan_tool
