#include "tests/threads/driver.h"

#include <vector>

namespace corvan_test {

using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;
using Corvan::CV_SYSTEM;
using Corvan::MessageResponse;
using Corvan::SessionInfo;

void Driver::prepare() {
  for (int i = 0; i < 6; ++i) {
    const std::string id = room_ + " " + std::to_string(i);
    EXPECT_TRUE(store_.add_session(id, CV_PRIVATE, 900 + i, 0, "", 0, 0));
    EXPECT_TRUE(store_.set_is_top(id, CV_PRIVATE, i < 2, false));
  }
}

void Driver::work(int64_t round) {
  const std::string key = room_ + " " + std::to_string(round) + " ";
  EXPECT_TRUE(store_.start_transaction());
  for (const char* part : {"a", "b", "c"}) {
    EXPECT_TRUE(store_message(message(key + part).in(room_, CV_GROUP).at(1000 + round)));
  }
  EXPECT_TRUE(store_message(message(key + "system").in(room_, CV_SYSTEM)));
  EXPECT_TRUE(store_.commit_transaction());
  EXPECT_TRUE(store_.set_read_status(id_of(key + "a"), 1));
  store_.set_send_time(id_of(key + "b"), 1000 + round, "", room_, CV_GROUP, 0);
  EXPECT_TRUE(store_.delete_message(std::vector<int64_t>{id_of(key + "c")}));
  EXPECT_TRUE(store_.clear_session({CV_SYSTEM}));
  std::vector<MessageResponse> span;
  EXPECT_TRUE(store_.get_matched_message(room_, CV_GROUP, 0, 5, 5, span));
  for (const MessageResponse& m : span) EXPECT_TRUE(whole(m)) << m.content_;
  sync_times(round);
  page();
  ++rounds_;
}

void Driver::sync_times(int64_t round) {
  int64_t received = 0;
  EXPECT_TRUE(store_.get_sync_time(&received, nullptr));
  EXPECT_TRUE(store_.set_sync_time(received + 1, true)) << round;
  EXPECT_TRUE(store_.set_sync_time(received + 1, false)) << round;
}

void Driver::page() {
  std::vector<SessionInfo> list;
  int64_t time = 0;
  while (store_.get_session_list_by_page({CV_PRIVATE}, time, 2, list) && list.size() < 10) {
    if (list.back().session_time == time) break;
    time = list.back().session_time;
  }
  std::string order;
  for (const SessionInfo& info : list) order += info.session_id_.back();
  EXPECT_EQ(order, "105432");
}

void Driver::check(const std::string& file) const {
  const std::string of_room = " from t_message where session_type=2 and session_id='" + room_ + "'";
  EXPECT_EQ(corvan_test::rows(file, "select count(*),sum(read_status)" + of_room).front(),
            std::to_string(2 * rounds_) + "|" + std::to_string(rounds_));
  EXPECT_EQ(corvan_test::rows(file,
                              "select unread_count from t_session where session_type=2 "
                              "and session_id='" +
                                  room_ + "'")
                .front(),
            std::to_string(rounds_));
  EXPECT_EQ(corvan_test::rows(file, "select count(*) from t_message where session_type=5"),
            Rows{"0"});
}

bool Driver::store_message(const NewMessage& m) {
  ++expected_.stored;
  return save_into(store_, m) > 0;
}

int64_t Driver::id_of(const std::string& uid) {
  MessageResponse m;
  m.server_uid_ = uid;
  EXPECT_TRUE(store_.get_message_by_uid(m)) << uid;
  return m.msg_id_;
}

}  // namespace corvan_test
