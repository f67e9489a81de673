#include "tools/verify/checks.h"

#include <algorithm>

#include "tools/store/connection.h"
#include "tools/verify/contents.h"
#include "tools/verify/duplicates.h"
#include "tools/verify/file_checks.h"
#include "tools/verify/message_checks.h"
#include "tools/verify/row_reader.h"
#include "tools/verify/schema_checks.h"
#include "tools/verify/session_checks.h"
#include "tools/verify/session_rows.h"
#include "tools/verify/sync_checks.h"

namespace corvan_tool {

namespace {

// Returns whether the tables have the columns that the checks of rows need.
bool check_file(const Connection& connection, const std::string& name, Findings& findings,
                Report& report) {
  FileReader file(connection, name, findings);
  check_integrity(file);
  const bool has_columns = check_schema(file);
  check_version(file);
  check_settings(file);
  report.damaged = file.is_damaged();
  return has_columns;
}

void check_rows(const Connection& connection, const std::string& name, Findings& findings,
                Report& report) {
  RowReader rows(connection, name, findings);
  Contents contents;
  MessageFindings message_findings;
  read_sessions(rows, contents, findings);
  read_messages(rows, contents, message_findings);
  if (rows.is_complete()) {
    check_sessions(contents, findings);
    find_orphans(rows, contents, message_findings);
  }
  find_duplicates(rows, findings);
  check_sync(rows, contents, findings);
  message_findings.move_to(findings);
  if (rows.is_complete()) check_sequence(connection, contents.largest_id, findings);

  report.sessions = contents.sessions.size();
  report.messages = contents.messages;
  report.session_row_id = contents.session_row_id;
  report.complete = rows.is_complete();
}

}  // namespace

std::size_t Report::count(Rank rank) const {
  return static_cast<std::size_t>(
      std::count_if(findings.begin(), findings.end(),
                    [rank](const Finding& finding) { return finding.rule->rank == rank; }));
}

Report check_store(const Connection& connection, const std::string& name) {
  Report report;
  Findings findings;
  if (check_file(connection, name, findings, report)) {
    check_rows(connection, name, findings, report);
  } else {
    findings.add(rule("rows-unread"), "").stored = "a table lacks columns";
  }
  report.findings = findings.take();
  return report;
}

Report report_damage(const std::string& detail) {
  Findings findings;
  findings.add(rule("file-damaged"), "").stored = detail;
  Report report;
  report.findings = findings.take();
  report.damaged = true;
  return report;
}

}  // namespace corvan_tool
