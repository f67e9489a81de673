#include "tools/verify/recount.h"

#include <tuple>

namespace corvan_tool {

const Rule* Recount::broken_rule(int64_t stored, const Rule& too_high) const {
  if (stored < 0) return &CORVAN_RULE("counter-negative");
  if (stored > most()) return &too_high;
  if (stored < newer) return &CORVAN_RULE("counter-low");
  return stored == newer || stored == newer + late ? nullptr : &CORVAN_RULE("counter-untold");
}

void Conversation::add_row(int64_t read_time) {
  ++rows_;
  read_time_ = read_time;
}

void Conversation::count(const Message& message, bool is_chat_room) {
  const bool is_later = message.sent_time > read_time_;
  const bool is_since = is_later || is_cleared_;
  // An older message could be history, which is not counted.
  const bool is_newer =
      message.direction == 1 && is_later && (messages_ == 0 || message.sent_time > newest_time_);
  const auto add_to = [&](Recount& recount) {
    ++(is_newer ? recount.newer : is_since ? recount.late : recount.before);
  };
  if (message.read_status == 0) add_to(unread_);
  if (is_chat_room && message.direction != 0) ++(is_since ? unread_.late : chat_before_);
  if (message.is_mention == 1) add_to(mention_);
  if (message.direction == 1 && message.sent_time == read_time_) is_cleared_ = true;
  take_newest(message);
}

void Conversation::add_uncounted(const Message& message, bool has_time) {
  is_counted_ = false;
  has_times_ = has_times_ && has_time;
  take_newest(message);
}

Recount Conversation::unread() const {
  Recount recount = unread_;
  // Without a clearing, no row tells which of these were counted.
  if (!is_cleared_) recount.before += chat_before_;
  return recount;
}

void Conversation::take_newest(const Message& message) {
  ++messages_;
  const bool is_newest = newest_id_ < 0 || std::tie(message.sent_time, message.id) >
                                               std::tie(newest_time_, newest_id_);
  if (!is_newest) return;
  newest_id_ = message.id;
  newest_time_ = message.sent_time;
}

}  // namespace corvan_tool
