#include "tools/verify/checks.h"

#include <algorithm>

#include "tools/verify/contents.h"
#include "tools/verify/duplicates.h"
#include "tools/verify/file_checks.h"
#include "tools/verify/message_checks.h"
#include "tools/verify/schema_checks.h"
#include "tools/verify/session_checks.h"
#include "tools/verify/store_reader.h"
#include "tools/verify/sync_checks.h"

namespace corvan_tool {

namespace {

// Returns whether the tables have the columns that the checks of rows need.
bool check_file(StoreReader& store) {
  check_integrity(store);
  const bool has_columns = check_schema(store);
  check_version(store);
  check_settings(store);
  return has_columns;
}

void check_rows(StoreReader& store, Report& report) {
  Contents contents;
  MessageFindings message_findings;
  read_sessions(store, contents);
  read_messages(store, contents, message_findings);
  if (store.is_complete()) {
    check_sessions(contents, store.findings());
    find_orphans(store, contents, message_findings);
  }
  find_duplicates(store);
  check_sync(store, contents);
  message_findings.move_to(store.findings());
  if (store.is_complete()) check_sequence(store, contents.largest_id);

  report.sessions = static_cast<int64_t>(contents.sessions.size());
  report.messages = contents.messages;
  report.session_row_id = contents.session_row_id;
  report.complete = store.is_complete();
}

}  // namespace

int64_t Report::count(Rank rank) const {
  return std::count_if(findings.begin(), findings.end(),
                       [rank](const Finding& finding) { return finding.rule->rank == rank; });
}

Report check_store(const Connection& connection, const std::string& name) {
  Report report;
  Findings findings;
  StoreReader store(connection, name, findings);
  const bool has_columns = check_file(store);
  report.damaged = store.is_damaged();
  if (has_columns) {
    check_rows(store, report);
  } else {
    findings.add(CORVAN_RULE("rows-unread"), "").stored = "a table lacks columns";
  }
  report.findings = findings.take();
  return report;
}

Report report_damage(const std::string& detail) {
  Findings findings;
  findings.add(CORVAN_RULE("file-damaged"), "").stored = detail;
  Report report;
  report.findings = findings.take();
  report.damaged = true;
  return report;
}

}  // namespace corvan_tool
