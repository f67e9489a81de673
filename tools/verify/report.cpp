#include "tools/verify/report.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <map>
#include <tuple>
#include <utility>

#include "tools/store/connection.h"
#include "tools/ui/table.h"
#include "tools/verify/schema_checks.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kShownFindings = 10;  // of a kind
constexpr std::size_t kShownMessages = 10;  // of a finding

void append(std::vector<Finding>& to, std::vector<Finding> findings) {
  std::move(findings.begin(), findings.end(), std::back_inserter(to));
}

void sort(std::vector<Finding>& findings) {
  std::map<const Kind*, std::size_t> places;
  for (const Kind* const kind : all_kinds_of_finding()) places.emplace(kind, places.size());
  const auto order = [&places](const Finding& finding) {
    const ConversationKey key = finding.conversation.value_or(ConversationKey());
    return std::tuple(places.at(finding.kind), key.id, key.type, finding.name);
  };
  std::stable_sort(findings.begin(), findings.end(),
                   [&order](const Finding& a, const Finding& b) { return order(a) < order(b); });
}

std::string value_text(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_object()) return value["least"].dump() + " to " + value["most"].dump();
  if (!value.is_array()) return value.dump();
  std::string text;
  for (const Json& one : value) text += (text.empty() ? "" : "; ") + value_text(one);
  return text.empty() ? "nothing" : text;
}

std::string finding_text(const Finding& finding) {
  std::string text;
  if (finding.conversation) text = conversation_text(*finding.conversation) + " ";
  if (!finding.name.empty() && finding.name != "t_session") text += finding.name + " ";
  if (!finding.stored.is_null()) text += value_text(finding.stored);
  if (!finding.derived.is_null()) {
    text += (finding.stored.is_null() ? "" : ", ") + ("derived: " + value_text(finding.derived));
  }
  while (!text.empty() && text.back() == ' ') text.pop_back();
  if (finding.messages.empty()) return text;

  const std::size_t count = finding.messages.size();
  text += count == 1 ? ": message " : ": messages ";
  for (std::size_t i = 0; i < count && i < kShownMessages; ++i) {
    text += (i == 0 ? "" : ", ") + std::to_string(finding.messages[i]);
  }
  if (count > kShownMessages) text += " and " + std::to_string(count - kShownMessages) + " more";
  return text;
}

// The findings of one kind, which begin at `from`; where they end.
using FindingPlace = std::vector<Finding>::const_iterator;
FindingPlace end_of_kind(FindingPlace from, FindingPlace end) {
  return std::find_if(from, end, [from](const Finding& one) { return one.kind != from->kind; });
}

void print_kind(FindingPlace from, FindingPlace end) {
  const Kind& kind = *from->kind;
  const auto count = static_cast<std::size_t>(end - from);
  std::cout << '\n'
            << kind.code << " (" << rank_name(kind.rank) << ", " << count << "): " << kind.text
            << '\n';
  std::cout << "  by: " << (*kind.operations == '\0' ? "no operation" : kind.operations) << "; "
            << kind.explanation << '\n';
  if (std::any_of(from, end, [](const Finding& one) { return one.mended; })) {
    std::cout << "  mended by: --repair " << kind.repair << '\n';
  }
  const std::size_t shown = std::min(count, kShownFindings);
  for (std::size_t i = 0; i < shown; ++i) {
    const std::string text = finding_text(*(from + static_cast<std::ptrdiff_t>(i)));
    std::cout << "    " << printable(text) << '\n';
  }
  if (count > shown) std::cout << "    ... and " << count - shown << " more\n";
}

std::string number_text(std::size_t count, const char* one, const char* many) {
  return std::to_string(count) + " " + (count == 1 ? one : many);
}

Json operations_json(const Kind& kind) {
  Json list = Json::array();
  const std::string all = kind.operations;
  for (std::size_t at = 0; at < all.size();) {
    const std::size_t end = std::min(all.find(", ", at), all.size());
    list.push_back(all.substr(at, end - at));
    at = end + 2;
  }
  return list;
}

Json finding_json(const Finding& finding) {
  Json json;
  json["session_id"] = finding.conversation ? Json(finding.conversation->id) : Json(nullptr);
  json["session_type"] = finding.conversation ? Json(finding.conversation->type) : Json(nullptr);
  json["name"] = finding.name;
  json["messages"] = finding.messages;
  json["stored"] = finding.stored;
  json["derived"] = finding.derived;
  json["repair"] = finding.mended ? Json(finding.kind->repair) : Json(nullptr);
  return json;
}

}  // namespace

std::size_t Report::count(Rank rank) const {
  return static_cast<std::size_t>(
      std::count_if(findings.begin(), findings.end(),
                    [rank](const Finding& finding) { return finding.kind->rank == rank; }));
}

Report look_at_all(const Connection& connection, const std::string& name) {
  Report report;
  FileFindings file = look_at_file(connection, name);
  append(report.findings, std::move(file.findings));
  report.damaged = file.damaged;
  if (file.has_columns) {
    RowFindings rows = look_at_rows(connection, name);
    append(report.findings, std::move(rows.findings));
    report.sessions = std::move(rows.sessions);
    report.session_row_id = std::move(rows.session_row_id);
    report.messages = rows.messages;
    report.complete = rows.complete;
    if (rows.complete) append(report.findings, look_at_sequence(connection, rows.largest_id));
  } else {
    Finding finding;
    finding.kind = &kind::kRowsUnread;
    finding.stored = "a table lacks columns";
    report.findings.push_back(finding);
  }
  sort(report.findings);
  return report;
}

Report damaged_file(const std::string& detail) {
  Finding finding;
  finding.kind = &kind::kFileDamaged;
  finding.stored = detail;
  Report report;
  report.damaged = true;
  report.findings.push_back(finding);
  return report;
}

void print_report(const Report& report) {
  const std::size_t impossible = report.count(Rank::kImpossible);
  const std::size_t allowed = report.count(Rank::kAllowed);
  if (report.found_any()) {
    std::cout << number_text(impossible + allowed, "finding", "findings") << ": " << impossible
              << " impossible, " << allowed << " allowed";
  } else {
    std::cout << "ok: " << number_text(report.sessions.size(), "conversation", "conversations")
              << ", "
              << number_text(static_cast<std::size_t>(report.messages), "message", "messages");
  }
  const std::size_t notes = report.count(Rank::kNote);
  if (notes > 0) std::cout << "; " << number_text(notes, "note", "notes");
  if (report.damaged) std::cout << "; the file is damaged: see 'corvan salvage'";
  std::cout << '\n';

  const auto end = report.findings.end();
  for (auto from = report.findings.begin(); from != end;) {
    const auto next = end_of_kind(from, end);
    print_kind(from, next);
    from = next;
  }
}

void print_report_json(const Report& report) {
  Json json = {{"ok", !report.found_any()},
               {"damaged", report.damaged},
               {"complete", report.complete},
               {"sessions", report.sessions.size()},
               {"messages", report.messages}};
  for (const Rank rank : {Rank::kImpossible, Rank::kAllowed, Rank::kNote}) {
    json[rank_name(rank)] = report.count(rank);
  }
  json["findings"] = Json::array();
  const auto end = report.findings.end();
  for (auto from = report.findings.begin(); from != end;) {
    const auto next = end_of_kind(from, end);
    const Kind& kind = *from->kind;
    Json entry = {{"code", kind.code},
                  {"class", rank_name(kind.rank)},
                  {"text", kind.text},
                  {"operations", operations_json(kind)},
                  {"explanation", kind.explanation},
                  {"rows", Json::array()}};
    for (; from != next; ++from) entry["rows"].push_back(finding_json(*from));
    json["findings"].push_back(std::move(entry));
  }
  print_json(json);
}

}  // namespace corvan_tool
