#include "tools/search/index_copy.h"

#include <fmt/format.h>
#include <sqlite3.h>

#include <algorithm>
#include <limits>

#include "tools/store/connection.h"
#include "tools/store/regular_file.h"
#include "tools/store/snapshot.h"
#include "tools/store/store_copy.h"
#include "tools/store/store_files.h"
#include "tools/ui/error.h"
#include "tools/ui/units.h"

namespace corvan_tool {

namespace {

using Corvan::SearchStatus;

Corvan::SearchOptions options_for(const SearchCriteria& criteria) {
  Corvan::SearchOptions options;
  options.session_id = criteria.session_id;
  options.session_types = criteria.types;
  options.before = criteria.before;
  options.limit =
      static_cast<int32_t>(std::min<int64_t>(criteria.most, std::numeric_limits<int32_t>::max()));
  return options;
}

constexpr const char* kUnusable = "empty, damaged or of another store";

// SQLite notices at a checkpoint that a log does not belong to its file.
bool is_sound(const std::string& file) {
  return Connection(file).run("pragma wal_checkpoint") == SQLITE_DONE;
}

std::string differences(const IndexWork& work) {
  std::string text;
  if (work.added > 0) {
    text += fmt::format("; {} {} not in it yet", counted(work.added, "message"),
                        work.added == 1 ? "was" : "were");
  }
  if (work.mended > 0) text += fmt::format("; {} had changed", counted(work.mended, "message"));
  return text;
}

}  // namespace

IndexCopy::IndexCopy(const std::string& folder, const Snapshot& store)
    : folder_(folder),
      store_(store),
      is_copied_(copy(folder)),
      key_(store.folder()),
      search_(folder_name(store.folder())) {}

bool IndexCopy::copy(const std::string& folder) {
  const std::string file = search_index_file(folder);
  if (!has_search_index(folder)) return false;
  const std::string copied = search_index_file(store_.folder());
  try {
    require_regular_or_missing(file);
    copy_database(file, copied);
  } catch (const ToolError& error) {
    note_ = fmt::format("the search index is not used: {}", error.what());
    return false;
  }
  if (is_sound(copied)) return true;
  advise(kUnusable);
  return false;
}

std::optional<FoundMessages> IndexCopy::find(const SearchCriteria& criteria) {
  if (!is_copied_ || !require(search_.open()) || !is_worth_updating() || !update()) {
    return std::nullopt;
  }
  const Corvan::SearchResults results = search_.find(criteria.text, options_for(criteria));
  if (!require(results.status)) return std::nullopt;
  return read_messages(store_, results.hits);
}

// To index a message takes longer than to read it.
bool IndexCopy::is_worth_updating() {
  int64_t messages = 0;
  store_.each_row("select count(*) from t_message",
                  [&messages](const Row& row) { messages = row.int64(0); });
  const int64_t indexed = search_.progress().indexed;
  if (2 * indexed >= messages) return true;
  advise(indexed == 0 ? kUnusable : "not up to date");
  return false;
}

void IndexCopy::advise(const char* state) {
  note_ = fmt::format("the search index is {}; run 'corvan search-index {}'", state, folder_);
}

bool IndexCopy::update() {
  const IndexWork work = bring_up_to_date(search_);
  note_ = "used the search index" + differences(work);
  return require(work.status);
}

bool IndexCopy::require(SearchStatus status) {
  if (status == SearchStatus::kOk) return true;
  note_ = fmt::format("the search index is not used: {}", to_text(status));
  return false;
}

}  // namespace corvan_tool
