#include "tools/verify/findings.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "tools/ui/names.h"

namespace corvan_tool {

std::string conversation_text(const ConversationKey& key) {
  const bool is_known = key.type >= Corvan::CV_PRIVATE && key.type <= Corvan::CV_SYSTEM;
  const std::string type =
      is_known ? type_name(static_cast<int32_t>(key.type)) : fmt::to_string(key.type);
  return fmt::format("{} ({})", key.id, type);
}

void Finding::set_repair(Json old_value, Json new_value) {
  stored = std::move(old_value);
  derived = std::move(new_value);
  changes.push_back({name, stored, derived});
}

Finding& Findings::add(const Rule& rule, std::string name) {
  Finding finding;
  finding.rule = &rule;
  finding.name = std::move(name);
  return all_.emplace_back(std::move(finding));
}

Finding& Findings::add(const Rule& rule, const ConversationKey& conversation, std::string name) {
  Finding& finding = add(rule, std::move(name));
  finding.conversation = conversation;
  return finding;
}

void MessageFindings::add(const Rule& rule, const ConversationKey& conversation, int64_t id,
                          const std::string& column, const Json& stored) {
  at({&rule, conversation.id, conversation.type, column, stored.dump()}, id).stored = stored;
}

void MessageFindings::add_time(const Rule& rule, const ConversationKey& conversation, int64_t id,
                               int64_t time) {
  Json& stored = at({&rule, conversation.id, conversation.type, "sent_time", ""}, id).stored;
  if (stored.is_null()) {
    stored = time;
  } else if (stored.is_object()) {
    stored["least"] = std::min(stored["least"].get<int64_t>(), time);
    stored["most"] = std::max(stored["most"].get<int64_t>(), time);
  } else if (const int64_t other = stored; other != time) {
    stored = {{"least", std::min(other, time)}, {"most", std::max(other, time)}};
  }
}

Finding& MessageFindings::at(const Key& key, int64_t id) {
  const auto& [rule, session, type, column, value] = key;
  Finding& finding = all_[key];
  finding.rule = rule;
  finding.conversation = {session, type};
  finding.name = column;
  finding.messages.push_back(id);
  return finding;
}

void MessageFindings::move_to(Findings& findings) {
  for (auto& [key, finding] : all_) findings.add(std::move(finding));
  all_.clear();
}

}  // namespace corvan_tool
