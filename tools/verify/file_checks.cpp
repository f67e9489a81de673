#include "tools/verify/file_checks.h"

#include <fmt/format.h>

#include <array>
#include <string>
#include <vector>

#include "tools/ui/progress.h"

namespace corvan_tool {

namespace {

// The schema version and the settings of a new store.
constexpr const char* kSchemaVersion = "1";
struct Setting {
  const char* name;
  const char* value;
  const Rule& rule;
};
constexpr std::array<Setting, 3> kSettings = {
    {{"page_size", "4096", CORVAN_RULE("setting-other")},
     {"encoding", "UTF-8", CORVAN_RULE("setting-other")},
     {"journal_mode", "wal", CORVAN_RULE("journal-mode")}}};
constexpr int64_t kUserVersion = 1;

void check_user_version(StoreReader& store) {
  int64_t version = 0;
  store.accept(store.connection().each_row("pragma user_version",
                                           [&version](const Row& row) { version = row.int64(0); }));
  if (version == kUserVersion) return;
  // createdb_copydata takes over a number above 0.
  const Rule& broken = version > 0 ? CORVAN_RULE("user-version") : CORVAN_RULE("setting-other");
  Finding& finding = store.findings().add(broken, "user_version");
  finding.stored = version;
  finding.derived = kUserVersion;
}

}  // namespace

void check_integrity(StoreReader& store) {
  const StatementProgress progress(store.connection().handle(),
                                   "million steps of the integrity check");
  store.accept(store.connection().each_row("pragma integrity_check", [&store](const Row& row) {
    const std::string text = row.text(0);
    if (text != "ok") store.add_damage(text);
  }));
}

void check_version(StoreReader& store) {
  std::vector<std::string> versions;
  const int rc =
      store.connection().each_row("select database_version from t_version",
                                  [&versions](const Row& row) { versions.push_back(row.text(0)); });
  // A table without the column is the finding "table-differs".
  if (rc == SQLITE_ERROR || !store.accept(rc)) return;
  if (versions.empty()) {
    store.findings().add(CORVAN_RULE("version-missing"), "t_version").derived = kSchemaVersion;
  } else if (versions.size() > 1) {
    store.findings().add(CORVAN_RULE("version-twice"), "t_version").stored = versions;
  } else if (versions[0] != kSchemaVersion) {
    Finding& finding = store.findings().add(CORVAN_RULE("version-other"), "database_version");
    finding.stored = versions[0];
    finding.derived = kSchemaVersion;
  }
}

void check_settings(StoreReader& store) {
  for (const Setting& setting : kSettings) {
    std::string value;
    store.accept(store.connection().each_row(fmt::format("pragma {}", setting.name),
                                             [&value](const Row& row) { value = row.text(0); }));
    if (value == setting.value) continue;
    Finding& finding = store.findings().add(setting.rule, setting.name);
    finding.stored = value;
    finding.derived = setting.value;
  }
  check_user_version(store);
}

}  // namespace corvan_tool
