#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "base/cv_database.h"
#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/import/line_source.h"
#include "tools/store/connection.h"
#include "tools/store/export_format.h"
#include "tools/store/pending_output.h"
#include "tools/store/store_copy.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/output.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

using Clock = std::chrono::steady_clock;

// SQLite holds no row that is longer than a billion bytes unless it is built otherwise; in an
// export it takes at most about twice as many.
constexpr std::size_t kLongestRecord = 2048;  // MiB

// What is no export need not be read whole to be told so.
constexpr std::size_t kLongestHeader = 1;  // MiB

constexpr int64_t kMostRecords = int64_t{1} << 48;

struct RestoreOptions {
  std::string file;  // "-" is standard input
  std::string folder;
  bool json = false;
};

// What follows an error that lies in the store which was exported.
constexpr const char* kSeeSource = "; 'corvan verify' tells what is wrong with the exported store";

// What is wrong with a line, without its place.
class LineError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

[[noreturn]] void fail_field(const std::string& name, const std::string& what) {
  throw LineError("field \"" + shortened(name) + "\": " + what);
}

// The object in a line, as far as a record can need it.
struct Record {
  Record() = default;
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
  ~Record() = default;

  Json json = Json::object();
  std::string unknown;  // the first key that no record has, which is not in `json`
  bool has_unknown = false;
};

bool is_count(const std::string& key) {
  const std::vector<ExportTable>& tables = export_tables();
  return std::any_of(tables.begin(), tables.end(),
                     [&key](const ExportTable& table) { return key == table.count; });
}

bool is_header_key(const std::string& key) {
  static const std::set<std::string> known = {"format",       "corvan",      "schema_version",
                                              "user_version", "export_time", "partial"};
  return known.count(key) > 0 || is_count(key);
}

bool is_column(const ExportTable& table, const std::string& key) {
  return std::any_of(table.columns.begin(), table.columns.end(),
                     [&key](const ExportColumn& column) { return key == column.name; });
}

bool is_key_of_any_record(const std::string& key) {
  const std::vector<ExportTable>& tables = export_tables();
  return key == "type" || is_header_key(key) ||
         std::any_of(tables.begin(), tables.end(),
                     [&key](const ExportTable& table) { return is_column(table, key); });
}

// Says while a line is parsed what of it is kept: however long and deep the line is, a record has
// the members of a record, and what these hold has two at most. Throws LineError for a key that is
// given twice, for nesting without end, and for what is not an object.
class RecordFilter {
 public:
  explicit RecordFilter(Record& record) : record_(record) {}

  bool operator()(int depth, Json::parse_event_t event, const Json& parsed) {
    switch (event) {
      case Json::parse_event_t::object_start:
      case Json::parse_event_t::array_start:
        return keeps_nested(depth, event == Json::parse_event_t::array_start);
      case Json::parse_event_t::key:
        return depth == 1 ? keeps_field(parsed) : keeps_member(depth, parsed);
      case Json::parse_event_t::value:
        return !is_in_array_;
      default:
        return true;
    }
  }

  // The field in which parsing is; empty before the first.
  const std::string& field() const { return field_; }

 private:
  bool keeps_nested(int depth, bool is_array) {
    constexpr int kDeepest = 32;
    if (depth == 0 && is_array) throw LineError("not a JSON object");
    if (depth >= kDeepest) fail_field(field_, "nested too deeply");
    if (depth == 1) {
      is_in_array_ = is_array;
      members_.clear();
    }
    return depth <= 1;
  }

  bool keeps_field(const Json& name) {
    field_ = name.get_ref<const std::string&>();
    is_in_array_ = false;
    if (!is_key_of_any_record(field_)) {
      if (!record_.has_unknown) record_.unknown = field_;
      record_.has_unknown = true;
      return false;
    }
    if (!fields_.insert(field_).second) fail_field(field_, "given twice");
    return true;
  }

  bool keeps_member(int depth, const Json& name) {
    constexpr std::size_t kEnoughToRefuse = 2;
    if (depth > 2 || members_.size() >= kEnoughToRefuse) return false;
    const auto& member = name.get_ref<const std::string&>();
    if (!members_.insert(member).second) fail_field(member, "given twice");
    return true;
  }

  Record& record_;
  std::string field_;
  std::set<std::string> fields_;
  std::set<std::string> members_;  // of the field's object
  bool is_in_array_ = false;       // the field is one, which is kept without what it holds
};

// Fills a new record. Throws LineError when the line holds no object.
void parse_record(const std::string& line, Record& record) {
  // The parser would take a zero byte for the end of the line.
  const std::size_t zero = line.find('\0');
  if (zero != std::string::npos) {
    throw LineError("not valid JSON at byte " + std::to_string(zero + 1));
  }
  RecordFilter filter(record);
  try {
    record.json = Json::parse(line, [&filter](int depth, Json::parse_event_t event, Json& parsed) {
      return filter(depth, event, parsed);
    });
  } catch (const Json::parse_error& error) {
    throw LineError("not valid JSON at byte " + std::to_string(error.byte) +
                    (error.byte > line.size() ? ", where it ends: cut off; export again" : ""));
  } catch (const Json::out_of_range&) {
    const std::string what = "a number is out of range";
    if (!filter.field().empty()) fail_field(filter.field(), what);
    throw LineError(what);
  }
  if (!record.json.is_object()) throw LineError("not a JSON object");
}

const Json& member(const Json& record, const char* name) {
  const auto found = record.find(name);
  if (found == record.end()) fail_field(name, "missing");
  return *found;
}

std::string text_in(const Json& record, const char* name) {
  const Json& value = member(record, name);
  if (!value.is_string()) fail_field(name, "must be a text");
  return value.get<std::string>();
}

int64_t number_in(const Json& record, const char* name, int64_t least, int64_t largest) {
  const Json& value = member(record, name);
  if (!is_whole(value) || value < least || value > largest) {
    fail_field(name, "must be a whole number from " + std::to_string(least) + " to " +
                         std::to_string(largest));
  }
  return value.get<int64_t>();
}

// Throws LineError when the record has another key.
template <typename IsKnown>
void require_known_keys(const Record& record, const IsKnown& is_known) {
  if (record.has_unknown) fail_field(record.unknown, "unknown");
  for (const auto& [key, value] : record.json.items()) {
    if (key != "type" && !is_known(key)) fail_field(key, "unknown");
  }
}

// The numbers of records, in the order of the tables.
using RowCounts = std::vector<int64_t>;

RowCounts counts_in(const Json& record) {
  RowCounts counts;
  for (const ExportTable& table : export_tables()) {
    counts.push_back(number_in(record, table.count, 0, kMostRecords));
  }
  return counts;
}

struct Header {
  bool is_partial = false;
  int64_t user_version = 0;
  RowCounts counts;
};

Header read_header(const Record& line) {
  const Json& record = line.json;
  if (record.value("type", Json()) != kHeaderType) {
    throw LineError("not an export: the first line must be of the type \"" +
                    std::string(kHeaderType) + "\", as 'corvan export --format jsonl' writes it; " +
                    "a log of messages is read by 'corvan import'");
  }
  if (number_in(record, "format", 1, INT64_MAX) > kExportFormat) {
    fail_field("format", "made by a newer corvan; update");
  }
  require_known_keys(line, is_header_key);
  text_in(record, "corvan");
  if (!member(record, "schema_version").is_null()) text_in(record, "schema_version");
  number_in(record, "export_time", 0, INT64_MAX);
  Header header;
  const Json& partial = member(record, "partial");
  if (!partial.is_boolean()) fail_field("partial", "must be true or false");
  header.is_partial = partial.get<bool>();
  header.user_version = number_in(record, "user_version", INT32_MIN, INT32_MAX);
  header.counts = counts_in(record);
  return header;
}

// A store in the making, whose indexes are made last. Nothing of it is durable before finish().
class NewStore {
 public:
  // `name` is the folder's in errors.
  NewStore(const std::string& file, std::string name, int64_t user_version)
      : connection_(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE), name_(std::move(name)) {
    // What fails is thrown away, so no journal is needed.
    require(connection_.run("pragma page_size=4096"));
    require(connection_.run("pragma journal_mode=off"));
    require(connection_.run("begin exclusive"));
    run_schema("create table");
    require(connection_.run("pragma user_version=" + std::to_string(user_version)));
  }

  // Adds a table's row from its record. Throws LineError when a value is no value of its column or
  // the row's keys are there already.
  void insert(std::size_t table, const Json& record) {
    if (table != current_) prepare(table);
    const std::vector<ExportColumn>& columns = export_tables()[table].columns;
    bool needs_check = false;
    for (std::size_t i = 0; i < columns.size(); ++i) {
      const Json& value = member(record, columns[i].name);
      const bool is_row_id = i == 0;
      if (is_row_id && !value.is_number()) fail_field(columns[i].name, "must be a whole number");
      const std::string wrong =
          bind_value(insert_.get(), static_cast<int>(i) + 1, value, columns[i], needs_check);
      if (!wrong.empty()) fail_field(columns[i].name, wrong);
    }
    const int rc = sqlite3_step(insert_.get());
    sqlite3_reset(insert_.get());
    if (rc == SQLITE_CONSTRAINT) {
      throw LineError("an earlier line has the same key (" + connection_.error() + ")" +
                      kSeeSource);
    }
    if (rc == SQLITE_TOOBIG) throw LineError(connection_.error());
    require(rc);
    if (needs_check) check_classes(table, record);
  }

  // SQLite keeps the largest id given so far by itself; the export's own rows take its place.
  void clear_sequence() { require(connection_.run("delete from sqlite_sequence")); }

  void finish() {
    insert_.reset();
    run_schema("create index");
    require(connection_.run("commit"));
    require(connection_.run("pragma journal_mode=wal"));
  }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
  };

  void run_schema(const std::string& beginning) const {
    for (const auto& [name, sql] : Corvan::CvDatabase::table_index()) {
      if (sql.compare(0, beginning.size(), beginning) == 0) require(connection_.run(sql));
    }
  }

  void prepare(std::size_t table) {
    const ExportTable& wanted = export_tables()[table];
    std::string places = "?";
    for (std::size_t i = 1; i < wanted.columns.size(); ++i) places += ",?";
    const std::string sql = std::string("insert into ") + wanted.name + "(" + column_list(wanted) +
                            ") values(" + places + ")";
    sqlite3_stmt* stmt = nullptr;
    const int rc = sqlite3_prepare_v2(connection_.handle(), sql.c_str(), -1, &stmt, nullptr);
    insert_.reset(stmt);
    require(rc == SQLITE_OK ? SQLITE_DONE : rc);
    current_ = table;
  }

  // A column can turn a value into one of another class: the digits of a text into a number.
  void check_classes(std::size_t table, const Json& record) const {
    const ExportTable& wanted = export_tables()[table];
    for (const ExportColumn& column : wanted.columns) {
      const Json& value = record[column.name];
      if (!value.is_object()) continue;
      std::string stored;
      require(connection_.each_row(
          std::string("select typeof(") + column.name + ") from " + wanted.name + " where rowid=?",
          [&stored](sqlite3_stmt* row) { stored = text_at(row, 0); },
          record[wanted.columns[0].name].get<int64_t>()));
      if (stored != class_of(value, column)) {
        fail_field(column.name, "the column cannot hold this: it becomes " + stored + kSeeSource);
      }
    }
  }

  void require(int rc) const {
    if (rc == SQLITE_DONE) return;
    throw ToolError(name_ + ": " + connection_.error() +
                    "; nothing was kept; there must be room for the store");
  }

  const Connection connection_;
  const std::string name_;
  std::unique_ptr<sqlite3_stmt, Finalize> insert_;
  std::size_t current_ = static_cast<std::size_t>(-1);  // the table that it is for
};

class Restore {
 public:
  explicit Restore(const RestoreOptions& options)
      : options_(options),
        name_(options.file == "-" ? "standard input" : options.file),
        source_({options.file}, kLongestRecord) {}

  void run() {
    source_.limit(kLongestHeader);
    if (!next_line()) throw ToolError(name_ + ": empty, not an export");
    source_.limit(kLongestRecord);
    at_line([this] {
      Record record;
      parse_record(line_, record);
      header_ = read_header(record);
    });
    Unfinished folder = Unfinished::folder(options_.folder);
    fill(store_file(folder.path()));
    folder.keep();
  }

  void report() const {
    const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
    const std::vector<ExportTable>& tables = export_tables();
    if (options_.json) {
      Json result = {{"partial", header_.is_partial}};
      for (std::size_t i = 0; i < tables.size(); ++i) result[tables[i].count] = done_[i];
      result["seconds"] = seconds;
      print_json(result);
      return;
    }
    std::cout << printable(options_.folder) << ": " << done_[kSessions] << " conversations, "
              << done_[kMessages] << " messages; " << seconds_text(seconds) << " s\n";
    if (header_.is_partial) {
      std::cout << "a partial export: it holds chosen conversations only, and no sync times\n";
    }
  }

 private:
  void fill(const std::string& file) {
    int64_t all = 0;
    for (const int64_t count : header_.counts) all += count;
    Progress progress("records", static_cast<std::uint64_t>(all));
    NewStore store(file, options_.folder, header_.user_version);
    while (!ended_) {
      if (!next_line()) fail_at_end();
      at_line([&] { take_record(store); });
      progress.advance();
    }
    if (next_line()) at_line([] { throw LineError("a line after the record \"end\""); });
    store.finish();
  }

  void take_record(NewStore& store) {
    Record parsed;
    parse_record(line_, parsed);
    const Json& record = parsed.json;
    const std::string type = text_in(record, "type");
    if (type == kEndType) {
      require_known_keys(parsed, is_count);
      require_counts(counts_in(record));
      if (table_ < kSequences) store.clear_sequence();
      ended_ = true;
      return;
    }
    const std::size_t table = table_of(type);
    if (table < table_) {
      throw LineError("a record \"" + type + "\" after one of the type \"" +
                      export_tables()[table_].type + "\"");
    }
    if (table_ < kSequences && table == kSequences) store.clear_sequence();
    table_ = table;
    require_known_keys(
        parsed, [table](const std::string& key) { return is_column(export_tables()[table], key); });
    store.insert(table, record);
    ++done_.at(table);
  }

  static std::size_t table_of(const std::string& type) {
    const std::vector<ExportTable>& tables = export_tables();
    for (std::size_t i = 0; i < tables.size(); ++i) {
      if (type == tables[i].type) return i;
    }
    fail_field("type", "unknown: \"" + shortened(type) + "\"");
  }

  void require_counts(const RowCounts& at_end) const {
    const std::vector<ExportTable>& tables = export_tables();
    for (std::size_t i = 0; i < tables.size(); ++i) {
      for (const int64_t count : {at_end[i], header_.counts[i]}) {
        if (count == done_[i]) continue;
        fail_field(tables[i].count, std::to_string(count) + " were exported, but " +
                                        std::to_string(done_[i]) +
                                        " are in the file; export again");
      }
    }
  }

  // As the logs that 'corvan import' reads, an export may have empty lines. False after the last
  // line.
  bool next_line() {
    do {
      if (!source_.next(line_)) return false;
      ++lines_;
    } while (line_.find_first_not_of(" \t\r") == std::string::npos);
    return true;
  }

  // Calls `read`, which looks at the line in hand, and adds the place to what it throws.
  template <typename Read>
  void at_line(const Read& read) const {
    try {
      read();
    } catch (const LineError& error) {
      throw ToolError(source_.place() + ": " + error.what());
    }
  }

  [[noreturn]] void fail_at_end() const {
    throw ToolError(name_ + ": ends after line " + std::to_string(lines_) +
                    " without the record \"end\": it was cut off; export again");
  }

  const RestoreOptions& options_;
  const std::string name_;
  LineSource source_;
  std::string line_;
  std::size_t lines_ = 0;
  Header header_;
  std::size_t table_ = 0;  // of the last record
  RowCounts done_ = RowCounts(export_tables().size());
  bool ended_ = false;
  const Clock::time_point start_ = Clock::now();
};

int run_restore(const RestoreOptions& options) {
  Restore restore(options);
  restore.run();
  restore.report();
  require_output("the store is in " + options.folder);
  return kOk;
}

constexpr const char* kRestoreResult =
    "FILE is what 'corvan export --format jsonl' wrote; - is standard input. The new store has every\n"
    "row that the export has, ids included, and the indexes of a new store. Each line is checked: a\n"
    "key that is unknown, missing or given twice, a value that its column is not for, an id that\n"
    "was there already, a number of records other than the one said at both ends, or a missing end\n"
    "is an error that names the line, and leaves nothing behind. An export of chosen conversations\n"
    "gives a store of these alone.\n"
    "With --json: an object with partial, versions, syncs, sessions, messages, sequences (the numbers\n"
    "of rows) and seconds.\n";

}  // namespace

void add_restore(CommandLine& line) {
  auto [command, options] = line.add_without_folder<RestoreOptions>(
      "restore", "Make a store from an export in JSON Lines", kRestoreResult, run_restore);
  command.argument("FILE", options.file, "the export; - for standard input");
  command.argument("NEWFOLDER", options.folder,
                   "the folder to make for the store; nothing may be there");
}

}  // namespace corvan_tool
