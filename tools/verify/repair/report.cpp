#include "tools/verify/repair/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>

#include "tools/ui/table.h"
#include "tools/ui/terminal_text.h"

namespace corvan_tool {

namespace {

constexpr const char* kLeftReason =
    "a value that it depends on has the wrong type, or the conversation has several rows; "
    "see 'corvan verify'";

std::string change_value_text(const Json& value) {
  if (value.is_null()) return "none";
  return value.is_string() ? value.get<std::string>() : value.dump();
}

void print_steps(const RepairPlan& plan) {
  TextTable table({{"REPAIR"}, {"FINDING"}, {"CONVERSATION"}, {"WHAT"}, {"CHANGE"}});
  for (const RepairStep& step : plan.steps) {
    table.add({std::string(step.rule->repair), std::string(step.rule->code),
               step.conversation ? conversation_text(*step.conversation) : "", step.change.name,
               fmt::format("{} -> {}", change_value_text(step.change.old_value),
                           change_value_text(step.change.new_value))});
  }
  // Not cut to the terminal's width: the old values are needed to take a change back.
  table.print(std::cout, 0);
}

std::string repair_summary(const RepairPlan& plan, const std::string& backup, bool dry_run) {
  std::string text =
      fmt::format("{}: {}", dry_run ? "would be changed" : "changed", plan.steps.size());
  if (!dry_run) text += fmt::format("; the original was copied to {}", printable(backup));
  text += '\n';
  const auto is_note = [](const RepairStep& step) { return step.rule->rank == Rank::kNote; };
  const auto notes = std::count_if(plan.steps.begin(), plan.steps.end(), is_note);
  if (notes > 0) {
    text += fmt::format("notes among them: {}; ordinary use can cause these, see 'corvan verify'\n",
                        notes);
  }
  return text;
}

Json step_json(const RepairStep& step) {
  const auto& key = step.conversation;
  return {{"repair", step.rule->repair},
          {"finding", step.rule->code},
          {"session_id", key ? Json(key->id) : Json(nullptr)},
          {"session_type", key ? Json(key->type) : Json(nullptr)},
          {"name", step.change.name},
          {"old", step.change.old_value},
          {"new", step.change.new_value}};
}

Json left_json(const LeftColumn& left) {
  return {{"repair", left.repair},
          {"session_id", left.conversation.id},
          {"session_type", left.conversation.type},
          {"name", left.column},
          {"reason", kLeftReason}};
}

}  // namespace

void print_repair(const RepairPlan& plan, const std::string& backup, bool dry_run) {
  if (plan.steps.empty()) {
    std::cout << (plan.left.empty() ? "nothing to repair\n" : "nothing could be repaired\n");
  } else {
    print_steps(plan);
    std::cout << repair_summary(plan, backup, dry_run);
  }
  for (const LeftColumn& left : plan.left) {
    std::cout << fmt::format("left: {} {} {}: {}\n", left.repair,
                             printable(conversation_text(left.conversation)), left.column,
                             kLeftReason);
  }
}

void print_repair_json(const RepairPlan& plan, const std::string& backup, bool dry_run) {
  Json json = {{"dry_run", dry_run},
               {"backup", backup.empty() ? Json(nullptr) : Json(backup)},
               {"changes", Json::array()},
               {"left", Json::array()}};
  for (const RepairStep& step : plan.steps) json["changes"].push_back(step_json(step));
  for (const LeftColumn& left : plan.left) json["left"].push_back(left_json(left));
  print_json(json);
}

}  // namespace corvan_tool
