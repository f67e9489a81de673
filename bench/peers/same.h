// Compares the results of two contenders.

#ifndef BENCH_PEERS_SAME_H_
#define BENCH_PEERS_SAME_H_

#include <algorithm>
#include <cstdint>
#include <tuple>
#include <vector>

#include "bench/peers/peer.h"

namespace corvan_bench {

// Compares the fields that every read fills.
inline auto message_fields(const MessageResponse& m) {
  return std::tie(m.session_id_, m.session_type_, m.msg_id_, m.object_name_, m.content_, m.sender_,
                  m.server_uid_, m.is_receive_, m.read_status_, m.sent_status_);
}

inline bool same(int64_t a, int64_t b) {
  return a == b;
}
inline bool same(const MessageResponse& a, const MessageResponse& b) {
  return message_fields(a) == message_fields(b) && a.sent_time_ == b.sent_time_;
}
// Without the times of the messages: the conversation list does not fill them.
inline bool same(const SessionInfo& a, const SessionInfo& b) {
  const auto fields = [](const SessionInfo& entry) {
    return std::tie(entry.session_id_, entry.session_type_, entry.title_, entry.draft_,
                    entry.is_top_, entry.silence_, entry.unread_count_, entry.mention_count_,
                    entry.session_time);
  };
  return fields(a) == fields(b) && message_fields(a.message_) == message_fields(b.message_);
}
template <typename Element>
bool same(const std::vector<Element>& a, const std::vector<Element>& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](const Element& x, const Element& y) { return same(x, y); });
}

}  // namespace corvan_bench

#endif  // BENCH_PEERS_SAME_H_
