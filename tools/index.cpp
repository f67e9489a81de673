#include "tools/index.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <optional>
#include <utility>
#include <vector>

#include "base/cv_database.h"
#include "tools/command_line.h"
#include "tools/connection.h"
#include "tools/json_output.h"
#include "tools/names.h"
#include "tools/open_store.h"
#include "tools/store_copy.h"
#include "tools/text_table.h"
#include "tools/tool_error.h"

namespace corvan_tool {

namespace {

using Clock = std::chrono::steady_clock;

struct Index {
  std::string name;
  std::string table;
  std::string sql;  // the statement that makes it
};

enum Action { kCreated, kReplaced, kDropped, kLeft, kActions };
constexpr std::array<const char*, kActions> kActionNames = {"created", "replaced", "dropped",
                                                            "left"};

struct Change {
  Action action = kCreated;
  Index index;
  std::string old_sql;  // of one that was replaced
  double seconds = 0;   // here and below: of one that was made
  std::optional<int64_t> bytes;
};

struct Result {
  std::vector<Change> changes;
  std::size_t kept = 0;
  double seconds = 0;

  std::size_t count(Action action) const {
    return static_cast<std::size_t>(
        std::count_if(changes.begin(), changes.end(),
                      [action](const Change& change) { return change.action == action; }));
  }
  bool nothing_done() const { return count(kLeft) == changes.size(); }
};

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) { return lower(c); });
  return text;
}

// The statement in lower case, without the white space that does not separate words.
std::string normal_form(const std::string& sql) {
  if (sql.find("--") != std::string::npos || sql.find("/*") != std::string::npos) return sql;
  const auto is_bracket = [](char c) { return c == '(' || c == ')' || c == ','; };
  std::string result;
  char quote = '\0';
  bool gap = false;
  for (const char c : sql) {
    if (quote == '\0' && (c == ' ' || (c >= '\t' && c <= '\r'))) {
      gap = true;
      continue;
    }
    if (gap && !result.empty() && !is_bracket(result.back()) && !is_bracket(c)) result += ' ';
    gap = false;
    result += quote == '\0' ? lower(c) : c;
    if (quote != '\0') {
      if (c == quote) quote = '\0';
    } else if (c == '\'' || c == '"' || c == '`') {
      quote = c;
    } else if (c == '[') {
      quote = ']';
    }
  }
  return result;
}

// Every name in the provider's set begins with its table's name. An index of such a name that is
// not in the set comes from an older one; of any other name, from somebody else.
bool has_store_name(const Index& index) {
  return index.name.rfind(index.table + "_", 0) == 0;
}

std::string quoted_name(const std::string& name) {
  std::string result = "\"";
  for (const char c : name) result.append(c == '"' ? 2 : 1, c);
  return result + '"';
}

// A file's indexes by name, without those that are part of a table: SQLITE_DONE, or the code of the
// failure.
int read_indexes(const Connection& connection, std::vector<Index>& indexes) {
  return connection.each_row(
      "select name,tbl_name,sql from sqlite_master where type='index' and sql is not null "
      "order by name",
      [&indexes](sqlite3_stmt* row) {
        indexes.push_back({text_at(row, 0), text_at(row, 1), text_at(row, 2)});
      });
}

// What a new store has.
struct Schema {
  std::vector<std::string> tables;
  std::vector<Index> indexes;

  bool has_table(const std::string& name) const {
    return std::any_of(tables.begin(), tables.end(),
                       [&name](const std::string& table) { return lower(table) == lower(name); });
  }
  bool has_index(const std::string& name) const {
    return std::any_of(indexes.begin(), indexes.end(),
                       [&name](const Index& index) { return lower(index.name) == lower(name); });
  }
};

Schema new_schema() {
  const Connection scratch(":memory:");
  const auto require = [&scratch](int rc) {
    if (rc != SQLITE_DONE) throw ToolError("a new store's schema: " + scratch.error());
  };
  for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) require(scratch.run(sql));
  Schema schema;
  require(
      scratch.each_row("select name from sqlite_master where type='table'",
                       [&schema](sqlite3_stmt* row) { schema.tables.push_back(text_at(row, 0)); }));
  require(read_indexes(scratch, schema.indexes));
  return schema;
}

// One transaction that brings a file's indexes up to the schema. Throws ToolError when a step
// fails; what is not committed by then is taken back.
class Update {
 public:
  // `name` is the file's name in errors.
  Update(const std::string& file, std::string name) : connection_(file), name_(std::move(name)) {
    // As the library does: no rests of messages where an index was.
    require(connection_.run("pragma secure_delete=on"));
    // Without a log it would otherwise be only the commit that meets a reader's lock.
    require(connection_.run("begin exclusive"));
  }

  // Commits unless there is nothing to do, or it is only tried.
  Result run(const Schema& schema, const IndexOptions& options) {
    Result result;
    std::vector<Index> present;
    require(read_indexes(connection_, present));

    std::vector<Change> others;
    for (const Index& index : present) {
      if (!schema.has_table(index.table) || schema.has_index(index.name)) continue;
      Change change;
      change.action = options.drop_others || has_store_name(index) ? kDropped : kLeft;
      change.index = index;
      if (change.action == kDropped) drop(index);
      others.push_back(std::move(change));
    }
    for (const Index& wanted : schema.indexes) {
      const auto found = std::find_if(
          present.begin(), present.end(),
          [&wanted](const Index& index) { return lower(index.name) == lower(wanted.name); });
      if (found != present.end() && is_same_index(found->sql, wanted.sql)) {
        ++result.kept;
        continue;
      }
      Change change;
      change.index = wanted;
      if (found != present.end()) {
        change.action = kReplaced;
        change.old_sql = found->sql;
        drop(*found);
      }
      create(change);
      result.changes.push_back(std::move(change));
    }
    result.changes.insert(result.changes.end(), others.begin(), others.end());
    if (!result.nothing_done() && !options.dry_run) require(connection_.run("commit"));
    result.seconds = seconds_since(start_);
    return result;
  }

 private:
  static double seconds_since(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
  }

  void drop(const Index& index) {
    require(connection_.run("drop index " + quoted_name(index.name)), index.name);
  }

  void create(Change& change) {
    const Clock::time_point start = Clock::now();
    require(connection_.run(change.index.sql), change.index.name);
    change.seconds = seconds_since(start);
    // SQLite may have been built without this table: the size then stays unknown.
    connection_.each_row(
        "select sum(pgsize) from dbstat where name='" + change.index.name + "'",
        [&change](sqlite3_stmt* row) { change.bytes = sqlite3_column_int64(row, 0); });
  }

  void require(int rc, const std::string& index = "") const {
    if (rc == SQLITE_DONE) return;
    std::string why = connection_.error();
    if (rc == SQLITE_BUSY) why = "in use by another process (" + why + ")";
    if (!index.empty()) why = "index " + index + ": " + why;
    why += "; nothing was changed";
    if (rc == SQLITE_CORRUPT || rc == SQLITE_NOTADB) why += "; see 'corvan check'";
    throw ToolError(name_ + ": " + why);
  }

  const Clock::time_point start_ = Clock::now();
  const Connection connection_;
  const std::string name_;
};

void print_text(const Result& result, bool dry_run) {
  if (!result.changes.empty()) {
    TextTable table({{dry_run ? "WOULD BE" : "DONE"},
                     {"INDEX"},
                     {"SECONDS", TextTable::kRight},
                     {"SIZE", TextTable::kRight},
                     {"STATEMENT"}});
    for (const Change& change : result.changes) {
      const bool made = change.action == kCreated || change.action == kReplaced;
      const std::string was = change.action == kReplaced ? "; was: " + change.old_sql : "";
      table.add({kActionNames.at(change.action), change.index.name,
                 made ? seconds_text(change.seconds) : "",
                 change.bytes ? size_text(*change.bytes) : "", change.index.sql + was});
    }
    // Never cut to the terminal: a statement is what brings a dropped index back.
    table.print(std::cout, 0);
  }
  if (result.nothing_done()) {
    std::cout << "nothing to do: " << result.kept << " kept";
  } else {
    if (dry_run) std::cout << "would be: ";
    for (const Action action : {kCreated, kReplaced, kDropped}) {
      std::cout << result.count(action) << ' ' << kActionNames.at(action) << ", ";
    }
    std::cout << result.kept << " kept";
  }
  const std::size_t left = result.count(kLeft);
  if (left > 0) std::cout << ", " << left << " left (--drop-others drops what is not the store's)";
  std::cout << "; " << seconds_text(result.seconds) << " s\n";
}

void print_result_json(const Result& result, bool dry_run) {
  Json json = {{"dry_run", dry_run}};
  for (const char* name : kActionNames) json[name] = Json::array();
  for (const Change& change : result.changes) {
    Json entry = {
        {"name", change.index.name}, {"table", change.index.table}, {"sql", change.index.sql}};
    if (change.action == kReplaced) entry["old_sql"] = change.old_sql;
    if (change.action == kCreated || change.action == kReplaced) {
      entry["seconds"] = change.seconds;
      entry["bytes"] = change.bytes ? Json(*change.bytes) : Json(nullptr);
    }
    json[kActionNames.at(change.action)].push_back(std::move(entry));
  }
  json["kept"] = result.kept;
  json["seconds"] = result.seconds;
  print_json(json);
}

constexpr const char* kIndexResult =
    "A store keeps the indexes that it was made with. Those that a new store has are created where\n"
    "they are missing and replaced where their statement differs. Of the others on the store's\n"
    "tables, those named like the store's own, TABLE_..., are from an older set and are dropped;\n"
    "any other name is somebody's own index: it is named and left unless --drop-others is given.\n"
    "Tables and messages stay as they are. All is done in one transaction, or nothing. A client\n"
    "may have the store open, but what it saves meanwhile fails. A store that is locked for two\n"
    "seconds is an error.\n"
    "With --json: an object with dry_run; created, replaced, dropped, left: arrays of objects with\n"
    "name, table, sql, of created and replaced ones also seconds and bytes (null when unknown), of\n"
    "replaced ones also old_sql; kept (a number) and seconds.\n";

}  // namespace

bool is_same_index(const std::string& one, const std::string& other) {
  return normal_form(one) == normal_form(other);
}

int run_index(const IndexOptions& options) {
  const std::string name = store_file(options.folder);
  const Schema schema = new_schema();
  Result result;
  if (options.dry_run) {
    const StoreCopy copy(options.folder);
    const std::string copied = store_file(copy.folder());
    require_store(copied, name, false);
    result = Update(copied, name).run(schema, options);
  } else {
    require_store_in(options.folder, false);
    result = Update(name, name).run(schema, options);
  }
  if (options.json) {
    print_result_json(result, options.dry_run);
  } else {
    print_text(result, options.dry_run);
  }
  return kOk;
}

void add_index(CommandLine& line) {
  const auto [command, options] = line.add<IndexOptions>(
      "index", "Bring the store's indexes up to those of a new store", kIndexResult, run_index);
  command->add_flag("--drop-others", options.drop_others,
                    "drop also indexes that are not named like the store's own");
  command->add_flag("--dry-run", options.dry_run,
                    "only tell what would be done, tried on a temporary copy");
}

}  // namespace corvan_tool
