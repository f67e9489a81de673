#include "tools/verify/schema_checks.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <sstream>
#include <utility>

#include "tools/store/connection.h"
#include "tools/store/schema.h"
#include "tools/ui/error.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

namespace {

// The schema's version as the provider writes it, and the settings that opening gives a new file.
constexpr const char* kVersion = "1";
struct Setting {
  const char* name;
  const char* value;
  const Kind& kind;  // of finding, when it is another
};
const std::array<Setting, 3> kSettings = {{{"page_size", "4096", kind::kSetting},
                                           {"encoding", "UTF-8", kind::kSetting},
                                           {"journal_mode", "wal", kind::kJournalMode}}};
constexpr int64_t kOwnUserVersion = 1;

class FileChecks {
 public:
  FileChecks(const Connection& connection, std::string name)
      : connection_(connection), name_(std::move(name)) {}

  FileFindings run() {
    check_integrity();
    Schema present;
    if (read(read_schema(connection_, present))) compare(present);
    check_extras();
    check_version();
    check_settings();
    return std::move(result_);
  }

 private:
  Finding& add(const Kind& kind, const std::string& name) {
    Finding finding;
    finding.kind = &kind;
    finding.name = name;
    finding.mended = kind.repair != nullptr;
    result_.findings.push_back(std::move(finding));
    return result_.findings.back();
  }

  // False when it could not be read for damage, which is a finding.
  bool read(int rc) {
    if (rc == SQLITE_DONE) return true;
    if (rc != SQLITE_CORRUPT && rc != SQLITE_NOTADB) {
      throw ToolError(name_ + ": " + connection_.error());
    }
    result_.damaged = true;
    add(kind::kFileDamaged, "").stored = connection_.error();
    return false;
  }

  void check_integrity() {
    const StatementProgress progress(connection_.handle(), "million steps of the integrity check");
    const int rc = connection_.each_row("pragma integrity_check", [this](sqlite3_stmt* row) {
      const std::string text = text_at(row, 0);
      if (text == "ok") return;
      result_.damaged = true;
      add(kind::kFileDamaged, "").stored = text;
    });
    read(rc);
  }

  void compare(const Schema& present) {
    const Schema wanted = new_schema();
    for (const Table& table : wanted.tables) {
      const Table* const found = present.table(table.name);
      if (found == nullptr) continue;  // a file without one of the tables is no store
      if (!is_same_statement(found->sql, table.sql)) compare(table, *found);
    }
    for (const Table& table : present.tables) {
      if (wanted.table(table.name) == nullptr) add(kind::kTableExtra, table.name);
    }
    std::size_t kept = 0;
    for (const IndexDifference& difference : index_differences(wanted, present, kept)) {
      add_index(difference);
    }
  }

  void compare(const Table& wanted, Table found) {
    if (!read(read_parts(connection_, found))) return;
    const auto without = [](const std::vector<std::string>& of,
                            const std::vector<std::string>& others) {
      std::vector<std::string> rest;
      std::set_difference(of.begin(), of.end(), others.begin(), others.end(),
                          std::back_inserter(rest));
      return rest;
    };
    const std::vector<std::string> missing = without(wanted.parts, found.parts);
    const std::vector<std::string> more = without(found.parts, wanted.parts);
    Finding& finding = add(kind::kTableDiffers, wanted.name);
    if (missing.empty() && more.empty()) {
      finding.stored = found.sql;
      finding.derived = wanted.sql;
    } else {
      finding.stored = more;
      finding.derived = missing;
    }
    require_columns(wanted);
  }

  // The names of a new store's columns have no blanks.
  void require_columns(const Table& wanted) {
    std::vector<std::string> present;
    if (!read(read_columns(connection_, wanted.name, present))) return;
    for (const std::string& part : wanted.parts) {
      std::istringstream words(part);
      std::string what;
      std::string name;
      words >> what >> name;
      if (what != "column") continue;
      if (std::find(present.begin(), present.end(), name) == present.end()) {
        result_.has_columns = false;
      }
    }
  }

  void add_index(const IndexDifference& difference) {
    switch (difference.kind) {
      case IndexDifference::kMissing:
        add(kind::kIndexMissing, difference.index.name).derived = difference.index.sql;
        break;
      case IndexDifference::kDiffers: {
        Finding& finding = add(kind::kIndexDiffers, difference.index.name);
        finding.stored = difference.old_sql;
        finding.derived = difference.index.sql;
        break;
      }
      case IndexDifference::kOlder:
        add(kind::kIndexOlder, difference.index.name).stored = difference.index.sql;
        break;
      case IndexDifference::kOther:
        add(kind::kIndexExtra, difference.index.name).stored = difference.index.sql;
        break;
    }
  }

  void check_extras() {
    read(connection_.each_row(
        "select type,name,sql from sqlite_master where type in('trigger','view') order by name",
        [this](sqlite3_stmt* row) {
          add(kind::kSchemaExtra, text_at(row, 0) + " " + text_at(row, 1)).stored = text_at(row, 2);
        }));
  }

  void check_version() {
    std::vector<std::string> versions;
    const int rc = connection_.each_row(
        "select database_version from t_version",
        [&versions](sqlite3_stmt* row) { versions.push_back(text_at(row, 0)); });
    // A table without the column differs from a new store's, which is a finding already.
    if (rc == SQLITE_ERROR || !read(rc)) return;
    if (versions.empty()) {
      add(kind::kVersionMissing, "t_version").derived = kVersion;
    } else if (versions.size() > 1) {
      add(kind::kVersionTwice, "t_version").stored = versions;
    } else if (versions[0] != kVersion) {
      Finding& finding = add(kind::kVersionOther, "database_version");
      finding.stored = versions[0];
      finding.derived = kVersion;
    }
  }

  void check_settings() {
    for (const Setting& setting : kSettings) {
      std::string value;
      read(connection_.each_row(std::string("pragma ") + setting.name,
                                [&value](sqlite3_stmt* row) { value = text_at(row, 0); }));
      if (value == setting.value) continue;
      Finding& finding = add(setting.kind, setting.name);
      finding.stored = value;
      finding.derived = setting.value;
    }
    int64_t version = 0;
    read(connection_.each_row("pragma user_version", [&version](sqlite3_stmt* row) {
      version = sqlite3_column_int64(row, 0);
    }));
    if (version == kOwnUserVersion) return;
    // The copy of an older store takes over a number above 0.
    Finding& finding = add(version > 0 ? kind::kUserVersion : kind::kSetting, "user_version");
    finding.stored = version;
    finding.derived = kOwnUserVersion;
  }

  const Connection& connection_;
  const std::string name_;
  FileFindings result_;
};

}  // namespace

FileFindings look_at_file(const Connection& connection, const std::string& name) {
  return FileChecks(connection, name).run();
}

std::vector<Finding> look_at_sequence(const Connection& connection, int64_t largest_id) {
  std::vector<Json> stored;
  bool good = true;
  int64_t derived = largest_id;  // an id that was given stays given
  const int rc = connection.each_row(
      std::string("select seq from sqlite_sequence where name=") + kNameOfMessages,
      [&](sqlite3_stmt* row) {
        const bool is_number = sqlite3_column_type(row, 0) == SQLITE_INTEGER;
        good = good && is_number && sqlite3_column_int64(row, 0) >= largest_id;
        if (is_number) derived = std::max<int64_t>(derived, sqlite3_column_int64(row, 0));
        stored.push_back(is_number ? Json(sqlite3_column_int64(row, 0)) : Json(text_at(row, 0)));
      });
  // Without its table the file's t_message differs from a new store's, which is a finding already.
  if (rc != SQLITE_DONE || (good && stored.size() == 1)) return {};
  if (stored.empty() && largest_id == 0) return {};
  Finding finding;
  finding.kind = &kind::kSequenceBehind;
  finding.name = "sqlite_sequence";
  if (stored.size() == 1) finding.stored = stored[0];
  if (stored.size() > 1) finding.stored = stored;
  finding.derived = derived;
  finding.mended = true;
  return {finding};
}

}  // namespace corvan_tool
