#include "tests/addons/search/truth.h"

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <stdexcept>

#include "addons/search/query.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/unrecorded.h"

namespace corvan_test {

using Corvan::MessageSearch;
using Corvan::SearchHit;
using Corvan::SearchOptions;
using Corvan::SearchPlace;
using Corvan::SearchResults;
using Corvan::SearchStatus;
using Corvan::SearchWork;

namespace {

struct StoreCloser {
  void operator()(sqlite3* db) const { sqlite3_close_v2(db); }
};
struct StatementFinalizer {
  void operator()(sqlite3_stmt* stmt) const { sqlite3_finalize(stmt); }
};

std::string text_of(sqlite3_stmt* stmt, int column) {
  const unsigned char* const text = sqlite3_column_text(stmt, column);
  if (text == nullptr) return "";
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(stmt, column));
  return {reinterpret_cast<const char*>(text), size};
}

StoredMessage message_of(sqlite3_stmt* stmt) {
  StoredMessage message;
  message.id = sqlite3_column_int64(stmt, 0);
  message.time = sqlite3_column_int64(stmt, 1);
  message.session_id = text_of(stmt, 2);
  message.session_type = sqlite3_column_int(stmt, 3);
  message.kind = text_of(stmt, 4);
  message.sender = text_of(stmt, 5);
  message.text = text_of(stmt, 6);
  return message;
}

std::vector<StoredMessage> read_messages(const std::string& file) {
  std::vector<StoredMessage> messages;
  if (!file_exists(file)) return messages;
  sqlite3* handle = nullptr;
  const int opened = sqlite3_open(file.c_str(), &handle);
  const std::unique_ptr<sqlite3, StoreCloser> connection(handle);
  if (opened != SQLITE_OK) throw std::runtime_error("cannot open " + file);
  sqlite3_busy_timeout(handle, 5000);
  sqlite3_stmt* prepared = nullptr;
  const int rc = prepare_unrecorded(
      handle,
      "select id,coalesce(cast(sent_time as integer),0) as time,session_id,session_type,"
      "object_name,sender,content from t_message order by time desc,id desc",
      &prepared);
  const std::unique_ptr<sqlite3_stmt, StatementFinalizer> stmt(prepared);
  if (rc != SQLITE_OK) throw std::runtime_error(sqlite3_errmsg(handle));
  int step = SQLITE_ROW;
  while ((step = sqlite3_step(prepared)) == SQLITE_ROW) messages.push_back(message_of(prepared));
  if (step != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(handle));
  return messages;
}

template <typename List, typename Value>
bool allows(const List& list, const Value& value) {
  return list.empty() || std::find(list.begin(), list.end(), value) != list.end();
}

bool passes(const StoredMessage& m, const SearchOptions& options) {
  return (!options.session_id || *options.session_id == m.session_id) &&
         allows(options.session_types, static_cast<Corvan::SessionType>(m.session_type)) &&
         allows(options.object_names, m.kind) && (!options.sender || *options.sender == m.sender) &&
         m.time >= options.from_time && m.time <= options.to_time;
}

std::string text_of(const std::pair<int64_t, int64_t>& place) {
  return "(" + std::to_string(place.first) + "," + std::to_string(place.second) + ")";
}

std::pair<int64_t, int64_t> pair_of(const SearchPlace& place) {
  return {place.sent_time, place.id};
}

// What is wrong with one page after `before`.
std::string fault_of(const SearchResults& page, const SearchOptions& options) {
  if (page.status != SearchStatus::kOk) {
    return "status " + std::to_string(static_cast<int>(page.status));
  }
  if (page.hits.size() > static_cast<std::size_t>(options.limit)) return "more hits than the limit";
  std::optional<std::pair<int64_t, int64_t>> last;
  if (options.before) last = pair_of(*options.before);
  for (const SearchHit& hit : page.hits) {
    const std::pair<int64_t, int64_t> place(hit.sent_time, hit.id);
    if (last && place >= *last) return "out of order: " + text_of(place);
    last = place;
  }
  if (!page.next) return "";
  const auto next = pair_of(*page.next);
  const auto start = options.before ? pair_of(*options.before) : next;
  if (options.before && next >= start) return "no progress at " + text_of(next);
  if (!page.hits.empty() && next > *last) return "the next page begins before the last hit";
  return "";
}

std::string done(const SearchWork& work, const char* call) {
  if (work.status == SearchStatus::kOk && work.complete) return "";
  return std::string(call) + ": status " + std::to_string(static_cast<int>(work.status)) +
         (work.complete ? "" : ", not complete");
}

}  // namespace

Truth::Truth(const std::string& store_file) : messages_(read_messages(store_file)) {}

Ids Truth::ids() const {
  Ids ids;
  for (const StoredMessage& message : messages_) ids.insert(message.id);
  return ids;
}

Hits Truth::hits(const std::string& query, const SearchOptions& options) const {
  const Corvan::search::Query rule(query);
  Hits hits;
  for (const StoredMessage& message : messages_) {
    if (!passes(message, options) || !rule.matches(message.text)) continue;
    hits.emplace_back(message.time, message.id);
  }
  return hits;
}

const Hits& Truth::hits(const std::string& query) const {
  const auto [at, added] = hits_.try_emplace(query);
  if (added) at->second = hits(query, SearchOptions());
  return at->second;
}

Pages find_all(MessageSearch& search, const std::string& query, SearchOptions options) {
  Pages pages;
  for (;;) {
    const SearchResults page = search.find(query, options);
    ++pages.calls;
    pages.fault = fault_of(page, options);
    if (!pages.fault.empty()) return pages;
    for (const SearchHit& hit : page.hits) pages.hits.emplace_back(hit.sent_time, hit.id);
    if (!page.next) return pages;
    options.before = page.next;
  }
}

namespace {

std::string differences(const Hits& found, const Hits& expected, const Ids& may_miss) {
  std::string text;
  const std::set<std::pair<int64_t, int64_t>> wanted(expected.begin(), expected.end());
  const std::set<std::pair<int64_t, int64_t>> got(found.begin(), found.end());
  for (const auto& hit : found) {
    if (wanted.count(hit) == 0) text += " false hit " + text_of(hit);
  }
  for (const auto& hit : expected) {
    if (got.count(hit) == 0 && may_miss.count(hit.second) == 0) text += " missed " + text_of(hit);
  }
  return text.substr(0, 400);
}

std::string compare(MessageSearch& search, const std::string& query, const SearchOptions& options,
                    const Hits& expected, const Ids& may_miss) {
  if (Corvan::search::Query(query).is_empty()) {
    const SearchResults results = search.find(query, options);
    const bool refused = results.status == SearchStatus::kBadQuery && results.hits.empty();
    return refused ? "" : "a query without words is not refused: " + query;
  }
  const Pages pages = find_all(search, query, options);
  std::string wrong = pages.fault;
  if (wrong.empty()) wrong = differences(pages.hits, expected, may_miss);
  return wrong.empty() ? "" : "find \"" + query + "\": " + wrong;
}

}  // namespace

std::string compare(MessageSearch& search, const Truth& truth, const std::string& query,
                    const SearchOptions& options, const Ids& may_miss) {
  return compare(search, query, options, truth.hits(query, options), may_miss);
}

std::string compare(MessageSearch& search, const Truth& truth,
                    const std::vector<std::string>& queries, const Ids& may_miss) {
  SearchOptions options;
  options.limit = 1000000;
  for (const std::string& query : queries) {
    std::string wrong = compare(search, query, options, truth.hits(query), may_miss);
    if (!wrong.empty()) return wrong;
  }
  return "";
}

std::string catch_up_all(MessageSearch& search) {
  return done(search.catch_up(kPlenty), "catch_up");
}

std::string sweep_to_end(MessageSearch& search) {
  return done(search.sweep(kPlenty), "sweep");
}

std::string mend_all(MessageSearch& search) {
  for (const auto call : {catch_up_all, sweep_to_end, sweep_to_end}) {
    std::string wrong = call(search);
    if (!wrong.empty()) return wrong;
  }
  return "";
}

}  // namespace corvan_test
