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
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/progress.h"
#include "tools/ui/table.h"

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
  std::optional<int64_t> rows;   // of a table, where SQLite can tell
  std::optional<int64_t> bytes;  // where SQLite can tell
};

struct LargeConversation {
  std::string id;
  int32_t kind = 0;
  int64_t messages = 0;
  int64_t content_bytes = 0;
};

struct Month {
  std::string name;  // as "2026-05"; empty for times of 0, before 1970 and after 9999
  int64_t messages = 0;
  int64_t received = 0;
};

struct Stats {
  StoreSizes sizes;
  int64_t page_size = 0;
  int64_t free_pages = 0;
  std::vector<Part> parts;
  std::size_t conversations = 0;  // that have messages
  std::vector<LargeConversation> largest;
  std::vector<Month> months;
};

class Reader {
 public:
  explicit Reader(const StatsOptions& options) : store_(options.folder) {
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
    store_.each_row(sql, [&value](sqlite3_stmt* row) { value = sqlite3_column_int64(row, 0); });
    return value;
  }

  void read_parts() {
    store_.each_row(
        "select name,tbl_name,type='table',rootpage=0 from sqlite_master "
        "where type in('table','index') order by tbl_name,type desc,name",
        [this](sqlite3_stmt* row) {
          Part part;
          part.name = text_at(row, 0);
          part.table = text_at(row, 1);
          part.is_table = sqlite3_column_int(row, 2) != 0;
          part.is_virtual = sqlite3_column_int(row, 3) != 0;
          stats_.parts.push_back(part);
        });
    for (Part& part : stats_.parts) {
      if (part.is_table) part.rows = rows_of(part);
      part.bytes = stored_bytes(store_.connection(), part.name);
    }
  }

  // Nothing for a virtual table whose module this SQLite does not know, or whose own tables are
  // gone.
  std::optional<int64_t> rows_of(const Part& table) const {
    int64_t rows = 0;
    const int rc = store_.connection().each_row(
        "select count(*) from " + quoted_name(table.name),
        [&rows](sqlite3_stmt* row) { rows = sqlite3_column_int64(row, 0); });
    if (table.is_virtual && rc == SQLITE_ERROR) return std::nullopt;
    store_.require(rc);
    return rows;
  }

  void read_conversations(std::size_t limit) {
    std::vector<LargeConversation>& all = stats_.largest;
    store_.each_row(
        "select session_id,session_type,count(*),sum(length(cast(content as blob))) "
        "from t_message group by session_type,session_id collate binary",
        [&all](sqlite3_stmt* row) {
          all.push_back({text_at(row, 0), sqlite3_column_int(row, 1), sqlite3_column_int64(row, 2),
                         sqlite3_column_int64(row, 3)});
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
        [this](sqlite3_stmt* row) {
          stats_.months.push_back(
              {text_at(row, 0), sqlite3_column_int64(row, 1), sqlite3_column_int64(row, 2)});
        });
  }

  const Snapshot store_;
  const StatementProgress progress_{store_.connection().handle(), "million steps of counting"};
  Stats stats_;
};

void print_stats_json(const Stats& stats) {
  const auto or_null = [](const auto& value) { return value ? Json(*value) : Json(nullptr); };
  Json json = {{"file_bytes", stats.sizes.file},
               {"log_bytes", stats.sizes.log},
               {"page_size", stats.page_size},
               {"free_pages", stats.free_pages},
               {"tables", Json::array()},
               {"indexes", Json::array()},
               {"conversations", stats.conversations}};
  for (const Part& part : stats.parts) {
    if (part.is_table) {
      json["tables"].push_back(
          {{"name", part.name}, {"rows", or_null(part.rows)}, {"bytes", or_null(part.bytes)}});
    } else {
      json["indexes"].push_back(
          {{"name", part.name}, {"table", part.table}, {"bytes", or_null(part.bytes)}});
    }
  }
  json["largest"] = Json::array();
  for (const LargeConversation& c : stats.largest) {
    json["largest"].push_back({{"session_id", c.id},
                               {"session_type", c.kind},
                               {"messages", c.messages},
                               {"content_bytes", c.content_bytes}});
  }
  json["months"] = Json::array();
  for (const Month& month : stats.months) {
    json["months"].push_back({{"month", month.name.empty() ? Json(nullptr) : Json(month.name)},
                              {"messages", month.messages},
                              {"received", month.received}});
  }
  print_json(json);
}

void print_stats(const Stats& stats) {
  std::cout << "file " << size_text(stats.sizes.file) << ", write-ahead log "
            << size_text(stats.sizes.log) << "; " << size_text(stats.free_pages * stats.page_size)
            << " are free (compact gives them back)\n\n";

  TextTable parts({{"TABLE"}, {"INDEX"}, {"ROWS", TextTable::kRight}, {"SIZE", TextTable::kRight}});
  for (const Part& part : stats.parts) {
    const std::string rows = part.rows ? std::to_string(*part.rows) : "unknown";
    parts.add({part.is_table ? part.name : "", part.is_table ? "" : part.name,
               part.is_table ? rows : "", part.bytes ? size_text(*part.bytes) : "unknown"});
  }
  parts.print(std::cout, terminal_width());
  if (stats.conversations == 0) return;

  std::cout << "\nlargest of " << stats.conversations << " conversations with messages\n";
  TextTable largest(
      {{"TYPE"}, {"MESSAGES", TextTable::kRight}, {"TEXT", TextTable::kRight}, {"SESSION"}});
  for (const LargeConversation& c : stats.largest) {
    largest.add({kind_name(c.kind), std::to_string(c.messages), size_text(c.content_bytes), c.id});
  }
  largest.print(std::cout, terminal_width());

  std::cout << '\n';
  TextTable months(
      {{"MONTH (UTC)"}, {"MESSAGES", TextTable::kRight}, {"RECEIVED", TextTable::kRight}});
  for (const Month& month : stats.months) {
    months.add({month.name.empty() ? "no date" : month.name, std::to_string(month.messages),
                std::to_string(month.received)});
  }
  months.print(std::cout, terminal_width());
}

int run_stats(const StatsOptions& options) {
  const Stats stats = Reader(options).stats();
  if (options.json) {
    print_stats_json(stats);
  } else {
    print_stats(stats);
  }
  return kOk;
}

constexpr const char* kStatsResult =
    "Sizes of tables and indexes are unknown where SQLite was built without its table of them.\n"
    "The rows of a virtual table are unknown where SQLite cannot read it.\n"
    "A message of the time 0, or of one before 1970 or after 9999, is counted under \"no date\".\n"
    "With --json: an object with file_bytes, log_bytes, page_size, free_pages; tables, an array of\n"
    "objects with name, rows, bytes; indexes, with name, table, bytes (rows and bytes are null when\n"
    "unknown);\n"
    "conversations, the number of those that have messages; largest, an array of objects with\n"
    "session_id, session_type, messages, content_bytes; months, with month (\"2026-05\", or null),\n"
    "messages, received.\n";

}  // namespace

void add_stats(CommandLine& line) {
  auto [command, options] = line.add<StatsOptions>(
      "stats", "Tell what a store holds and where its bytes are", kStatsResult, run_stats);
  command.number("--limit", "N", options.limit,
                 "how many of the largest conversations (default 10)");
}

}  // namespace corvan_tool
