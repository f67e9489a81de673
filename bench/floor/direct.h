#ifndef BENCH_FLOOR_DIRECT_H_
#define BENCH_FLOOR_DIRECT_H_

#include <string>
#include <vector>

#include "bench/floor/contenders.h"
#include "bench/floor/fixture.h"

namespace corvan_bench {

// A contender that calls `Operations`: the store or a floor, which have operations with the same
// names.
template <typename Operations>
class Direct : public Contender {
 public:
  explicit Direct(Operations& operations) : operations_(operations) {}

  int64_t save(const Corvan::MessageResponse& m) override {
    return operations_.save_message(m.session_id_, m.session_type_, m.object_name_, m.sender_,
                                    m.content_, true, m.sent_status_, 0, false, m.sent_time_,
                                    m.client_uid_, m.server_uid_, false, false, true);
  }
  bool save_batch(const Messages& messages) override { return operations_.save_message(messages); }
  bool history_page(const std::string& session_id, int32_t count,
                    std::vector<Corvan::MessageResponse>& page) override {
    return operations_.get_history_message_by_object_name(session_id, kConversationKind, {}, 0,
                                                          count, page, true);
  }
  bool list_page(const std::vector<Corvan::SessionType>& kinds, int32_t limit,
                 std::vector<Corvan::SessionInfo>& page) override {
    return operations_.get_session_list_by_page(kinds, 0, limit, page);
  }
  bool unread_count(const std::string& session_id, int32_t& unread) override {
    return operations_.get_unread_count(session_id, kConversationKind, unread);
  }
  bool set_read_status(int64_t msg_id, int32_t read_status) override {
    return operations_.set_read_status(msg_id, read_status);
  }
  bool delete_messages(const std::vector<int64_t>& ids) override {
    return operations_.delete_message(ids);
  }

 private:
  Operations& operations_;
};

}  // namespace corvan_bench

#endif  // BENCH_FLOOR_DIRECT_H_
