#include "tools/verify/report.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <iostream>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "tools/ui/terminal_text.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kShownFindings = 10;  // per rule
constexpr std::size_t kShownMessages = 10;  // per finding

// The findings of one rule.
using Group = std::vector<const Finding*>;

bool is_before(const Finding* a, const Finding* b) {
  static const ConversationKey none;
  const ConversationKey& of_a = a->conversation ? *a->conversation : none;
  const ConversationKey& of_b = b->conversation ? *b->conversation : none;
  return std::tie(of_a.id, of_a.type, a->name) < std::tie(of_b.id, of_b.type, b->name);
}

std::vector<Group> groups_of(const std::vector<Finding>& findings) {
  std::vector<Group> groups(kRules.size());
  for (const Finding& finding : findings) {
    groups.at(static_cast<std::size_t>(finding.rule - kRules.data())).push_back(&finding);
  }
  groups.erase(std::remove_if(groups.begin(), groups.end(),
                              [](const Group& group) { return group.empty(); }),
               groups.end());
  for (Group& group : groups) std::stable_sort(group.begin(), group.end(), is_before);
  return groups;
}

std::string value_text(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_object()) {
    return fmt::format("{} to {}", value["least"].dump(), value["most"].dump());
  }
  if (!value.is_array()) return value.dump();
  std::vector<std::string> texts;
  for (const Json& one : value) texts.push_back(value_text(one));
  return texts.empty() ? "nothing" : fmt::format("{}", fmt::join(texts, "; "));
}

// ": messages 1, 2, 3 and 4 more"
std::string messages_text(const std::vector<int64_t>& ids) {
  if (ids.empty()) return "";
  const std::size_t shown = std::min(ids.size(), kShownMessages);
  const auto end = ids.begin() + static_cast<std::ptrdiff_t>(shown);
  std::string text =
      fmt::format(": message{} {}", ids.size() == 1 ? "" : "s", fmt::join(ids.begin(), end, ", "));
  if (ids.size() > shown) text += fmt::format(" and {} more", ids.size() - shown);
  return text;
}

std::string finding_text(const Finding& finding) {
  std::string text;
  if (finding.conversation) text = conversation_text(*finding.conversation) + " ";
  if (!finding.name.empty() && finding.name != "t_session") text += finding.name + " ";
  if (!finding.stored.is_null()) text += value_text(finding.stored);
  if (!finding.derived.is_null()) {
    text += fmt::format("{}derived: {}", finding.stored.is_null() ? "" : ", ",
                        value_text(finding.derived));
  }
  while (!text.empty() && text.back() == ' ') text.pop_back();
  return text + messages_text(finding.messages);
}

void print_group(const Group& group) {
  const Rule& rule = *group.front()->rule;
  std::cout << fmt::format("\n{} ({}, {}): {}\n", rule.code, rank_name(rule.rank), group.size(),
                           rule.text);
  std::cout << fmt::format("  by: {}; {}\n",
                           rule.operations.empty() ? "no operation" : rule.operations,
                           rule.explanation);
  const auto is_repairable = [](const Finding* finding) { return !finding->changes.empty(); };
  if (std::any_of(group.begin(), group.end(), is_repairable)) {
    std::cout << fmt::format("  repaired by: --repair {}\n", rule.repair);
  }
  const std::size_t shown = std::min(group.size(), kShownFindings);
  for (std::size_t i = 0; i < shown; ++i) {
    std::cout << fmt::format("    {}\n", printable(finding_text(*group[i])));
  }
  if (group.size() > shown) std::cout << fmt::format("    ... and {} more\n", group.size() - shown);
}

std::string summary(const Report& report) {
  const int64_t impossible = report.count(Rank::kImpossible);
  const int64_t allowed = report.count(Rank::kAllowed);
  const int64_t notes = report.count(Rank::kNote);
  std::string text =
      report.found_any()
          ? fmt::format("{}: {} impossible, {} allowed", counted(impossible + allowed, "finding"),
                        impossible, allowed)
          : fmt::format("ok: {}, {}", counted(report.sessions, "conversation"),
                        counted(report.messages, "message"));
  if (notes > 0) text += "; " + counted(notes, "note");
  if (report.damaged) text += "; the file is damaged: see 'corvan salvage'";
  return text;
}

Json operations_json(const Rule& rule) {
  Json list = Json::array();
  for (std::size_t at = 0; at < rule.operations.size();) {
    const std::size_t end = std::min(rule.operations.find(", ", at), rule.operations.size());
    list.push_back(rule.operations.substr(at, end - at));
    at = end + 2;
  }
  return list;
}

Json finding_json(const Finding& finding) {
  const auto& key = finding.conversation;
  return {{"session_id", key ? Json(key->id) : Json(nullptr)},
          {"session_type", key ? Json(key->type) : Json(nullptr)},
          {"name", finding.name},
          {"messages", finding.messages},
          {"stored", finding.stored},
          {"derived", finding.derived},
          {"repair", finding.changes.empty() ? Json(nullptr) : Json(finding.rule->repair)}};
}

Json group_json(const Group& group) {
  const Rule& rule = *group.front()->rule;
  Json json = {{"code", rule.code},
               {"class", rank_name(rule.rank)},
               {"text", rule.text},
               {"operations", operations_json(rule)},
               {"explanation", rule.explanation},
               {"rows", Json::array()}};
  for (const Finding* const finding : group) json["rows"].push_back(finding_json(*finding));
  return json;
}

}  // namespace

void print_report(const Report& report) {
  std::cout << summary(report) << '\n';
  for (const Group& group : groups_of(report.findings)) print_group(group);
}

void print_report_json(const Report& report) {
  Json json = {{"ok", !report.found_any()},
               {"damaged", report.damaged},
               {"complete", report.complete},
               {"sessions", report.sessions},
               {"messages", report.messages}};
  for (const Rank rank : {Rank::kImpossible, Rank::kAllowed, Rank::kNote}) {
    json[rank_name(rank)] = report.count(rank);
  }
  json["findings"] = Json::array();
  for (const Group& group : groups_of(report.findings)) {
    json["findings"].push_back(group_json(group));
  }
  print_json(json);
}

}  // namespace corvan_tool
