#include "addons/search/message_check.h"

#include <string>
#include <vector>

namespace Corvan::search {

namespace {

template <typename Value, typename Element>
bool is_listed(const std::vector<Element>& list, const Value& value) {
  for (const Element& element : list) {
    if (element == value) return true;
  }
  return list.empty();
}

bool is_limited(const SearchOptions& options) {
  return options.session_id || options.sender || !options.session_types.empty() ||
         !options.object_names.empty();
}

std::string message_query(bool has_time_order, bool has_filter) {
  std::string sql = "select ";
  sql += has_time_order ? "sent_time" : kMessageTime;
  sql += ",content";
  if (has_filter) sql += ",session_id,session_type,object_name,sender";
  return sql += " from t_message where id=?";
}

}  // namespace

MessageCheck::MessageCheck(const StoreReader& store, const Query& query,
                           const SearchOptions& options, bool has_time_order)
    : query_(query),
      options_(options),
      has_filter_(is_limited(options)),
      message_(store.connection(), message_query(has_time_order, has_filter_)) {}

std::optional<SearchPlace> MessageCheck::place_of(int64_t id) {
  if (!is_admitted(id)) return std::nullopt;
  return place(id);
}

std::optional<SearchPlace> MessageCheck::place_of_hit(int64_t id) {
  if (!is_admitted(id) || !query_.matches(message_.text(1))) return std::nullopt;
  return place(id);
}

bool MessageCheck::is_admitted(int64_t id) {
  if (!message_.bind(id).row()) return false;
  if (!has_filter_) return true;
  return (!options_.session_id || message_.text(2) == *options_.session_id) &&
         is_listed(options_.session_types, static_cast<SessionType>(message_.integer(3))) &&
         is_listed(options_.object_names, message_.text(4)) &&
         (!options_.sender || message_.text(5) == *options_.sender);
}

}  // namespace Corvan::search
