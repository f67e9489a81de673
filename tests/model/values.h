// Compares arguments and results of operations, and formats them for a report.

#ifndef TESTS_MODEL_VALUES_H_
#define TESTS_MODEL_VALUES_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "db/cv_db_records.h"

namespace corvan_test {

// All fields of a record, in order.
inline auto fields(const Corvan::MessageResponse& m) {
  return std::tie(m.session_id_, m.sender_, m.object_name_, m.content_, m.server_uid_, m.msg_id_,
                  m.session_type_, m.read_status_, m.sent_status_, m.unread_count_,
                  m.mention_count_, m.is_receive_, m.is_store_, m.is_offline_, m.is_command_,
                  m.sync_time_, m.sent_time_, m.client_uid_);
}

inline auto fields(const Corvan::Session& s) {
  return std::tie(s.session_id_, s.title_, s.draft_, s.content_, s.object_name_, s.sender_,
                  s.server_uid_, s.session_type_, s.is_top_, s.unread_count_, s.silence_,
                  s.mention_count_, s.is_recieve_, s.read_status_, s.sent_status_, s.session_time_,
                  s.latest_id_);
}

inline auto fields(const Corvan::SessionInfo& s) {
  return std::tuple_cat(std::tie(s.session_id_, s.title_, s.draft_, s.session_type_, s.is_top_,
                                 s.silence_, s.unread_count_, s.mention_count_, s.session_time),
                        fields(s.message_));
}

inline auto fields(const Corvan::UpdateValue& u) {
  return std::tie(u.session_id_, u.sender_, u.server_uid_old_, u.server_uid_new_, u.session_type_,
                  u.msg_id_, u.sent_time_, u.client_uid_);
}

// ---- Whether two are the same -------------------------------------------------------------------

template <typename Value>
constexpr bool is_plain =
    std::is_arithmetic_v<Value> || std::is_enum_v<Value> || std::is_same_v<Value, std::string>;

template <typename Value>
bool same(const Value& a, const Value& b) {
  if constexpr (is_plain<Value>) {
    return a == b;
  } else {
    return fields(a) == fields(b);
  }
}

template <typename Element>
bool same(const std::vector<Element>& a, const std::vector<Element>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const Element& x, const Element& y) { return same(x, y); });
}

template <typename... Values, std::size_t... Places>
bool same_at(const std::tuple<Values...>& a, const std::tuple<Values...>& b,
             std::index_sequence<Places...>) {
  return (same(std::get<Places>(a), std::get<Places>(b)) && ...);
}

template <typename... Values>
bool same(const std::tuple<Values...>& a, const std::tuple<Values...>& b) {
  return same_at(a, b, std::index_sequence_for<Values...>());
}

// ---- How they read ------------------------------------------------------------------------------

// Writes a zero byte as \0, and a long run of one character as that character with its count.
std::string printable(const std::string& value);

template <typename Value>
std::string text(const Value& value);
template <typename Element>
std::string text(const std::vector<Element>& elements);

template <typename... Values>
std::string text(const std::tuple<Values...>& values) {
  std::string all;
  const auto add = [&all](const std::string& each) { all += (all.empty() ? "" : ", ") + each; };
  std::apply([&add](const auto&... each) { (add(text(each)), ...); }, values);
  return all;
}

template <typename Value>
std::string text(const Value& value) {
  if constexpr (std::is_same_v<Value, bool>) {
    return value ? "true" : "false";
  } else if constexpr (std::is_same_v<Value, std::string>) {
    return "\"" + printable(value) + "\"";
  } else if constexpr (std::is_enum_v<Value>) {
    return std::to_string(static_cast<int32_t>(value));
  } else if constexpr (is_plain<Value>) {
    return std::to_string(value);
  } else {
    return "{" + text(fields(value)) + "}";
  }
}

template <typename Element>
std::string text(const std::vector<Element>& elements) {
  std::string all;
  for (const Element& each : elements) all += (all.empty() ? "" : ", ") + text(each);
  return "[" + all + "]";
}

}  // namespace corvan_test

#endif  // TESTS_MODEL_VALUES_H_
