#include <fmt/format.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/schema.h"
#include "tools/store/snapshot.h"
#include "tools/store/store_files.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

struct StatsOptions {
  std::string folder;
  int32_t limit = 10;
  bool json = false;
};

// A table or an index.
struct Part {
  std::string name;
  std::string table;
  bool is_table = false;
  bool is_virtual = false;
  std::optional<int64_t> rows;   // of a table; nothing if unknown
  std::optional<int64_t> bytes;  // nothing if unknown
};

struct LargeConversation {
  std::string id;
  int32_t type = 0;
  int64_t messages = 0;
  int64_t content_bytes = 0;
};

struct Month {
  std::string name;  // "2026-05"; empty for time 0, before 1970 and after 9999
  int64_t messages = 0;
  int64_t received = 0;
};

struct Stats {
  StoreSizes sizes;
  int64_t page_size = 0;
  int64_t free_pages = 0;
  std::vector<Part> parts;
  std::size_t conversations = 0;  // those with messages
  std::vector<LargeConversation> largest;
  std::vector<Month> months;
};

class StatsReader {
 public:
  explicit StatsReader(const StatsOptions& options) : store_(options.folder) {
    stats_.sizes = store_.sizes();
    stats_.page_size = number("pragma page_size");
    stats_.free_pages = number("pragma freelist_count");
    read_parts();
    read_conversations(static_cast<std::size_t>(options.limit));
    read_months();
  }

  const Stats& stats() const { return stats_; }

 private:
  int64_t number(const std::string& sql) const {
    int64_t value = 0;
    store_.each_row(sql, [&value](const Row& row) { value = row.int64(0); });
    return value;
  }

  void read_parts() {
    store_.each_row(
        "select name,tbl_name,type='table',rootpage=0 from sqlite_master "
        "where type in('table','index') order by tbl_name,type desc,name",
        [this](const Row& row) {
          Part part;
          part.name = row.text(0);
          part.table = row.text(1);
          part.is_table = row.int32(2) != 0;
          part.is_virtual = row.int32(3) != 0;
          stats_.parts.push_back(part);
        });
    for (Part& part : stats_.parts) {
      if (part.is_table) part.rows = rows_of(part);
      part.bytes = stored_bytes(store_.connection(), part.name);
    }
  }

  // Nothing for a virtual table whose module this SQLite lacks, or whose own tables are missing.
  std::optional<int64_t> rows_of(const Part& table) const {
    int64_t rows = 0;
    const int rc = store_.connection().each_row("select count(*) from " + quoted_name(table.name),
                                                [&rows](const Row& row) { rows = row.int64(0); });
    if (table.is_virtual && rc == SQLITE_ERROR) return std::nullopt;
    store_.require(rc);
    return rows;
  }

  void read_conversations(std::size_t limit) {
    std::vector<LargeConversation>& all = stats_.largest;
    store_.each_row(
        "select session_id,session_type,count(*),sum(length(cast(content as blob))) "
        "from t_message group by session_type,session_id collate binary",
        [&all](const Row& row) {
          all.push_back({row.text(0), row.int32(1), row.int64(2), row.int64(3)});
        });
    stats_.conversations = all.size();
    std::stable_sort(all.begin(), all.end(),
                     [](const LargeConversation& one, const LargeConversation& other) {
                       return one.messages > other.messages;
                     });
    all.resize(std::min(all.size(), limit));
  }

  void read_months() {
    store_.each_row(
        "select case when sent_time>0 and sent_time<253402300800000 then strftime('%Y-%m',sent_time/1000,'unixepoch') end,"
        "count(*),sum(direction<>0) from t_message group by 1 order by 1",
        [this](const Row& row) {
          stats_.months.push_back({row.text(0), row.int64(1), row.int64(2)});
        });
  }

  const Snapshot store_;
  const StatementProgress progress_{store_.connection().handle(), "million steps of counting"};
  Stats stats_;
};

template <typename Value>
Json or_null(const std::optional<Value>& value) {
  return value ? Json(*value) : Json(nullptr);
}

void add_parts(const std::vector<Part>& parts, Json& json) {
  json["tables"] = Json::array();
  json["indexes"] = Json::array();
  for (const Part& part : parts) {
    if (part.is_table) {
      json["tables"].push_back(
          {{"name", part.name}, {"rows", or_null(part.rows)}, {"bytes", or_null(part.bytes)}});
    } else {
      json["indexes"].push_back(
          {{"name", part.name}, {"table", part.table}, {"bytes", or_null(part.bytes)}});
    }
  }
}

Json largest_json(const std::vector<LargeConversation>& largest) {
  Json json = Json::array();
  for (const LargeConversation& c : largest) {
    json.push_back({{"session_id", c.id},
                    {"session_type", c.type},
                    {"messages", c.messages},
                    {"content_bytes", c.content_bytes}});
  }
  return json;
}

Json months_json(const std::vector<Month>& months) {
  Json json = Json::array();
  for (const Month& month : months) {
    json.push_back({{"month", month.name.empty() ? Json(nullptr) : Json(month.name)},
                    {"messages", month.messages},
                    {"received", month.received}});
  }
  return json;
}

void print_stats_json(const Stats& stats) {
  Json json = {{"file_bytes", stats.sizes.file},
               {"log_bytes", stats.sizes.log},
               {"page_size", stats.page_size},
               {"free_pages", stats.free_pages}};
  add_parts(stats.parts, json);
  json["conversations"] = stats.conversations;
  json["largest"] = largest_json(stats.largest);
  json["months"] = months_json(stats.months);
  print_json(json);
}

void print_parts(const Stats& stats) {
  TextTable table({{"TABLE"}, {"INDEX"}, {"ROWS", TextTable::kRight}, {"SIZE", TextTable::kRight}});
  for (const Part& part : stats.parts) {
    const std::string rows = part.rows ? std::to_string(*part.rows) : "unknown";
    table.add({part.is_table ? part.name : "", part.is_table ? "" : part.name,
               part.is_table ? rows : "", part.bytes ? size_text(*part.bytes) : "unknown"});
  }
  table.print(std::cout, terminal_width());
}

void print_largest(const Stats& stats) {
  TextTable table(
      {{"TYPE"}, {"MESSAGES", TextTable::kRight}, {"TEXT", TextTable::kRight}, {"SESSION"}});
  for (const LargeConversation& c : stats.largest) {
    table.add({type_name(c.type), std::to_string(c.messages), size_text(c.content_bytes), c.id});
  }
  table.print(std::cout, terminal_width());
}

void print_months(const Stats& stats) {
  TextTable table(
      {{"MONTH (UTC)"}, {"MESSAGES", TextTable::kRight}, {"RECEIVED", TextTable::kRight}});
  for (const Month& month : stats.months) {
    table.add({month.name.empty() ? "no date" : month.name, std::to_string(month.messages),
               std::to_string(month.received)});
  }
  table.print(std::cout, terminal_width());
}

void print_stats(const Stats& stats) {
  std::cout << fmt::format("file {}, write-ahead log {}; {} free ('corvan compact' returns it)\n\n",
                           size_text(stats.sizes.file), size_text(stats.sizes.log),
                           size_text(stats.free_pages * stats.page_size));
  print_parts(stats);
  if (stats.conversations == 0) return;
  std::cout << fmt::format("\nlargest of {} conversations with messages\n", stats.conversations);
  print_largest(stats);
  std::cout << '\n';
  print_months(stats);
}

int run_stats(const StatsOptions& options) {
  const Stats stats = StatsReader(options).stats();
  if (options.json) {
    print_stats_json(stats);
  } else {
    print_stats(stats);
  }
  return kOk;
}

constexpr const char* kStatsResult =
    "Sizes of tables and indexes are unknown if SQLite was built without dbstat. The rows of a\n"
    "virtual table are unknown if SQLite cannot read it. Messages with the time 0, or a time before\n"
    "1970 or after 9999, are counted under \"no date\".\n"
    "With --json: an object with file_bytes, log_bytes, page_size, free_pages; tables, an array of\n"
    "objects with name, rows, bytes; indexes, with name, table, bytes (rows and bytes are null if\n"
    "unknown); conversations (the number with messages); largest, an array of objects with\n"
    "session_id, session_type, messages, content_bytes; months, with month (\"2026-05\", or null),\n"
    "messages, received.\n";

}  // namespace

void add_stats(CommandLine& line) {
  auto [command, options] = line.add<StatsOptions>(
      "stats", "Show what a store contains and which parts are large", kStatsResult, run_stats);
  command.number("--limit", "N", options.limit, "show the N largest conversations (default 10)");
}

}  // namespace corvan_tool
