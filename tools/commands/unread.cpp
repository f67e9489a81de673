#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/store/message_row.h"
#include "tools/store/snapshot.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/names.h"
#include "tools/ui/table.h"
#include "tools/ui/terminal_text.h"

namespace corvan_tool {

namespace {

struct UnreadOptions {
  std::string folder;
  std::vector<Corvan::SessionType> types;  // empty: all
  bool json = false;
};

struct Counters {
  std::string name;
  int32_t unread = 0;
  int32_t unmuted = 0;
  int32_t mentions = 0;
};

// The sums that get_unread_mention_count() and get_cate_unread_count() return for these types.
Counters read_counters(const Snapshot& store, const std::string& name,
                       const std::vector<Corvan::SessionType>& types) {
  Counters counters;
  counters.name = name;
  store.each_row(
      "select sum(unread_count),sum(case when silence=0 then unread_count end),sum(mention_count) "
      "from t_session where session_type in(" +
          listed_types(types) + ")",
      [&counters](const Row& row) {
        counters.unread = row.int32(0);
        counters.unmuted = row.int32(1);
        counters.mentions = row.int32(2);
      });
  return counters;
}

std::vector<Counters> read_all_counters(const UnreadOptions& options) {
  const Snapshot store(options.folder);
  std::vector<Counters> all;
  for (const Corvan::SessionType type : options.types.empty() ? all_types() : options.types) {
    all.push_back(read_counters(store, type_name(type), {type}));
  }
  all.push_back(read_counters(store, "all", options.types));
  return all;
}

void print_counters_json(const std::vector<Counters>& all) {
  Json result = Json::object();
  for (const Counters& counters : all) {
    result[counters.name] = {{"unread_count", counters.unread},
                             {"unmuted_unread_count", counters.unmuted},
                             {"mention_count", counters.mentions}};
  }
  print_json(result);
}

void print_counters(const std::vector<Counters>& all) {
  TextTable table({{"TYPE"},
                   {"UNREAD", TextTable::kRight},
                   {"NOT MUTED", TextTable::kRight},
                   {"MENTIONS", TextTable::kRight}});
  for (const Counters& counters : all) {
    table.add({counters.name, std::to_string(counters.unread), std::to_string(counters.unmuted),
               std::to_string(counters.mentions)});
  }
  table.print(std::cout, terminal_width());
}

int run_unread(const UnreadOptions& options) {
  const std::vector<Counters> all = read_all_counters(options);
  if (options.json) {
    print_counters_json(all);
  } else {
    print_counters(all);
  }
  return kOk;
}

constexpr const char* kUnreadResult =
    "NOT MUTED leaves out conversations with notifications off.\n"
    "With --json: an object with the members private, group, chatroom, reception, system, or those\n"
    "of --type, and all. Each is an object with unread_count, unmuted_unread_count and\n"
    "mention_count.\n";

}  // namespace

void add_unread(CommandLine& line) {
  auto [command, options] = line.add<UnreadOptions>(
      "unread", "Show the unread and mention counters", kUnreadResult, run_unread);
  command.types(options.types, "only conversations of this type; may be repeated: ");
}

}  // namespace corvan_tool
