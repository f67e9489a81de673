#include <fmt/format.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <string>

#include "addons/search/message_search.h"
#include "tools/commands/command_line.h"
#include "tools/commands/commands.h"
#include "tools/platform/file_system.h"
#include "tools/search/index_work.h"
#include "tools/store/connection.h"
#include "tools/store/key.h"
#include "tools/store/store_files.h"
#include "tools/store/store_state.h"
#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/output.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

using Corvan::SearchStatus;

struct SearchIndexOptions {
  std::string folder;
  bool remove = false;
  bool json = false;
};

struct SearchIndexOutcome {
  IndexWork work;
  int64_t messages = 0;
  int64_t bytes = 0;
  double seconds = 0;
};

// Throws ToolError unless the folder has a store, and an index can be written there.
void require_usable(const std::string& folder) {
  require_store_in(folder, false);
  const std::string file = search_index_file(folder);
  require_regular_files(file);
  if (may_write_folder(folder)) return;
  throw ToolError(file + ": " + std::strerror(errno) + "; make its folder writable");
}

[[noreturn]] void fail(const std::string& folder, SearchStatus status) {
  const bool is_store = status == SearchStatus::kNoStore || status == SearchStatus::kStoreError;
  throw ToolError(fmt::format("{}: {}; what was indexed before is kept",
                              is_store ? store_file(folder) : search_index_file(folder),
                              to_text(status)));
}

SearchIndexOutcome update_search_index(const std::string& folder) {
  const Stopwatch stopwatch;
  const std::string file = search_index_file(folder);
  SearchIndexOutcome outcome;
  {
    const FolderKey key(folder);
    Corvan::MessageSearch search(folder_name(folder));
    outcome.work = bring_up_to_date(search);
    if (!outcome.work.is_done()) fail(folder, outcome.work.status);
    outcome.messages = search.progress().indexed;
  }
  const StoreSizes sizes = store_sizes(file);
  outcome.bytes = sizes.file + sizes.log;
  outcome.seconds = stopwatch.seconds();
  return outcome;
}

void print_outcome(const std::string& folder, const SearchIndexOutcome& outcome, bool json) {
  if (json) {
    print_json({{"messages", outcome.messages},
                {"added", outcome.work.added},
                {"mended", outcome.work.mended},
                {"file_bytes", outcome.bytes},
                {"seconds", outcome.seconds}});
    return;
  }
  std::cout << fmt::format(
      "{}: {}, {} added, {} mended, {}; {} s\n", printable(search_index_file(folder)),
      counted(outcome.messages, "message"), outcome.work.added, outcome.work.mended,
      size_text(outcome.bytes), seconds_text(outcome.seconds));
}

int remove_search_index(const SearchIndexOptions& options) {
  const std::string file = search_index_file(options.folder);
  const bool was_there = has_search_index(options.folder);
  if (!Corvan::MessageSearch::remove(folder_name(options.folder))) {
    throw ToolError(file + ": cannot be deleted; make its folder writable");
  }
  if (options.json) {
    print_json({{"removed", was_there}});
  } else {
    std::cout << printable(file) << (was_there ? ": deleted\n" : ": there was none\n");
  }
  require_output(was_there ? "the search index was deleted" : "nothing was changed");
  return kOk;
}

int run_search_index(const SearchIndexOptions& options) {
  if (options.remove) return remove_search_index(options);
  require_usable(options.folder);
  print_outcome(options.folder, update_search_index(options.folder), options.json);
  require_output("the search index was updated");
  return kOk;
}

constexpr const char* kSearchIndexResult =
    "Makes the search index, the file corvan-search in FOLDER, or brings it up to date: adds messages\n"
    "that it does not have, compares the others with the store, and removes the words of messages\n"
    "that were changed or deleted. 'search' uses it. The store is only read, and a client may have it\n"
    "open. An interrupt keeps what was done; the next call goes on. The index of an encrypted store\n"
    "has the store's key.\n"
    "With --json: an object with messages (those in the index), added, mended, file_bytes and\n"
    "seconds; with --remove, an object with removed (false if there was no index).\n";

}  // namespace

void add_search_index(CommandLine& line) {
  auto [command, options] =
      line.add<SearchIndexOptions>("search-index", "Make or update the index that 'search' uses",
                                   kSearchIndexResult, run_search_index);
  command.flag("--remove", options.remove, "delete the index");
}

}  // namespace corvan_tool
