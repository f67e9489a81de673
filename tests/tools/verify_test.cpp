// What verify finds, in stores with values planted behind the library's back and in stores that its
// operations left, and what --repair makes of it.

#include <fcntl.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/tools/program.h"
#include "tools/store/library_store.h"

namespace corvan_test {
namespace {

using Corvan::CV_CHATROOM;
using Corvan::CV_GROUP;
using Corvan::CV_PRIVATE;
using Corvan::MessageResponse;
using corvan_tool::OpenStore;

constexpr int64_t kTime = 1700000000000;
constexpr const char* kAll = "counters,latest,times,indexes,sequence";
constexpr const char* kContent =
    "select * from t_message;select rowid,* from t_session;select * from t_sync;"
    "select * from t_version;select * from sqlite_sequence;"
    "select type,name,sql from sqlite_master order by type,name";

class VerifyTest : public ToolTest {
 protected:
  // A new store with what `call` leaves in it.
  void make_store(const std::function<void(OpenStore&)>& call) {
    std::filesystem::remove_all(store());
    std::filesystem::create_directory(store());
    OpenStore open(store(), "me");
    call(open);
    EXPECT_EQ(open.failure(), "");
  }

  // Messages 1 to 3 in the group "room", the second of them a mention; 4 in the private "u01"; 5 an
  // own one there; 6 in the chat room "hall".
  void import_sample() {
    import(line(
               {{ "server_uid",
                  "s1" }}) +
           line({{"server_uid", "s2"},
                 {"is_mention", true},
                 { "sent_time",
                   kTime + 1000 }}) +
           line({{"server_uid", "s3"},
                 { "sent_time",
                   kTime + 2000 }}) +
           line({{"session_id", "u01"},
                 {"session_type", 1},
                 { "sent_time",
                   kTime + 3000 }}) +
           line({{"session_id", "u01"},
                 {"session_type", 1},
                 {"sender", "me"},
                 {"is_receive", false},
                 {"client_uid", 42},
                 { "sent_time",
                   kTime + 4000 }}) +
           line({{"session_id", "hall"},
                 {"session_type", 3},
                 { "sent_time",
                   kTime + 5000 }}));
  }

  Json verify(int status) {
    const Outcome outcome = run({"verify", store(), "--json"});
    EXPECT_EQ(outcome.status, status) << outcome.out;
    EXPECT_EQ(outcome.err, "");
    return Json::parse(outcome.out);
  }

  static Rows codes(const Json& report) {
    Rows all;
    for (const Json& finding : report["findings"]) all.push_back(finding["code"]);
    return all;
  }

  // The one finding of this code; fails when there is none.
  static Json finding(const Json& report, const std::string& code) {
    for (const Json& one : report["findings"]) {
      if (one["code"] == code) return one;
    }
    ADD_FAILURE() << "no " << code << " in " << report.dump(1);
    return {{"rows", Json::array({Json::object()})}, {"operations", Json::array()}};
  }

  Json repair(const std::string& what, const Arguments& more = {}) {
    Arguments arguments = {"verify", store(), "--repair", what, "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return json(arguments);
  }

  // "repair conversation name old -> new" of each change.
  static Rows changes(const Json& result) {
    Rows all;
    for (const Json& change : result["changes"]) {
      all.push_back(
          change["repair"].get<std::string>() + " " +
          (change["session_id"].is_null() ? "-" : change["session_id"].get<std::string>()) + " " +
          change["name"].get<std::string>() + " " + change["old"].dump() + " -> " +
          change["new"].dump());
    }
    return all;
  }

  // Expects one line of error, and the folder as it was.
  void expect_refused(const Arguments& more, const std::string& error) {
    const Listing before = listing(store());
    Arguments arguments = {"verify", store(), "--repair", kAll};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + error + "\n");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(listing(store()), before);
    EXPECT_EQ(backups(), Rows{});
  }

  // What stands beside the store.
  Rows backups() const {
    Rows names;
    for (const auto& [name, content] : listing(folder.path())) {
      if (name.rfind("store.", 0) == 0) names.push_back(name);
    }
    return names;
  }

  int64_t save(OpenStore& open, const std::string& room, int64_t time, bool mention = false,
               bool history = false, const std::string& uid = "") {
    return open->save_message(room, CV_GROUP, "CV:TxtMsg", "u01", "hi", true, 0, 0, mention, time,
                              0, uid, history, false, true);
  }
};

TEST_F(VerifyTest, StoreFromALogHasNoFindings) {
  import_sample();
  const Listing before = listing(store());
  EXPECT_EQ(output({"verify", store()}), "ok: 3 conversations, 6 messages\n");
  EXPECT_EQ(verify(0), Json({{"ok", true},
                             {"damaged", false},
                             {"complete", true},
                             {"sessions", 3},
                             {"messages", 6},
                             {"impossible", 0},
                             {"allowed", 0},
                             {"note", 0},
                             {"findings", Json::array()}}));
  EXPECT_EQ(listing(store()), before);
}

struct Planted {
  const char* sql;
  const char* code;
  const char* rank;
  const char* name;
  Json stored;
  Json derived;
  std::vector<int64_t> messages;
  Json repair = nullptr;
};

// Each statement alone makes this row of this finding.
const std::vector<Planted>& all_planted() {
  static const Json none = nullptr;
  static const std::vector<Planted> all = {
      {"create trigger t after delete on t_sync begin select 1; end",
       "schema-extra",
       "impossible",
       "trigger t",
       "CREATE TRIGGER t after delete on t_sync begin select 1; end",
       none,
       {}},
      {"alter table t_sync add column more text",
       "table-differs",
       "impossible",
       "t_sync",
       Json::array({"column more text"}),
       Json::array(),
       {}},
      {"delete from t_version", "version-missing", "allowed", "t_version", none, "1", {}},
      {"insert into t_version values('1')",
       "version-twice",
       "impossible",
       "t_version",
       Json::array({"1", "1"}),
       none,
       {}},
      {"update t_version set database_version='9'",
       "version-other",
       "impossible",
       "database_version",
       "9",
       "1",
       {}},
      {"pragma user_version=0", "setting-other", "impossible", "user_version", 0, 1, {}},
      {"pragma journal_mode=delete",
       "journal-mode",
       "allowed",
       "journal_mode",
       "delete",
       "wal",
       {}},
      {"pragma journal_mode=delete;pragma page_size=8192;vacuum;pragma journal_mode=wal",
       "setting-other",
       "impossible",
       "page_size",
       "8192",
       "4096",
       {}},
      {"update sqlite_sequence set seq=2",
       "sequence-behind",
       "impossible",
       "sqlite_sequence",
       2,
       6,
       {},
       "sequence"},
      {"delete from sqlite_sequence",
       "sequence-behind",
       "impossible",
       "sqlite_sequence",
       none,
       6,
       {},
       "sequence"},
      {"insert into sqlite_sequence values('t_message',500)",
       "sequence-behind",
       "impossible",
       "sqlite_sequence",
       Json::array({6, 500}),
       500,
       {},
       "sequence"},
      {"insert into t_sync values(null,1700000005000,1700000004000)",
       "text-null",
       "allowed",
       "t_sync.user_id of ",
       "null",
       none,
       {}},
      {"insert into t_sync values(x'6d65',1700000005000,1700000004000)",
       "column-type",
       "impossible",
       "t_sync.user_id of me",
       "blob",
       none,
       {}},
      {"update t_message set client_uid=null where id=4",
       "integer-null",
       "allowed",
       "client_uid",
       "null",
       none,
       {4}},
      {"update t_message set sent_status='x' where id in(1,3)",
       "column-type",
       "impossible",
       "sent_status",
       "text",
       none,
       {1, 3}},
      {"update t_session set silence=1.5 where session_id='room'",
       "column-type",
       "impossible",
       "silence",
       "real",
       none,
       {}},
      {"update t_message set direction=7 where id=5",
       "code-impossible",
       "impossible",
       "direction",
       7,
       none,
       {5}},
      {"update t_message set is_mention=2 where id=5",
       "code-impossible",
       "impossible",
       "is_mention",
       2,
       none,
       {5}},
      {"update t_message set read_status=1<<40 where id=5",
       "code-impossible",
       "impossible",
       "read_status",
       int64_t{1} << 40,
       none,
       {5}},
      {"update t_session set is_top=2 where session_id='room'",
       "code-impossible",
       "impossible",
       "is_top",
       2,
       none,
       {}},
      {"insert into t_message(id,session_id,session_type,direction,read_status,sent_time) "
       "values(-4,'room',2,1,1,1600000000000)",
       "id-impossible",
       "impossible",
       "id",
       -4,
       none,
       {-4}},
      {"insert into t_sync values('me',-1,1700000004000)",
       "sync-negative",
       "impossible",
       "t_sync.receive_time of me",
       -1,
       none,
       {}},
      {"pragma user_version=4", "user-version", "allowed", "user_version", 4, 1, {}},
      {"create index t_sync_old on t_sync(sent_time)",
       "index-older",
       "allowed",
       "t_sync_old",
       "CREATE INDEX t_sync_old on t_sync(sent_time)",
       none,
       {},
       "indexes"},
      {"update t_message set content=null where id=2",
       "text-null",
       "allowed",
       "content",
       "null",
       none,
       {2}},
      {"update t_session set draft=null where session_id='room'",
       "text-null",
       "allowed",
       "draft",
       "null",
       none,
       {}},
      {"update t_message set sent_status=9 where id=4",
       "status-unknown",
       "allowed",
       "sent_status",
       9,
       none,
       {4}},
      {"update t_session set unread_count=4 where session_id='room'",
       "counter-unread",
       "allowed",
       "unread_count",
       4,
       3,
       {},
       "counters"},
      {"update t_session set unread_count=9 where session_id='hall'",
       "counter-unread",
       "allowed",
       "unread_count",
       9,
       1,
       {},
       "counters"},
      {"update t_session set unread_count=-3 where session_id='hall'",
       "counter-negative",
       "allowed",
       "unread_count",
       -3,
       0,
       {},
       "counters"},
      {"update t_session set mention_count=2 where session_id='room'",
       "counter-mention",
       "allowed",
       "mention_count",
       2,
       1,
       {},
       "counters"},
      {"update t_session set mention_count=-1 where session_id='hall'",
       "counter-negative",
       "allowed",
       "mention_count",
       -1,
       0,
       {},
       "counters"},
      {"update t_session set latest_id=77 where session_id='room'",
       "latest-missing",
       "allowed",
       "latest_id",
       77,
       3,
       {},
       "latest"},
      {"update t_session set latest_id=4 where session_id='room'",
       "latest-foreign",
       "allowed",
       "latest_id",
       4,
       3,
       {},
       "latest"},
      {"update t_session set latest_id=1,session_time=1700000000000 where session_id='room'",
       "latest-older",
       "allowed",
       "latest_id",
       1,
       3,
       {},
       "latest"},
      {"update t_session set latest_id=-1 where session_id='room'",
       "latest-none",
       "allowed",
       "latest_id",
       -1,
       3,
       {},
       "latest"},
      {"update t_session set session_time=1700000000001 where session_id='room'",
       "session-time",
       "allowed",
       "session_time",
       1700000000001,
       kTime + 2000,
       {},
       "times"},
      {"update t_message set server_uid='s1' where id=3",
       "server-uid-twice",
       "allowed",
       "server_uid",
       "s1",
       none,
       {1, 3}},
      {"update t_message set client_uid=42,sender='me' where id=4",
       "client-key-twice",
       "allowed",
       "client_uid",
       "42 of me",
       none,
       {4, 5}},
      {"update t_session set read_time=9000000000000,unread_count=0 where session_id='hall'",
       "time-future",
       "allowed",
       "read_time",
       9000000000000,
       none,
       {}},
      {"insert into t_sync values('me',1700009999,1700000004000)",
       "time-unit",
       "allowed",
       "t_sync.receive_time of me",
       1700009999,
       none,
       {}},
      {"update t_message set sent_time=sent_time/1000,is_mention=0,read_status=1 where id in(1,2);"
       "update t_session set unread_count=1,mention_count=0 where session_id='room'",
       "time-unit",
       "allowed",
       "sent_time",
       Json{{"least", 1700000000}, {"most", 1700000001}},
       none,
       {1, 2}},
      {"update t_session set unread_count=2 where session_id='room'",
       "counter-low",
       "note",
       "unread_count",
       2,
       3,
       {},
       "counters"},
      {"update t_session set mention_count=0 where session_id='room'",
       "counter-low",
       "note",
       "mention_count",
       0,
       1,
       {},
       "counters"},
      {"update t_session set unread_count=1,mention_count=0,read_time=1700000002000 "
       "where session_id='room'",
       "counter-untold",
       "note",
       "unread_count",
       1,
       Json{{"least", 0}, {"most", 3}},
       {}},
      {"update t_session set session_time=session_time+1 where session_id='room'",
       "session-time-apart",
       "note",
       "session_time",
       kTime + 2001,
       kTime + 2000,
       {},
       "times"},
      {"update t_session set session_time=session_time-1 where session_id='u01'",
       "session-time-apart",
       "note",
       "session_time",
       kTime + 3999,
       kTime + 4000,
       {},
       "times"},
      {"update t_message set read_status=0 where id=5",
       "own-unread",
       "note",
       "read_status",
       0,
       none,
       {5}},
      {"update t_message set sent_status=1 where id=5",
       "sending",
       "note",
       "sent_status",
       1,
       none,
       {5}},
      {"update t_message set sent_status=2 where id=5",
       "failed",
       "note",
       "sent_status",
       2,
       none,
       {5}},
      {"update t_message set direction=2 where id=3",
       "direction-copied",
       "note",
       "direction",
       2,
       none,
       {3}},
      {"delete from t_message where id=6;update t_session set latest_id=-1,unread_count=0 "
       "where session_id='hall'",
       "session-empty",
       "note",
       "t_session",
       none,
       none,
       {}},
      {"delete from t_session where session_id='u01'",
       "session-missing",
       "note",
       "t_session",
       none,
       none,
       {4, 5}},
      {"insert into t_sync values('me',0,1700000004000)",
       "sync-behind",
       "note",
       "t_sync.receive_time of me",
       0,
       kTime + 5000,
       {}},
      {"insert into t_sync values('me',1700000005000,1700000003999)",
       "sync-behind",
       "note",
       "t_sync.sent_time of me",
       1700000003999,
       kTime + 4000,
       {}},
      {"create table more(a)", "table-extra", "note", "more", none, none, {}},
      {"create index mine on t_sync(sent_time)",
       "index-extra",
       "note",
       "mine",
       "CREATE INDEX mine on t_sync(sent_time)",
       none,
       {}},
  };
  return all;
}

TEST_F(VerifyTest, EachFindingByAPlantedValue) {
  import_sample();
  const std::string clean = read_file(file());
  for (const Planted& planted : all_planted()) {
    SCOPED_TRACE(planted.sql);
    write_file(file(), clean);
    plant(planted.sql);
    const Json report = verify(std::string(planted.rank) == "note" ? 0 : 1);
    EXPECT_EQ(codes(report), Rows{planted.code});
    const Json found = finding(report, planted.code);
    EXPECT_EQ(found["class"], planted.rank);
    EXPECT_NE(found["text"], "");
    EXPECT_NE(found["explanation"], "");
    ASSERT_EQ(found["rows"].size(), 1U);
    const Json& row = found["rows"][0];
    EXPECT_EQ(row["name"], planted.name);
    EXPECT_EQ(row["stored"], planted.stored);
    EXPECT_EQ(row["derived"], planted.derived);
    EXPECT_EQ(row["messages"], Json(planted.messages));
    EXPECT_EQ(row["repair"], planted.repair);
    EXPECT_EQ(report[planted.rank], 1);

    // --repair takes it away, or leaves it.
    if (planted.repair.is_null() && std::string(planted.rank) != "allowed") continue;
    const Rows before = rows(kContent);
    EXPECT_EQ(changes(repair(kAll)).empty(), planted.repair.is_null());
    if (planted.repair.is_null()) {
      EXPECT_EQ(rows(kContent), before);
    } else {
      EXPECT_EQ(codes(verify(0)), Rows{});
    }
    for (const std::string& name : backups()) std::filesystem::remove_all(folder.file(name));
  }
}

TEST_F(VerifyTest, FindingsWithOthersBeside) {
  import_sample();
  const std::string clean = read_file(file());
  const std::vector<std::pair<const char*, Rows>> all = {
      {"drop index t_message_session", {"index-missing"}},
      {"drop index t_message_session;create index t_message_session on t_message(sender)",
       {"index-differs"}},
      {"update t_message set session_type=0 where id=6;update t_session set session_type=0,"
       "unread_count=0 where session_id='hall'",
       {"kind-unknown"}},
      {"create table copy as select * from t_session;drop table t_session;"
       "alter table copy rename to t_session;insert into t_session select * from t_session "
       "where session_id='room'",
       {"table-differs", "index-missing", "row-twice", "not-judged"}},
      // A value of another type hides no finding that does not follow from it.
      {"update t_session set silence=null,unread_count=-9 where session_id='room'",
       {"integer-null", "counter-negative"}},
      {"update t_session set is_top='x',latest_id=0 where session_id='room'",
       {"column-type", "latest-none"}},
      {"update t_message set sent_status='x',direction=5 where id=1;"
       "update t_session set unread_count=8,latest_id=0 where session_id='room'",
       {"column-type", "code-impossible", "counter-unread", "latest-none"}},
      {"update t_session set latest_id='x',unread_count=8 where session_id='room'",
       {"column-type", "counter-unread", "not-judged"}},
      {"update t_session set read_time='x',unread_count=8,latest_id=0 where session_id='room'",
       {"column-type", "latest-none", "not-judged"}},
      {"update t_message set read_status='x' where id=1;"
       "update t_session set unread_count=8,latest_id=0 where session_id='room'",
       {"column-type", "latest-none", "not-judged"}},
      {"create table copy as select * from t_message;drop table t_message;"
       "create table t_message as select id,session_id from copy;drop table copy",
       {"rows-unread", "table-differs", "index-missing"}},
  };
  for (const auto& [sql, expected] : all) {
    SCOPED_TRACE(sql);
    write_file(file(), clean);
    plant(sql);
    Rows found = codes(verify(1));
    Rows sorted = expected;
    std::sort(found.begin(), found.end());
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(found, sorted);
  }
}

TEST_F(VerifyTest, TextTellsWhereWhatAndWhy) {
  import_sample();
  plant(
      "update t_session set unread_count=5 where session_id='room';"
      "with n(i) as(select 1 union all select i+1 from n where i<12) "
      "insert into t_message(session_id,session_type,read_status,sent_status,sent_time) "
      "select 'u01',1,1,2,1600000000000 from n");
  const Outcome outcome = run({"verify", store()});
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out.substr(0, outcome.out.find('\n')),
            "1 finding: 0 impossible, 1 allowed; 1 note");
  for (const char* part :
       {"\n\ncounter-unread (allowed, 1): unread_count is higher than ", "\n  by: save_message, ",
        "\n  repaired by: --repair counters\n    room (group) unread_count 5, derived: 3\n",
        "\n\nfailed (note, 1): ",
        "\n    u01 (private) sent_status 2: messages 7, 8, 9, 10, 11, 12, 13, 14, 15, 16 and 2 "
        "more\n"}) {
    EXPECT_NE(outcome.out.find(part), std::string::npos) << part << outcome.out;
  }
}

TEST_F(VerifyTest, TextIsCutAfterTenFindingsAndShowsNoControlCharacters) {
  std::string lines;
  for (int i = 10; i < 22; ++i) {
    lines += line({{"session_id", "r\n" + std::to_string(i)}, {"sent_time", kTime + i}});
  }
  import(lines);
  plant("update t_session set unread_count=7");
  const Outcome outcome = run({"verify", store()});
  EXPECT_NE(outcome.out.find("    r\\n19 (group) unread_count 7, derived: 1\n    ... and 2 more\n"),
            std::string::npos)
      << outcome.out;
  EXPECT_EQ(finding(verify(1), "counter-unread")["rows"].size(), 12U);
}

// What operations leave, and that the finding names the operation.
TEST_F(VerifyTest, OperationsThatExplainAFinding) {
  import_sample();
  const std::string clean = read_file(file());
  struct Case {
    const char* operation;
    Rows codes;
    std::function<void(OpenStore&)> call;
  };
  const std::vector<Case> cases = {
      {"save_message", {}, [&](OpenStore& s) { save(s, "room", kTime + 500, false, true); }},
      {"save_message", {"latest-older"}, [&](OpenStore& s) { save(s, "room", kTime + 500); }},
      {"save_message",
       {"counter-low", "latest-older"},
       [&](OpenStore& s) {
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
       [&](OpenStore& s) {
         s->save_message("u01", CV_PRIVATE, "CV:TxtMsg", "me", "hi", false, 0, 0, false,
                         kTime + 9000, 42, "", true, false, false);
       }},
      {"clear_message",
       {"counter-mention", "counter-unread", "session-empty"},
       [](OpenStore& s) { s->clear_message("room", CV_GROUP, false); }},
      {"clear_message_by_timestamp",
       {"counter-mention", "counter-unread", "latest-missing", "session-empty"},
       [](OpenStore& s) { s->clear_message_by_timestamp(kTime + 2001, false); }},
      {"delete_message",
       {"counter-unread", "latest-missing"},
       [](OpenStore& s) { s->delete_message("u01", CV_PRIVATE, {"s3"}); }},
      {"sync_unread",
       {"counter-low"},
       [](OpenStore& s) { s->sync_unread("room", CV_GROUP, kTime - 1); }},
      {"set_unread_by_value",
       {"counter-negative"},
       [](OpenStore& s) { s->set_unread_by_value("room", CV_GROUP, 9, 0); }},
      {"set_message_content",
       {"counter-mention"},
       [](OpenStore& s) { s->set_message_content(2, "gone", "CV:RcNtf"); }},
      {"set_send_time",
       {"latest-foreign", "latest-older"},
       [](OpenStore& s) { s->set_send_time(4, kTime + 9000, "", "room", CV_GROUP, 0); }},
      {"set_send_time",
       {"latest-missing"},
       [](OpenStore& s) { s->set_send_time(99, kTime + 9000, "", "room", CV_GROUP, 0); }},
      {"set_send_time_for_dup_msg",
       {"session-time-apart"},
       [](OpenStore& s) { s->set_send_time_for_dup_msg(5, kTime + 9000, "s5"); }},
      {"set_message_draft",
       {"session-time-apart"},
       [](OpenStore& s) {
         s->set_message_draft("room", CV_GROUP, "a");
         s->set_message_draft("room", CV_GROUP, "");
       }},
      {"set_message_draft", {}, [](OpenStore& s) { s->set_message_draft("room", CV_GROUP, "a"); }},
      {"set_is_top",
       {"session-empty"},
       [](OpenStore& s) { s->set_is_top("new", CV_GROUP, true, true); }},
      {"remove_session",
       {"session-missing"},
       [](OpenStore& s) { s->remove_session("room", CV_GROUP); }},
      {"delete_session",
       {"counter-low"},
       [&](OpenStore& s) {
         s->delete_session("room", CV_GROUP);
         save(s, "room", kTime + 9000);
       }},
      {"update_sent_status", {"status-unknown"}, [](OpenStore& s) { s->update_sent_status(5, 8); }},
      {"init_open_db",
       {"failed"},
       [](OpenStore& s) {
         s->update_sent_status(5, 1);
         s->clear_sendstatus(true);
       }},
      {"update_message_status",
       {"counter-mention", "counter-unread"},
       [](OpenStore& s) { s->update_message_status("room", CV_GROUP); }},
      {"set_unread_readtime",
       {"counter-low"},
       [](OpenStore& s) { s->set_unread_readtime("room", CV_GROUP, kTime); }},
      {"set_message_latestid",
       {"latest-older"},
       [](OpenStore& s) { s->set_message_latestid("room", CV_GROUP, 1, kTime); }},
      {"set_send_time",
       {"latest-none"},
       [](OpenStore& s) { s->set_send_time(0, kTime + 9000, "", "room", CV_GROUP, 0); }},
      {"set_receipttime",
       {"time-future"},
       [](OpenStore& s) { s->set_receipttime("u01", CV_PRIVATE, 9000000000000); }},
      {"set_read_status", {"counter-unread"}, [](OpenStore& s) { s->set_read_status(1, -5); }},
      {"set_read_status", {"own-unread"}, [](OpenStore& s) { s->set_read_status(5, 0); }},
      {"sync_unread",
       {"counter-untold"},
       [](OpenStore& s) {
         s->sync_unread("room", CV_GROUP, kTime + 2000);
         s->set_unread_by_value("room", CV_GROUP, -1, 0);
       }},
      {"set_sync_time", {"sync-behind"}, [](OpenStore& s) { s->set_sync_time(kTime, true); }},
      {"set_read_status", {}, [](OpenStore& s) { s->set_read_status(2, 1); }},
      {"clear_unread", {}, [](OpenStore& s) { s->clear_unread("room", CV_GROUP); }},
      {"delete_message",
       {},
       [](OpenStore& s) {
         s->delete_message({2, 3});
       }},
  };
  for (const Case& one : cases) {
    SCOPED_TRACE(std::string(one.operation) + (one.codes.empty() ? "" : " " + one.codes[0]));
    write_file(file(), clean);
    {
      OpenStore open(store(), "me");
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

// Sequences that keep to what the counters count: received messages come in time order and are
// counted, and are marked unread again only after read_time.
class Sequence {
 public:
  Sequence(OpenStore& open, unsigned seed) : open_(open), random_(seed) {}

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

  OpenStore& open_;
  std::mt19937 random_;
  int64_t time_ = kTime;
  int64_t uid_ = 0;
  std::vector<int64_t> received_;
};

TEST_F(VerifyTest, RecountIsWhatTheOperationsLeaveAndRepairBringsItBack) {
  for (unsigned seed = 1; seed <= 5; ++seed) {
    SCOPED_TRACE(seed);
    std::filesystem::remove_all(store());
    std::filesystem::create_directory(store());
    {
      OpenStore open(store(), "me");
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

// Counters of stores that operations have left, and what becomes of one that is 5 more or far less.
TEST_F(VerifyTest, CounterIsPutBackAsFarAsTheRowsTell) {
  struct Case {
    const char* what;
    std::function<void(OpenStore&)> call;
    int64_t stored;  // unread_count, as the operations leave it
    int64_t more;    // what is made of one that is 5 more; -1 when it may be so and stays
    int64_t less;    // what is made of one below 0
  };
  const auto save_some = [this](OpenStore& s, int64_t time, int count, bool history = false) {
    for (int i = 0; i < count; ++i) EXPECT_GT(save(s, "room", time + i, false, history), 0);
  };
  const std::vector<Case> cases = {
      {"live", [&](OpenStore& s) { save_some(s, kTime, 4); }, 4, 4, 4},
      {"older history is not counted",
       [&](OpenStore& s) {
         save_some(s, kTime + 100, 3);
         save_some(s, kTime, 9, true);
       },
       3, -1, 3},
      {"history alone, newest first",
       [&](OpenStore& s) {
         for (int i = 3; i > 0; --i) save_some(s, kTime + i, 1, true);
       },
       1, 3, 1},
      {"late ones after a clearing count",
       [&](OpenStore& s) {
         save_some(s, kTime + 100, 3);
         s->clear_unread("room", CV_GROUP);
         save_some(s, kTime, 4);
       },
       4, 4, 0},
      {"late ones before a clearing do not",
       [&](OpenStore& s) {
         save_some(s, kTime + 100, 1);
         s->clear_unread("room", CV_GROUP);
         save_some(s, kTime, 3);
         save_some(s, kTime + 200, 1);
         s->clear_unread("room", CV_GROUP);
       },
       0, 0, 0},
      {"an unread one that was cleared by its time",
       [&](OpenStore& s) {
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

// What clients do as they are told to: no row tells it from a counter that was lost.
TEST_F(VerifyTest, MessagesThatWereNotCountedAreANoteAndNamedInARepair) {
  const auto save_uncounted = [](OpenStore& s, int64_t time, bool history) {
    EXPECT_GT(s->save_message("room", CV_GROUP, "CV:TxtMsg", "u02", "hi", true, 0, 0, false, time,
                              0, "", history, false, /*is_count=*/false),
              0);
  };
  struct Case {
    const char* what;
    std::function<void(OpenStore&)> call;
    int64_t stored;
    int64_t recount;
  };
  const std::vector<Case> cases = {
      {"a notice",
       [&](OpenStore& s) {
         save(s, "room", kTime);
         save_uncounted(s, kTime + 1, false);
       },
       1, 2},
      {"a page of history, oldest first",
       [&](OpenStore& s) {
         for (int i = 0; i < 5; ++i) save_uncounted(s, kTime + i, true);
       },
       0, 5},
      {"history after a newer message that is deleted",
       [&](OpenStore& s) {
         save(s, "room", kTime);
         const int64_t newest = save(s, "room", kTime + 9);
         save(s, "room", kTime + 5, false, true);
         s->delete_message({newest});
       },
       1, 2},
      {"history after a draft",
       [&](OpenStore& s) {
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

TEST_F(VerifyTest, CounterChangedByHandIsPutBack) {
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

TEST_F(VerifyTest, ChatRoomCountsWhatCameSinceItsClearing) {
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
    OpenStore open(store(), "me");
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

TEST_F(VerifyTest, OlderLatestMessageLeavesARightTime) {
  import_sample();
  plant("update t_session set latest_id=1 where session_id='room'");
  EXPECT_EQ(codes(verify(1)), Rows{"latest-older"});
  EXPECT_EQ(changes(repair("times")), Rows{});
  plant("update t_session set session_time=session_time-500 where session_id='room'");
  EXPECT_EQ(finding(verify(1), "session-time")["rows"][0]["derived"], kTime + 2000);
  const Rows expected = {"latest room latest_id 1 -> 3",
                         "latest room session_time 1700000001500 -> 1700000002000"};
  EXPECT_EQ(changes(repair("times,latest")), expected);
}

TEST_F(VerifyTest, DraftKeepsItsTime) {
  import_sample();
  plant(
      "update t_session set draft='x',session_time=1700000009000,latest_id=0 "
      "where session_id='room'");
  EXPECT_EQ(changes(repair(kAll)), Rows{"latest room latest_id 0 -> 3"});
  EXPECT_EQ(codes(verify(0)), Rows{});
}

TEST_F(VerifyTest, ServerUidTwiceNamesEachConversation) {
  import_sample();
  plant("update t_message set server_uid='s1' where id in(3,5)");
  const Json rows = finding(verify(1), "server-uid-twice")["rows"];
  ASSERT_EQ(rows.size(), 2U);
  EXPECT_EQ(rows[0]["session_id"], "room");
  EXPECT_EQ(rows[0]["messages"], Json({1, 3}));
  EXPECT_EQ(rows[1]["session_id"], "u01");
  EXPECT_EQ(rows[1]["messages"], Json({5}));
}

TEST_F(VerifyTest, WhatIsLeftIsSaidWithTheReason) {
  import_sample();
  plant(
      "update t_session set unread_count='x',mention_count=4 where session_id='room';"
      "update t_session set session_time=null where session_id='u01'");
  const std::string reason =
      "a value that it depends on has the wrong type, or the conversation has several rows; "
      "see 'corvan verify'";
  const Outcome tried = run({"verify", store(), "--repair", "counters,times", "--dry-run"});
  EXPECT_EQ(tried.status, 1);
  EXPECT_EQ(tried.out,
            "REPAIR    FINDING          CONVERSATION  WHAT           CHANGE\n"
            "counters  counter-mention  room (group)  mention_count  4 -> 1\n"
            "would be changed: 1\n"
            "left: counters room (group) unread_count: " +
                reason + "\nleft: times u01 (private) session_time: " + reason + "\n");

  const Outcome done = run({"verify", store(), "--repair", "counters", "--json"});
  EXPECT_EQ(done.status, 1);
  EXPECT_EQ(Json::parse(done.out)["left"], Json::array({{{"repair", "counters"},
                                                         {"session_id", "room"},
                                                         {"session_type", 2},
                                                         {"name", "unread_count"},
                                                         {"reason", reason}}}));
  EXPECT_EQ(rows("select mention_count from t_session where session_id='room'"), Rows{"1"});
  const Outcome none = run({"verify", store(), "--repair", "times"});
  EXPECT_EQ(none.status, 1);
  EXPECT_EQ(none.out.rfind("nothing could be repaired\nleft: times u01 ", 0), 0U) << none.out;
  EXPECT_EQ(output({"verify", store(), "--repair", "latest"}), "nothing to repair\n");
}

TEST_F(VerifyTest, BackupsOfOneSecondLieBesideTheStore) {
  import_sample();
  // Quick enough that some of them fall into one second.
  for (int i = 0; i < 4; ++i) {
    plant("update t_session set unread_count=8 where session_id='room'");
    EXPECT_EQ(changes(repair("counters")).size(), 1U);
  }
  EXPECT_EQ(backups().size(), 4U);

  plant("update t_session set unread_count=8 where session_id='room'");
  const Outcome outcome = run({"verify", store() + "/.", "--repair", "counters"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_EQ(backups().size(), 5U);
  for (const auto& [name, content] : listing(store())) EXPECT_EQ(name.rfind("corvan", 0), 0U);
}

TEST_F(VerifyTest, RepairChangesWhatIsNamedAndTellsIt) {
  import_sample();
  plant(
      "update t_session set unread_count=8,mention_count=0 where session_id='room';"
      "update t_session set latest_id=77,session_time=5 where session_id='u01';"
      "update t_session set session_time=7 where session_id='hall';"
      "update sqlite_sequence set seq=1;drop index t_session_list");
  const Rows all = {
      "indexes - t_session_list null -> ",          "counters room unread_count 8 -> 3",
      "counters room mention_count 0 -> 1",         "latest u01 latest_id 77 -> 5",
      "latest u01 session_time 5 -> 1700000004000", "times hall session_time 7 -> 1700000005000",
      "sequence - sqlite_sequence 1 -> 6"};
  const std::string broken = read_file(file());
  const Rows sessions = rows("select * from t_session");
  for (const char* word : {"counters", "latest", "times", "indexes", "sequence"}) {
    SCOPED_TRACE(word);
    write_file(file(), broken);
    const Rows content = rows(kContent);
    Rows expected;
    std::copy_if(all.begin(), all.end(), std::back_inserter(expected),
                 [&](const std::string& one) { return one.rfind(word, 0) == 0; });

    const Listing untouched = listing(store());
    const Json tried = repair(word, {"--dry-run"});
    EXPECT_EQ(listing(store()), untouched);
    EXPECT_EQ(tried["dry_run"], true);
    EXPECT_EQ(tried["backup"], nullptr);

    const std::string backup = folder.file(word);
    const Json result = repair(word, {"--backup", backup});
    EXPECT_EQ(result["dry_run"], false);
    EXPECT_EQ(result["backup"], backup);
    EXPECT_EQ(result["changes"], tried["changes"]);
    const Rows changed = changes(result);
    ASSERT_EQ(changed.size(), expected.size());
    for (std::size_t i = 0; i < changed.size(); ++i) {
      EXPECT_EQ(changed[i].substr(0, expected[i].size()), expected[i]);
    }
    EXPECT_EQ(corvan_test::rows(backup + "/corvan", kContent), content);
    EXPECT_EQ(rows("select * from t_message"),
              corvan_test::rows(backup + "/corvan", "select * from t_message"));

    EXPECT_EQ(changes(repair(word)), Rows{});
    EXPECT_EQ(backups(), Rows{}) << "a backup although nothing was repaired";
  }
  write_file(file(), broken);
  Rows changed = changes(repair(kAll, {"--backup", folder.file("all")}));
  EXPECT_EQ(changed.size(), all.size());
  EXPECT_EQ(codes(verify(0)), Rows{});
}

TEST_F(VerifyTest, RepairInText) {
  import_sample();
  plant("update t_session set unread_count=8 where session_id='room'");
  const std::string table =
      "REPAIR    FINDING         CONVERSATION  WHAT          CHANGE\n"
      "counters  counter-unread  room (group)  unread_count  8 -> 3\n";
  EXPECT_EQ(output({"verify", store() + "/", "--repair", "counters", "--dry-run"}),
            table + "would be changed: 1\n");
  const std::string done = output({"verify", store() + "/", "--repair", "counters"});
  ASSERT_EQ(backups().size(), 1U);
  EXPECT_EQ(backups()[0].rfind("store.before-repair-2", 0), 0U);
  EXPECT_EQ(done,
            table + "changed: 1; the original was copied to " + folder.file(backups()[0]) + "\n");
  EXPECT_EQ(output({"verify", store(), "--repair", "counters"}), "nothing to repair\n");
}

TEST_F(VerifyTest, ClientMayHaveTheStoreOpen) {
  import_sample();
  const WriteAhead client(file(), "update t_session set unread_count=8 where session_id='room'");
  EXPECT_EQ(codes(verify(1)), Rows{"counter-unread"});
  const Json result = repair("counters", {"--backup", folder.file("was")});
  EXPECT_EQ(changes(result), Rows{"counters room unread_count 8 -> 3"});
  EXPECT_EQ(corvan_test::rows(folder.file("was") + "/corvan",
                              "select unread_count from t_session where session_id='room'"),
            Rows{"8"});
  EXPECT_EQ(codes(verify(0)), Rows{});
}

TEST_F(VerifyTest, RepairThatCannotBeDoneChangesNothing) {
  import_sample();
  plant("update t_session set unread_count=8 where session_id='room'");
  {
    // Nothing here may open and close the store's files: that would take the lock away.
    const WriteAhead writer(file(), "begin immediate");
    const Outcome outcome = run({"verify", store(), "--repair", kAll});
    EXPECT_EQ(outcome.status, 2);
    EXPECT_EQ(outcome.err, "corvan: " + file() +
                               ": in use by another process (database is locked); nothing was "
                               "changed; try again while the client rests\n");
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(codes(verify(1)), Rows{"counter-unread"});
  }
  {
    const WriteAhead writer(file(), "begin immediate");
    const int out = open(temporary("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const pid_t pid = start({"verify", store(), "--repair", kAll}, out);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(pid, SIGINT);
    EXPECT_EQ(wait(pid), -SIGINT);
  }
  EXPECT_EQ(backups(), Rows{});
  EXPECT_EQ(codes(verify(1)), Rows{"counter-unread"});

  const std::string taken = write("taken", "");
  expect_refused({"--backup", taken}, taken + ": is there already; name a place where nothing is");
  expect_refused({"--backup", folder.file("no/where")},
                 folder.file("no") + ": no such folder; make it first");

  // The backup does not fit; what SQLite puts beside the store, 32 KiB, does.
  largest_file = rlim_t{40} << 10;
  const Outcome outcome = run({"verify", store(), "--repair", "counters"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find("; nothing was changed; make room there, or name another folder with "
                             "--backup\n"),
            std::string::npos)
      << outcome.err;
  EXPECT_EQ(outcome.err.find("unfinished"), std::string::npos) << outcome.err;
  largest_file = 0;
  EXPECT_EQ(backups(), Rows{});
  EXPECT_EQ(codes(verify(1)), Rows{"counter-unread"});
}

TEST_F(VerifyTest, TriggersOfOthersDoNotFire) {
  import_sample();
  plant(
      "update t_session set unread_count=8 where session_id='room';"
      "create trigger t after update on t_session begin delete from t_message; end");
  EXPECT_EQ(changes(repair("counters")), Rows{"counters room unread_count 8 -> 3"});
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"6"});
}

// More than SQLite's cache holds: the file is then locked to readers before the commit.
TEST_F(VerifyTest, LargeIndexIsMadeWithoutALogToo) {
  import_sample();
  plant(
      "pragma journal_mode=delete;drop index t_message_session;"
      "with n(i) as(select 1 union all select i+1 from n where i<20000) "
      "insert into t_message(session_id,session_type,read_status,sent_time) "
      "select printf('%0200d',1),2,1,1600000000000+i from n");
  const Json result = repair("indexes");
  EXPECT_EQ(result["changes"].size(), 1U);
  const std::string copied = result["backup"].get<std::string>() + "/corvan";
  EXPECT_EQ(corvan_test::rows(copied, "select count(*) from t_message"), Rows{"20006"});
  EXPECT_EQ(corvan_test::rows(copied, "pragma integrity_check"), Rows{"ok"});
  EXPECT_EQ(codes(verify(1)), (Rows{"journal-mode", "session-missing"}));
}

TEST_F(VerifyTest, CommitThatFailsOrIsInterruptedLeavesTheStoreAndTheCopy) {
  import_sample();
  plant("pragma journal_mode=delete;update t_session set unread_count=8 where session_id='room'");
  const char* const counter = "select unread_count from t_session where session_id='room'";
  // A reader, past whom nothing is committed without a log.
  sqlite3* reader = nullptr;
  ASSERT_EQ(sqlite3_open(file().c_str(), &reader), SQLITE_OK);
  ASSERT_EQ(sqlite3_exec(reader, "begin;select * from t_session", nullptr, nullptr, nullptr),
            SQLITE_OK);

  const std::string first = folder.file("first");
  const Outcome outcome = run({"verify", store(), "--repair", "counters", "--backup", first});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find("; nothing was changed; try again while the client rests; the "
                             "original was copied to " +
                             first + "\n"),
            std::string::npos)
      << outcome.err;
  EXPECT_EQ(corvan_test::rows(first + "/corvan", counter), Rows{"8"});

  const std::string second = folder.file("second");
  const int out = open(temporary("out").c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const pid_t pid = start({"verify", store(), "--repair", "counters", "--backup", second}, out);
  for (int i = 0; i < 5000 && !std::filesystem::exists(second); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  kill(pid, SIGTERM);
  EXPECT_EQ(wait(pid), -SIGTERM);
  EXPECT_EQ(corvan_test::rows(second + "/corvan", counter), Rows{"8"});

  sqlite3_close(reader);
  EXPECT_EQ(rows(counter), Rows{"8"});
  EXPECT_EQ(changes(repair("counters")), Rows{"counters room unread_count 8 -> 3"});
}

TEST_F(VerifyTest, ReadOnlyStoreIsAClearError) {
  import_sample();
  plant("update t_session set unread_count=8 where session_id='room'");
  make_read_only();
  expect_refused({}, file() +
                         ": attempt to write a readonly database; nothing was changed; make the "
                         "file and its folder writable");
  EXPECT_EQ(changes(repair("counters", {"--dry-run"})), Rows{"counters room unread_count 8 -> 3"});
}

TEST_F(VerifyTest, BadUsage) {
  import_sample();
  for (const Arguments& more : std::vector<Arguments>{{"--repair", "counts"},
                                                      {"--dry-run"},
                                                      {"--backup", folder.file("b")},
                                                      {"--repair", "times", "--backup", ""}}) {
    Arguments arguments = {"verify", store()};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << more.back();
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
  }
}

TEST_F(VerifyTest, DamagedFileIsSaidAndNotRepaired) {
  import_sample();
  const std::string clean = read_file(file());
  const int page =
      std::stoi(rows("select rootpage from sqlite_master where name='t_message_server_uid'").at(0));
  std::string broken = clean;
  broken.replace(static_cast<std::size_t>(page - 1) * 4096, 4096, 4096, '\x5a');
  write_file(file(), broken);
  const Json report = verify(1);
  EXPECT_EQ(report["damaged"], true);
  EXPECT_EQ(finding(report, "file-damaged")["class"], "impossible");
  EXPECT_EQ(report["messages"], 6);
  const Outcome outcome = run({"verify", store()});
  EXPECT_NE(outcome.out.find("; the file is damaged: see 'corvan salvage'\n"), std::string::npos);
  expect_refused({}, file() +
                         ": damaged; nothing was changed; 'corvan salvage' recovers what can "
                         "be read");
  EXPECT_EQ(read_file(file()), broken);

  // Rows that cannot be read: what follows from them is not told.
  const int table = std::stoi(corvan_test::rows(write("sound", clean),
                                                "select rootpage from sqlite_master "
                                                "where name='t_message'")
                                  .at(0));
  broken = clean;
  broken.replace(static_cast<std::size_t>(table - 1) * 4096, 4096, 4096, '\x5a');
  write_file(file(), broken);
  const Json rest = verify(1);
  EXPECT_EQ(rest["complete"], false);
  EXPECT_EQ(rest["sessions"], 3);
  EXPECT_EQ(codes(rest), (Rows{"file-damaged", "rows-unread"}));

  write_file(file(), "no database at all, but long enough to be taken for one by its size" +
                         std::string(600, 'x'));
  const Json not_one = verify(1);
  EXPECT_EQ(not_one["complete"], false);
  EXPECT_EQ(codes(not_one), Rows{"file-damaged"});
}

TEST_F(VerifyTest, WhatIsNoStoreIsRefused) {
  const auto expect_error = [this](const std::string& error) {
    for (const Arguments& more : std::vector<Arguments>{{}, {"--repair", "times"}}) {
      Arguments arguments = {"verify", store()};
      arguments.insert(arguments.end(), more.begin(), more.end());
      const Outcome outcome = run(arguments);
      EXPECT_EQ(outcome.status, 2);
      EXPECT_EQ(outcome.err, "corvan: " + file() + ": " + error + "\n");
      EXPECT_EQ(outcome.out, "");
    }
  };
  expect_error("no store here; name the folder that holds the file \"corvan\"");
  std::filesystem::create_directory(store());
  write_file(file(), "");
  expect_error("an empty file, not a message store");
  plant("create table other(a)");
  expect_error("a database, but not a message store");
}

}  // namespace
}  // namespace corvan_test
