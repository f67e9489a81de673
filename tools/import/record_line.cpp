#include "tools/import/record_line.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "tools/import/json_line.h"
#include "tools/import/record_value.h"
#include "tools/store/export_format.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

constexpr int64_t kMostRecords = int64_t{1} << 48;

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

// Drops values while the line is parsed, so that they take no memory. Keeps only members that a
// record can have. If the value of such a member is an object, keeps at most two members of it.
// Throws LineError for a key that is given twice, for deep nesting, and for a line that is an
// array.
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

  // The last key of the record; empty before the first.
  const std::string& field() const { return field_; }

 private:
  bool keeps_nested(int depth, bool is_array) {
    constexpr int kDeepest = 32;
    if (depth == 0 && is_array) fail_not_an_object();
    if (depth >= kDeepest) fail_field(shortened(field_), "nested too deeply");
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
    if (!fields_.insert(field_).second) fail_given_twice(shortened(field_));
    return true;
  }

  bool keeps_member(int depth, const Json& name) {
    constexpr std::size_t kEnoughToRefuse = 2;
    if (depth > 2 || members_.size() >= kEnoughToRefuse) return false;
    const auto& key = name.get_ref<const std::string&>();
    if (!members_.insert(key).second) fail_given_twice(shortened(key));
    return true;
  }

  Record& record_;
  std::string field_;
  std::set<std::string> fields_;
  std::set<std::string> members_;  // of the object that is the field's value
  bool is_in_array_ = false;       // the field's value is an array, whose elements are dropped
};

// Parses the line into the record of the filter. The parser's exceptions become LineErrors.
Json parse_filtered(const std::string& line, RecordFilter& filter) {
  try {
    return Json::parse(line, [&filter](int depth, Json::parse_event_t event, const Json& parsed) {
      return filter(depth, event, parsed);
    });
  } catch (const Json::parse_error& error) {
    const bool is_at_end = error.byte > line.size();
    throw LineError(not_json_text(error.byte) +
                    (is_at_end ? ", the end of the line: the file was cut off; export again" : ""));
  } catch (const Json::out_of_range&) {
    constexpr const char* kOutOfRange = "a number is out of range";
    if (!filter.field().empty()) fail_field(shortened(filter.field()), kOutOfRange);
    throw LineError(kOutOfRange);
  }
}

// Fails if the record has a key other than "type" for which `is_known` returns false.
template <typename IsKnown>
void require_known_keys(const Record& record, const IsKnown& is_known) {
  if (record.has_unknown) fail_field(shortened(record.unknown), "unknown");
  for (const auto& [key, value] : record.json.items()) {
    if (key != "type" && !is_known(key)) fail_field(key, "unknown");
  }
}

std::string text_in(const Record& record, const char* name) {
  const Json& value = member(record, name);
  if (!value.is_string()) fail_field(name, "must be a text");
  return value.get<std::string>();
}

bool flag_in(const Record& record, const char* name) {
  const Json& value = member(record, name);
  if (!value.is_boolean()) fail_field(name, "must be true or false");
  return value.get<bool>();
}

int64_t number_in(const Record& record, const char* name, int64_t least, int64_t largest) {
  const Json& value = member(record, name);
  if (!is_whole(value) || value < least || value > largest) {
    fail_field(name, fmt::format("must be a whole number from {} to {}", least, largest));
  }
  return value.get<int64_t>();
}

RowCounts counts_in(const Record& record) {
  RowCounts counts;
  for (const ExportTable& table : export_tables()) {
    counts.push_back(number_in(record, table.count, 0, kMostRecords));
  }
  return counts;
}

void require_header_type(const Record& record) {
  if (record.json.value("type", Json()) == kHeaderType) return;
  throw LineError(
      fmt::format("not an export: the first line must be of the type \"{}\", as 'corvan export "
                  "--format jsonl' writes it; a log of messages is read by 'corvan import'",
                  kHeaderType));
}

}  // namespace

Record parse_record(const std::string& line) {
  require_no_zero_byte(line);
  Record record;
  RecordFilter filter(record);
  record.json = parse_filtered(line, filter);
  if (!record.json.is_object()) fail_not_an_object();
  return record;
}

const Json& member(const Record& record, const char* name) {
  const auto found = record.json.find(name);
  if (found == record.json.end()) fail_missing(name);
  return *found;
}

std::string record_type(const Record& record) {
  return text_in(record, "type");
}

ExportHeader read_header(const Record& record) {
  require_header_type(record);
  if (number_in(record, "format", 1, INT64_MAX) > kExportFormat) {
    fail_field("format", "made by a newer corvan; update");
  }
  require_known_keys(record, is_header_key);
  text_in(record, "corvan");
  if (!member(record, "schema_version").is_null()) text_in(record, "schema_version");
  number_in(record, "export_time", 0, INT64_MAX);
  ExportHeader header;
  header.is_partial = flag_in(record, "partial");
  header.user_version = number_in(record, "user_version", INT32_MIN, INT32_MAX);
  header.counts = counts_in(record);
  return header;
}

RowCounts read_end(const Record& record) {
  require_known_keys(record, is_count);
  return counts_in(record);
}

std::size_t table_of(const std::string& type) {
  const std::vector<ExportTable>& tables = export_tables();
  for (std::size_t i = 0; i < tables.size(); ++i) {
    if (type == tables[i].type) return i;
  }
  fail_field("type", fmt::format("unknown: \"{}\"", shortened(type)));
}

void require_columns(const Record& record, std::size_t table) {
  const ExportTable& wanted = export_tables()[table];
  require_known_keys(record, [&wanted](const std::string& key) { return is_column(wanted, key); });
}

}  // namespace corvan_tool
