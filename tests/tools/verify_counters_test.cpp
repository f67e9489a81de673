// How counters are recounted, and what --repair counters sets them to.

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/verify_fixture.h"

namespace corvan_test {
namespace {

using Corvan::CV_CHATROOM;
using Corvan::CV_GROUP;

// Counters as operations leave them, and what --repair does if they are 5 higher, or below 0.
TEST_F(VerifyTest, RepairRestoresCountersWhereRowsAllow) {
  struct Case {
    const char* what;
    std::function<void(LibraryStore&)> call;
    int64_t stored;  // unread_count as the operations leave it
    int64_t more;    // after repairing a counter that is 5 higher; -1 if it is kept
    int64_t less;    // after repairing a counter below 0
  };
  const auto save_some = [this](LibraryStore& s, int64_t time, int count, bool history = false) {
    for (int i = 0; i < count; ++i) EXPECT_GT(save(s, "room", time + i, false, history), 0);
  };
  const std::vector<Case> cases = {
      {"live", [&](LibraryStore& s) { save_some(s, kTime, 4); }, 4, 4, 4},
      {"older history is not counted",
       [&](LibraryStore& s) {
         save_some(s, kTime + 100, 3);
         save_some(s, kTime, 9, true);
       },
       3, -1, 3},
      {"history alone, newest first",
       [&](LibraryStore& s) {
         for (int i = 3; i > 0; --i) save_some(s, kTime + i, 1, true);
       },
       1, 3, 1},
      {"late ones after a clearing count",
       [&](LibraryStore& s) {
         save_some(s, kTime + 100, 3);
         s->clear_unread("room", CV_GROUP);
         save_some(s, kTime, 4);
       },
       4, 4, 0},
      {"late ones before a clearing do not",
       [&](LibraryStore& s) {
         save_some(s, kTime + 100, 1);
         s->clear_unread("room", CV_GROUP);
         save_some(s, kTime, 3);
         save_some(s, kTime + 200, 1);
         s->clear_unread("room", CV_GROUP);
       },
       0, 0, 0},
      {"an unread one that was cleared by its time",
       [&](LibraryStore& s) {
         save_some(s, kTime, 9);
         s->sync_unread("room", CV_GROUP, kTime + 8);
       },
       0, -1, 0},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.what);
    make_store(one.call);
    const Rows counter = {std::to_string(one.stored)};
    EXPECT_EQ(rows("select unread_count from t_session"), counter);
    const Rows found = codes(Json::parse(run({"verify", store(), "--json"}).out));
    for (const char* code : {"counter-unread", "counter-untold"}) {
      EXPECT_EQ(std::count(found.begin(), found.end(), code), 0) << code;
    }
    plant("update t_session set unread_count=unread_count+5");
    const int64_t more = one.more < 0 ? one.stored + 5 : one.more;
    repair("counters", {"--backup", folder.file("more")});
    EXPECT_EQ(rows("select unread_count from t_session"), Rows{std::to_string(more)});
    if (one.more < 0) {
      finding(Json::parse(run({"verify", store(), "--json"}).out), "counter-untold");
    }
    plant("update t_session set unread_count=-7");
    repair("counters", {"--backup", folder.file("less")});
    EXPECT_EQ(rows("select unread_count from t_session"), Rows{std::to_string(one.less)});
    std::filesystem::remove_all(folder.file("more"));
    std::filesystem::remove_all(folder.file("less"));
  }
}

// Ordinary use leaves these counters, but no row distinguishes them from a lost counter.
TEST_F(VerifyTest, UncountedMessagesAreANote) {
  const auto save_uncounted = [](LibraryStore& s, int64_t time, bool history) {
    EXPECT_GT(s->save_message("room", CV_GROUP, "CV:TxtMsg", "u02", "hi", true, 0, 0, false, time,
                              0, "", history, false, /*is_count=*/false),
              0);
  };
  struct Case {
    const char* what;
    std::function<void(LibraryStore&)> call;
    int64_t stored;
    int64_t recount;
  };
  const std::vector<Case> cases = {
      {"a notice",
       [&](LibraryStore& s) {
         save(s, "room", kTime);
         save_uncounted(s, kTime + 1, false);
       },
       1, 2},
      {"a page of history, oldest first",
       [&](LibraryStore& s) {
         for (int i = 0; i < 5; ++i) save_uncounted(s, kTime + i, true);
       },
       0, 5},
      {"history after a newer message that is deleted",
       [&](LibraryStore& s) {
         save(s, "room", kTime);
         const int64_t newest = save(s, "room", kTime + 9);
         save(s, "room", kTime + 5, false, true);
         s->delete_message({newest});
       },
       1, 2},
      {"history after a draft",
       [&](LibraryStore& s) {
         save(s, "room", kTime);
         s->set_message_draft("room", CV_GROUP, "a");
         s->set_message_draft("room", CV_GROUP, "");
         save(s, "room", kTime + 5, false, true);
         s->set_message_latestid("room", CV_GROUP, 2, kTime + 5);
       },
       1, 2},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(one.what);
    make_store(one.call);
    const Rows stored = {std::to_string(one.stored)};
    EXPECT_EQ(rows("select unread_count from t_session"), stored);
    const Json report = verify(0);
    EXPECT_EQ(codes(report), Rows{"counter-low"});
    const Json tried = repair("counters", {"--dry-run"});
    EXPECT_EQ(rows("select unread_count from t_session"), stored);
    const Json row = finding(report, "counter-low")["rows"][0];
    EXPECT_EQ(row["stored"], one.stored);
    EXPECT_EQ(row["derived"], one.recount);
    EXPECT_EQ(row["repair"], "counters");
    EXPECT_EQ(tried["changes"][0]["finding"], "counter-low");
    EXPECT_EQ(tried["changes"][0]["new"], one.recount);
  }
  const std::string text = output({"verify", store(), "--repair", "counters", "--dry-run"});
  EXPECT_NE(text.find("counters  counter-low  room (group)  unread_count  1 -> 2\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("would be changed: 1\nnotes among them: 1; ordinary use can cause these, "
                      "see 'corvan verify'\n"),
            std::string::npos)
      << text;
}

TEST_F(VerifyTest, RepairRestoresChangedCounter) {
  import_sample();
  for (const auto& [value, code] :
       std::vector<std::pair<int, const char*>>{{99, "counter-unread"},
                                                {1, "counter-low"},
                                                {0, "counter-low"},
                                                {-2, "counter-negative"}}) {
    SCOPED_TRACE(value);
    plant("update t_session set unread_count=" + std::to_string(value) +
          " where session_id='room'");
    const Json result = repair("counters");
    EXPECT_EQ(changes(result),
              Rows{"counters room unread_count " + std::to_string(value) + " -> 3"});
    EXPECT_EQ(result["changes"][0]["finding"], code);
    EXPECT_EQ(codes(verify(0)), Rows{});
    std::filesystem::remove_all(result["backup"].get<std::string>());
  }
}

TEST_F(VerifyTest, ChatRoomCountsMessagesSinceClearing) {
  std::string lines;
  for (int i = 0; i < 8; ++i) {
    lines += line({{"session_id", "hall"}, {"session_type", 3}, {"sent_time", kTime + i}});
  }
  import(lines);
  const Rows in_range = {"counter-untold"};
  const std::vector<std::pair<int, Rows>> fresh = {
      {-1, {"counter-negative"}}, {0, {}}, {3, in_range}, {8, {}}, {9, {"counter-unread"}}};
  for (const auto& [count, expected] : fresh) {
    SCOPED_TRACE(count);
    plant("update t_session set unread_count=" + std::to_string(count));
    const bool is_wrong = count < 0 || count > 8;
    EXPECT_EQ(codes(verify(is_wrong ? 1 : 0)), expected);
  }
  repair("counters", {"--backup", folder.file("was")});
  EXPECT_EQ(rows("select unread_count from t_session"), Rows{"8"});
  {
    LibraryStore open(store(), "me");
    open->clear_unread("hall", CV_CHATROOM);
    EXPECT_EQ(open.failure(), "");
  }
  EXPECT_EQ(codes(verify(0)), Rows{});
  plant("update t_session set unread_count=5");
  EXPECT_EQ(finding(verify(1), "counter-unread")["rows"][0]["derived"], 0);
}

TEST_F(VerifyTest, OwnMentionCounts) {
  import(line({{"sender", "me"}, {"is_receive", false}, { "is_mention", true }}));
  EXPECT_EQ(codes(verify(0)), Rows{});
  plant("update t_session set mention_count=6");
  EXPECT_EQ(changes(repair("counters")), Rows{"counters room mention_count 6 -> 1"});
}

}  // namespace
}  // namespace corvan_test
