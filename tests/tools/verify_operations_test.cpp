// Stores as operations leave them. Each finding must name the operation.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tests/tools/verify_fixture.h"

namespace corvan_test {
namespace {

using Corvan::CV_CHATROOM;
using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;
using Corvan::MessageResponse;

TEST_F(VerifyTest, FindingsNameTheOperationsThatLeaveThem) {
  import_sample();
  const std::string clean = read_file(file());
  struct Case {
    const char* operation;
    Rows codes;
    std::function<void(LibraryStore&)> call;
  };
  const std::vector<Case> cases = {
      {"save_message", {}, [&](LibraryStore& s) { save(s, "room", kTime + 500, false, true); }},
      {"save_message", {"latest-older"}, [&](LibraryStore& s) { save(s, "room", kTime + 500); }},
      {"save_message",
       {"counter-low", "latest-older"},
       [&](LibraryStore& s) {
         std::vector<std::unique_ptr<MessageResponse>> batch;
         batch.push_back(std::make_unique<MessageResponse>());
         MessageResponse& m = *batch.back();
         m.session_id_ = "room";
         m.session_type_ = CV_GROUP;
         m.is_receive_ = m.is_store_ = true;
         m.msg_id_ = -1;
         m.sent_time_ = kTime + 9000;
         s->save_message(batch);
       }},
      {"save_message",
       {"client-key-twice"},
       [&](LibraryStore& s) {
         s->save_message("u01", CV_PRIVATE, "CV:TxtMsg", "me", "hi", false, 0, 0, false,
                         kTime + 9000, 42, "", true, false, false);
       }},
      {"clear_message",
       {"counter-mention", "counter-unread", "session-empty"},
       [](LibraryStore& s) { s->clear_message("room", CV_GROUP, false); }},
      {"clear_message_by_timestamp",
       {"counter-mention", "counter-unread", "latest-missing", "session-empty"},
       [](LibraryStore& s) { s->clear_message_by_timestamp(kTime + 2001, false); }},
      {"delete_message",
       {"counter-unread", "latest-missing"},
       [](LibraryStore& s) { s->delete_message("u01", CV_PRIVATE, {"s3"}); }},
      {"sync_unread",
       {"counter-low"},
       [](LibraryStore& s) { s->sync_unread("room", CV_GROUP, kTime - 1); }},
      {"set_unread_by_value",
       {"counter-negative"},
       [](LibraryStore& s) { s->set_unread_by_value("room", CV_GROUP, 9, 0); }},
      {"set_message_content",
       {"counter-mention"},
       [](LibraryStore& s) { s->set_message_content(2, "gone", "CV:RcNtf"); }},
      {"set_send_time",
       {"latest-foreign", "latest-older"},
       [](LibraryStore& s) { s->set_send_time(4, kTime + 9000, "", "room", CV_GROUP, 0); }},
      {"set_send_time",
       {"latest-missing"},
       [](LibraryStore& s) { s->set_send_time(99, kTime + 9000, "", "room", CV_GROUP, 0); }},
      {"set_send_time_for_dup_msg",
       {"session-time-apart"},
       [](LibraryStore& s) { s->set_send_time_for_dup_msg(5, kTime + 9000, "s5"); }},
      {"set_message_draft",
       {"session-time-apart"},
       [](LibraryStore& s) {
         s->set_message_draft("room", CV_GROUP, "a");
         s->set_message_draft("room", CV_GROUP, "");
       }},
      {"set_message_draft",
       {},
       [](LibraryStore& s) { s->set_message_draft("room", CV_GROUP, "a"); }},
      {"set_is_top",
       {"session-empty"},
       [](LibraryStore& s) { s->set_is_top("new", CV_GROUP, true, true); }},
      {"remove_session",
       {"session-missing"},
       [](LibraryStore& s) { s->remove_session("room", CV_GROUP); }},
      {"delete_session",
       {"counter-low"},
       [&](LibraryStore& s) {
         s->delete_session("room", CV_GROUP);
         save(s, "room", kTime + 9000);
       }},
      {"update_sent_status",
       {"status-unknown"},
       [](LibraryStore& s) { s->update_sent_status(5, 8); }},
      {"init_open_db",
       {"failed"},
       [](LibraryStore& s) {
         s->update_sent_status(5, 1);
         s->clear_sendstatus(true);
       }},
      {"update_message_status",
       {"counter-mention", "counter-unread"},
       [](LibraryStore& s) { s->update_message_status("room", CV_GROUP); }},
      {"set_unread_readtime",
       {"counter-low"},
       [](LibraryStore& s) { s->set_unread_readtime("room", CV_GROUP, kTime); }},
      {"set_message_latestid",
       {"latest-older"},
       [](LibraryStore& s) { s->set_message_latestid("room", CV_GROUP, 1, kTime); }},
      {"set_send_time",
       {"latest-none"},
       [](LibraryStore& s) { s->set_send_time(0, kTime + 9000, "", "room", CV_GROUP, 0); }},
      {"set_receipttime",
       {"time-future"},
       [](LibraryStore& s) { s->set_receipttime("u01", CV_PRIVATE, 9000000000000); }},
      {"set_read_status", {"counter-unread"}, [](LibraryStore& s) { s->set_read_status(1, -5); }},
      {"set_read_status", {"own-unread"}, [](LibraryStore& s) { s->set_read_status(5, 0); }},
      {"sync_unread",
       {"counter-untold"},
       [](LibraryStore& s) {
         s->sync_unread("room", CV_GROUP, kTime + 2000);
         s->set_unread_by_value("room", CV_GROUP, -1, 0);
       }},
      {"set_sync_time", {"sync-behind"}, [](LibraryStore& s) { s->set_sync_time(kTime, true); }},
      {"set_read_status", {}, [](LibraryStore& s) { s->set_read_status(2, 1); }},
      {"clear_unread", {}, [](LibraryStore& s) { s->clear_unread("room", CV_GROUP); }},
      {"delete_message",
       {},
       [](LibraryStore& s) {
         s->delete_message({2, 3});
       }},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(std::string(one.operation) + (one.codes.empty() ? "" : " " + one.codes[0]));
    write_file(file(), clean);
    {
      LibraryStore open(store(), "me");
      one.call(open);
      EXPECT_EQ(open.failure(), "");
    }
    const Outcome outcome = run({"verify", store(), "--json"});
    const Json report = Json::parse(outcome.out);
    Rows found = codes(report);
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, one.codes);
    for (const std::string& code : one.codes) {
      const Json operations = finding(report, code)["operations"];
      EXPECT_NE(std::find(operations.begin(), operations.end(), one.operation), operations.end())
          << code;
    }
  }
}

// Random operations whose counters can be recounted exactly: received messages arrive in time order
// and are counted, and are marked unread again only after read_time.
class Sequence {
 public:
  Sequence(LibraryStore& open, unsigned seed) : open_(open), random_(seed) {}

  void run(int operations) {
    open_->execute_none_query("pragma synchronous=off");
    for (int i = 0; i < operations; ++i) step();
    for (const char* room : {"a", "b", "c"}) {
      if (below(2) == 0) open_->clear_unread(room, CV_GROUP);
      for (int i = 0; i < 4; ++i) step();
    }
  }

 private:
  unsigned below(unsigned n) { return static_cast<unsigned>(random_() % n); }

  void step() {
    const std::string room(1, static_cast<char>('a' + below(3)));
    const auto kind = room == "c" ? CV_CHATROOM : CV_GROUP;
    time_ += 1 + below(1000);
    switch (below(8)) {
      case 0:
        own(room, kind);
        return;
      case 1:
        if (!received_.empty()) open_->set_read_status(any(), 1);
        return;
      case 2:
        if (!received_.empty() && kind == CV_GROUP) open_->set_read_status(any(), 3);
        return;
      case 3:
        if (kind == CV_GROUP && !received_.empty()) open_->delete_message({any(), any()});
        return;
      default:
        receive(room, kind);
    }
  }

  void own(const std::string& room, Corvan::SessionType kind) {
    const int64_t id = open_->save_message(room, kind, "CV:TxtMsg", "me", "hi", false, 1, 0, false,
                                           time_, ++uid_, "", false, false, false);
    EXPECT_GT(id, 0);
    time_ += 1;
    open_->set_send_time(id, time_, "s" + std::to_string(uid_), room, kind, 0);
  }

  void receive(const std::string& room, Corvan::SessionType kind) {
    const bool mention = kind == CV_GROUP && below(3) == 0;
    const int64_t id =
        open_->save_message(room, kind, "CV:TxtMsg", "u01", "hi", true, 0, 0, mention, time_, 0,
                            "s" + std::to_string(++uid_), false, false, true);
    EXPECT_GT(id, 0);
    if (kind == CV_GROUP) received_.push_back(id);
  }

  int64_t any() { return received_.at(below(static_cast<unsigned>(received_.size()))); }

  LibraryStore& open_;
  std::mt19937 random_;
  int64_t time_ = kTime;
  int64_t uid_ = 0;
  std::vector<int64_t> received_;
};

TEST_F(VerifyTest, RecountEqualsWhatOperationsLeave) {
  for (unsigned seed = 1; seed <= 5; ++seed) {
    SCOPED_TRACE(seed);
    std::filesystem::remove_all(store());
    std::filesystem::create_directory(store());
    {
      LibraryStore open(store(), "me");
      Sequence(open, seed).run(60);
      EXPECT_EQ(open.failure(), "");
    }
    const Json report = verify(0);
    EXPECT_EQ(codes(report), Rows{});

    const Rows before = rows(kContent);
    plant(
        "update t_session set unread_count=unread_count+7,mention_count=mention_count-9 "
        "where session_id='a';"
        "update t_session set latest_id=5000,session_time=5 where session_id='b' and latest_id>0;"
        "update t_session set session_time=session_time+1 where session_id='c' and latest_id>0");
    EXPECT_NE(rows(kContent), before);
    repair("counters,latest,times", {"--backup", folder.file("was" + std::to_string(seed))});
    EXPECT_EQ(rows(kContent), before);
  }
}

}  // namespace
}  // namespace corvan_test
