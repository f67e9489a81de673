#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/tools/leased_file.h"
#include "tests/tools/program.h"
#include "tools/store/library_store.h"
#include "tools/ui/table.h"

namespace corvan_test {
namespace {

// 2023-11-14 22:13:20 UTC
constexpr int64_t kTime = 1700000000000;

class LookTest : public ToolTest {
 protected:
  // Three conversations: a group with an unread mention, a private one with an own message being
  // sent, a chat room.
  void import_sample() {
    import(line({{"content", "first"},
                 { "server_uid",
                   "s1" }}) +
           line({{"content", "你好"},
                 {"sender", "李明"},
                 {"is_mention", true},
                 {"sent_time", kTime + 1000},
                 { "server_uid",
                   "s2" }}) +
           line({{"content", "pic"},
                 {"object_name", "it's"},
                 {"sent_time", kTime + 2000},
                 { "server_uid",
                   "s3" }}) +
           line({{"session_id", "u01"},
                 {"session_type", 1},
                 {"sent_time", kTime + 3000},
                 { "server_uid",
                   "s4" }}) +
           line({{"session_id", "u01"},
                 {"session_type", 1},
                 {"sender", "me"},
                 {"is_receive", false},
                 {"content", "on its way"},
                 {"sent_status", 1},
                 {"client_uid", 42},
                 { "sent_time",
                   kTime + 4000 }}) +
           line({{"session_id", "hall"}, {"session_type", 3}, {"content", "welcome"}, {
                   "sent_time",
                   kTime - 1000
                 }}));
  }

  // Every looking command, with arguments that fit the sample.
  std::vector<Arguments> commands(const std::string& folder_of_store) const {
    std::vector<Arguments> all;
    for (const Arguments& tail : std::vector<Arguments>{{"list"},
                                                        {"history", "room", "--type", "group"},
                                                        {"unread"},
                                                        {"show", "1"},
                                                        {"check"}}) {
      Arguments arguments = tail;
      arguments.insert(arguments.begin() + 1, folder_of_store);
      all.push_back(arguments);
      arguments.emplace_back("--json");
      all.push_back(arguments);
    }
    return all;
  }

  // Runs each command on the folder and expects this end, one line of error and no change.
  void expect_refused(const std::string& error, const std::vector<Arguments>& of) {
    for (const Arguments& arguments : of) {
      const Outcome outcome = run(arguments);
      EXPECT_EQ(outcome.status, 2) << arguments[0];
      EXPECT_EQ(outcome.err, "corvan: " + file() + ": " + error + "\n") << arguments[0];
      EXPECT_EQ(outcome.out, "") << arguments[0];
    }
  }

  Outcome history(const Arguments& more) {
    Arguments arguments = {"history", store(), "room", "--type", "group", "--json"};
    arguments.insert(arguments.end(), more.begin(), more.end());
    return run(arguments);
  }
  std::vector<int> ids(const Arguments& more) {
    const Outcome outcome = history(more);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    std::vector<int> result;
    for (const Json& message : Json::parse(outcome.out)) result.push_back(message["msg_id"]);
    return result;
  }
};

TEST_F(LookTest, ListShowsATable) {
  import_sample();
  plant(
      "update t_session set is_top=1 where session_id='hall';"
      "update t_session set silence=1,draft='later' where session_id='u01'");
  EXPECT_EQ(output({"list", store()}),
            "TYPE      SESSION  FLAGS        UNREAD  MENTIONS  TIME (UTC)           LATEST  SENDER"
            "  CONTENT\n"
            "chatroom  hall     pinned            1         0  2023-11-14 22:13:19       6  u01   "
            "  welcome\n"
            "private   u01      muted draft       1         0  2023-11-14 22:13:24       5  me    "
            "  on its way\n"
            "group     room                       3         1  2023-11-14 22:13:22       3  u01   "
            "  pic\n");
}

TEST_F(LookTest, ListKeepsColumnsAlignedUnderWideCharacters) {
  import_sample();
  plant("update t_message set sender='李明😀' where id=3");
  std::istringstream text(output({"list", store()}));
  const std::vector<std::pair<std::string, std::string>> last = {
      {"SENDER", "CONTENT"}, {"me", "on its way"}, {"李明😀", "pic"}, {"u01", "welcome"}};
  int column = -1;
  for (const auto& [sender, content] : last) {
    std::string row;
    std::getline(text, row);
    EXPECT_NE(row.find(sender), std::string::npos);
    const int start = corvan_tool::display_width(row.substr(0, row.rfind(content)));
    if (column < 0) column = start;
    EXPECT_EQ(start, column) << row;
  }
}

TEST_F(LookTest, ListHasTheDocumentedKeys) {
  import_sample();
  plant("update t_session set title='U 01',draft='d',is_top=1,silence=2 where session_id='u01'");
  const Json list = json({"list", store(), "--json"});
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[0], Json::parse(R"({"session_id":"u01","session_type":1,"title":"U 01",
    "draft":"d","is_top":1,"silence":2,"unread_count":1,"mention_count":0,
    "session_time":1700000004000,"message":{"msg_id":5,"session_id":"u01","session_type":1,
    "object_name":"CV:TxtMsg","sender":"me","content":"on its way","is_receive":false,
    "read_status":1,"sent_status":1,"server_uid":""}})"));
  EXPECT_EQ(list[1]["message"]["msg_id"], 3);
  EXPECT_EQ(list[2]["session_id"], "hall");
}

TEST_F(LookTest, AConversationWithoutMessageIsListed) {
  import_sample();
  plant(
      "insert into t_session(session_id,session_type,session_time,latest_id) "
      "values('empty',5,0,-1)");
  const Json list = json({"list", store(), "--type", "system", "--json"});
  ASSERT_EQ(list.size(), 1U);
  EXPECT_TRUE(list[0]["message"].is_null());
  EXPECT_NE(output({"list", store(), "--type", "5"}).find("system  empty"), std::string::npos);
}

TEST_F(LookTest, ALatestMessageThatIsGoneIsListedAsNone) {
  import_sample();
  plant(
      "update t_session set latest_id=99 where session_id='room';"
      "update t_session set latest_id=1 where session_id='hall'");  // another conversation's
  const Json list = json({"list", store(), "--json"});
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[0]["message"]["msg_id"], 5);
  EXPECT_TRUE(list[1]["message"].is_null()) << list[1];
  EXPECT_TRUE(list[2]["message"].is_null()) << list[2];
}

TEST_F(LookTest, ListTakesKindsAndALimit) {
  import_sample();
  const auto sessions = [this](Arguments more) {
    more.insert(more.begin(), {"list", store(), "--json"});
    Rows names;
    for (const Json& entry : json(more)) names.push_back(entry["session_id"]);
    return names;
  };
  EXPECT_EQ(sessions({}), (Rows{"u01", "room", "hall"}));
  EXPECT_EQ(sessions({"--type", "group"}), Rows{"room"});
  EXPECT_EQ(sessions({"--type", "GROUP"}), Rows{"room"});
  EXPECT_EQ(sessions({"--type", "2", "--type", "chatroom"}), (Rows{"room", "hall"}));
  EXPECT_EQ(sessions({"--type", "reception"}), Rows{});
  EXPECT_EQ(sessions({"--limit", "1"}), Rows{"u01"});
  EXPECT_EQ(sessions({"--limit", "2", "--type", "group", "--type", "chatroom"}),
            (Rows{"room", "hall"}));
  EXPECT_EQ(sessions({"--limit", "2147483647"}).size(), 3U);
}

TEST_F(LookTest, OptionsMayStandBeforeTheFolder) {
  import_sample();
  EXPECT_EQ(json({"list", "--json", "--type", "group", store()}).size(), 1U);
  EXPECT_EQ(json({"history", "--kind", "it's", store(), "room", "--type", "2", "--json"}).size(),
            1U);
}

TEST_F(LookTest, HistoryShowsATable) {
  import_sample();
  plant("update t_message set read_status=1 where id=1");
  EXPECT_EQ(output({"history", store(), "room", "--type", "group"}),
            "ID  TIME (UTC)           SENDER  STATE   KIND       CONTENT\n"
            " 1  2023-11-14 22:13:20  u01     read    CV:TxtMsg  first\n"
            " 2  2023-11-14 22:13:21  李明    unread  CV:TxtMsg  你好\n"
            " 3  2023-11-14 22:13:22  u01     unread  it's       pic\n");
}

TEST_F(LookTest, HistoryHasTheDocumentedKeys) {
  import_sample();
  const Json list = json({"history", store(), "u01", "--type", "private", "--json"});
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0], Json::parse(R"({"msg_id":4,"session_id":"u01","session_type":1,
    "object_name":"CV:TxtMsg","sender":"u01","content":"hi","is_receive":true,"read_status":0,
    "sent_status":0,"server_uid":"s4","sent_time":1700000003000})"));
  EXPECT_EQ(list[1]["sent_status"], 1);
}

TEST_F(LookTest, AMessageBeingSentIsShownAsSuch) {
  import_sample();
  EXPECT_NE(output({"history", store(), "u01", "--type", "private"}).find("  sending  "),
            std::string::npos);
  EXPECT_NE(output({"show", store(), "5"}).find("sent        sending\n"), std::string::npos);
  EXPECT_EQ(json({"show", store(), "5", "--json"})["sent_status"], 1);
  EXPECT_EQ(rows("select sent_status from t_message where id=5"), Rows{"1"});
}

TEST_F(LookTest, OwnMessagesShowHowTheyWereSent) {
  import_sample();
  plant(
      "update t_message set direction=0,sent_status=id-1,sender='me' where id<4;"
      "insert into t_message(session_id,session_type,sent_time,sent_status) "
      "values('room',2,1700000009000,3),('room',2,1700000010000,9)");
  std::istringstream text(output({"history", store(), "room", "--type", "group"}));
  std::string row;
  std::getline(text, row);
  const std::size_t column = row.find("STATE");
  Rows states;
  while (std::getline(text, row)) {
    states.push_back(row.substr(column, row.find_first_of(" \n", column) - column));
  }
  EXPECT_EQ(states, (Rows{"sent", "sending", "failed", "seen", "9"}));
}

TEST_F(LookTest, HistoryPages) {
  std::string text;
  for (int i = 1; i <= 30; ++i) text += line({{"sent_time", kTime + i}});
  import(text);
  std::vector<int> newest;
  for (int i = 11; i <= 30; ++i) newest.push_back(i);
  EXPECT_EQ(ids({}), newest) << "twenty by default";
  EXPECT_EQ(ids({"--limit", "2"}), (std::vector<int>{29, 30}));
  EXPECT_EQ(ids({"--before", "29", "--limit", "3"}), (std::vector<int>{26, 27, 28}));
  EXPECT_EQ(ids({"--before", "3"}), (std::vector<int>{1, 2}));
  EXPECT_EQ(ids({"--after", "5", "--limit", "3"}), (std::vector<int>{6, 7, 8}));
  EXPECT_EQ(ids({"--after", "28"}), (std::vector<int>{29, 30}));
  EXPECT_EQ(ids({"--limit", "100"}).size(), 30U);
}

TEST_F(LookTest, HistoryPagesMeetMessagesOfOneTime) {
  std::string text;
  for (int i = 0; i < 6; ++i) text += line({{"sent_time", kTime + i / 4}});
  import(text);
  EXPECT_EQ(ids({"--limit", "3"}), (std::vector<int>{4, 5, 6}));
  EXPECT_EQ(ids({"--limit", "3", "--before", "4"}), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(ids({"--after", "2"}), (std::vector<int>{3, 4, 5, 6}));
}

TEST_F(LookTest, HistoryShowsMessagesWhoseTimeIsNoNumber) {
  import_sample();
  plant("update t_message set sent_time=null where id=2;update t_message set id=-4 where id=3");
  EXPECT_EQ(ids({}), (std::vector<int>{2, 1, -4}));
  EXPECT_EQ(ids({"--before", "-4"}), (std::vector<int>{2, 1}));
  EXPECT_EQ(ids({"--after", "2", "--limit", "1"}), std::vector<int>{1});
}

TEST_F(LookTest, HistoryTakesKinds) {
  import_sample();
  EXPECT_EQ(ids({"--kind", "it's"}), std::vector<int>{3}) << "a quote in the name";
  EXPECT_EQ(ids({"--kind", "CV:TxtMsg"}), (std::vector<int>{1, 2}));
  EXPECT_EQ(ids({"--kind", "CV:TxtMsg", "--kind", "it's"}), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(ids({"--kind", "CV:TxtMsg", "--limit", "1"}), std::vector<int>{2});
  const Outcome attack = history({"--kind", "x') or ('1'='1"});
  EXPECT_EQ(attack.status, 1);
  EXPECT_EQ(Json::parse(attack.out), Json::array());
}

TEST_F(LookTest, ConversationsAreToldApartByKindAndId) {
  import_sample();
  import(line({{"session_id", "u01"},
               {"content", "in the group"},
               { "sent_time",
                 kTime }}) +
         line({{"session_id", "it's \"odd\" 会"},
               { "content",
                 "odd" }}));
  const Json list = json({"history", store(), "u01", "--type", "2", "--json"});
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0]["content"], "in the group");
  EXPECT_EQ(json({"history", store(), "it's \"odd\" 会", "--type", "2", "--json"}).size(), 1U);
}

TEST_F(LookTest, AConversationWithoutMessagesIsANegativeAnswer) {
  import_sample();
  for (const Arguments& arguments :
       std::vector<Arguments>{{"history", store(), "nobody", "--type", "group"},
                              {"history", store(), "room", "--type", "private"},
                              {"history", store(), "room", "--type", "group", "--after", "3"},
                              {"history", store(), "room", "--type", "group", "--before", "1"}}) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "corvan: no such messages\n");
  }
}

TEST_F(LookTest, AnAnchorMustBeInTheConversation) {
  import_sample();
  for (const char* option : {"--before", "--after"}) {
    for (const char* id : {"4", "999", "9223372036854775807"}) {
      const Outcome outcome = history({option, id});
      EXPECT_EQ(outcome.status, 2);
      EXPECT_EQ(outcome.err,
                "corvan: " + file() + ": message " + id + " is not in this conversation\n");
      EXPECT_EQ(outcome.out, "");
    }
  }
}

TEST_F(LookTest, UnreadShowsATable) {
  import_sample();
  plant("update t_session set silence=1 where session_id='room'");
  EXPECT_EQ(output({"unread", store()}),
            "TYPE       UNREAD  NOT MUTED  MENTIONS\n"
            "private         1          1         0\n"
            "group           3          0         1\n"
            "chatroom        1          1         0\n"
            "reception       0          0         0\n"
            "system          0          0         0\n"
            "all             5          2         1\n");
  EXPECT_EQ(output({"unread", store(), "--type", "group", "--type", "1"}),
            "TYPE     UNREAD  NOT MUTED  MENTIONS\n"
            "group         3          0         1\n"
            "private       1          1         0\n"
            "all           4          1         1\n");
}

TEST_F(LookTest, UnreadHasTheDocumentedKeys) {
  import_sample();
  plant("update t_session set silence=1 where session_id='room'");
  EXPECT_EQ(json({"unread", store(), "--json", "--type", "group"}),
            Json::parse(R"({"group":{"unread_count":3,"unmuted_unread_count":0,"mention_count":1},
                            "all":{"unread_count":3,"unmuted_unread_count":0,"mention_count":1}})"));
  EXPECT_EQ(keys(json({"unread", store(), "--json"})),
            (Rows{"private", "group", "chatroom", "reception", "system", "all"}));
}

TEST_F(LookTest, ShowTellsAllOfAMessage) {
  import_sample();
  EXPECT_EQ(output({"show", store(), "2"}),
            "id          2\n"
            "session     room (group)\n"
            "sender      李明 (received)\n"
            "time (UTC)  2023-11-14 22:13:21 (1700000001000)\n"
            "read        unread\n"
            "sent        sent\n"
            "mention     yes\n"
            "server uid  s2\n"
            "client uid  0\n"
            "kind        CV:TxtMsg\n"
            "content     你好\n");
  EXPECT_EQ(json({"show", store(), "5", "--json"}), Json::parse(R"({"msg_id":5,
    "session_id":"u01","session_type":1,"object_name":"CV:TxtMsg","sender":"me",
    "content":"on its way","is_receive":false,"read_status":1,"sent_status":1,"server_uid":"",
    "sent_time":1700000004000,"is_mention":false,"client_uid":42})"));
}

TEST_F(LookTest, WhatStandsBehindAZeroByteIsShown) {
  import_sample();
  plant("update t_message set content=cast(x'610062' as text),id=-4 where id=1");
  EXPECT_EQ(json({"show", store(), "-4", "--json"})["content"], std::string("a\0b", 3));
  EXPECT_NE(output({"show", store(), "-4"}).find("content     a\\x00b\n"), std::string::npos);
  EXPECT_EQ(Json::parse(history({}).out)[0]["content"], std::string("a\0b", 3));
}

TEST_F(LookTest, AnUnknownMessageIsANegativeAnswer) {
  import_sample();
  const Outcome text = run({"show", store(), "99"});
  EXPECT_EQ(text.status, 1);
  EXPECT_EQ(text.out, "");
  EXPECT_EQ(text.err, "corvan: no message 99\n");
  const Outcome program = run({"show", store(), "9223372036854775807", "--json"});
  EXPECT_EQ(program.status, 1);
  EXPECT_EQ(program.out, "null\n");
}

TEST_F(LookTest, MessagesCannotDriveTheTerminal) {
  import(line({{"content", "\x1b[2J\nnext\u202e"}, {"sender", "a\tb"}, { "session_id", "r\x07" }}));
  for (const Arguments& arguments :
       std::vector<Arguments>{{"list", store()},
                              {"history", store(), "r\x07", "--type", "2"},
                              {"show", store(), "1"}}) {
    const std::string text = output(arguments);
    EXPECT_NE(text.find("\\x1b[2J\\nnext\\u202e"), std::string::npos) << text;
    EXPECT_EQ(std::count_if(text.begin(), text.end(),
                            [](char c) { return c != '\n' && c >= 0 && c < ' '; }),
              0);
  }
  EXPECT_EQ(json({"show", store(), "1", "--json"})["content"], "\x1b[2J\nnext\u202e");
}

TEST_F(LookTest, IllFormedRowsAreShown) {
  import_sample();
  plant(
      "update t_message set content=cast(x'61ff62' as text),sender=null,sent_time=-1,"
      "session_type=77,read_status=-5 where id=1;"
      "update t_message set sent_time=9223372036854775807 where id=2");
  EXPECT_EQ(json({"show", store(), "1", "--json"})["content"], "a\ufffdb");
  const std::string text = output({"show", store(), "1"});
  EXPECT_NE(text.find("content     a\ufffdb\n"), std::string::npos);
  EXPECT_NE(text.find("1969-12-31 23:59:59 (-1)"), std::string::npos);
  EXPECT_NE(text.find("room (77)"), std::string::npos);
  EXPECT_NE(text.find("read        -5"), std::string::npos);
  EXPECT_NE(output({"show", store(), "2"}).find("(9223372036854775807)"), std::string::npos);
}

TEST_F(LookTest, CheckTellsASoundStore) {
  import_sample();
  EXPECT_EQ(output({"check", store()}), "ok\n");
  EXPECT_EQ(json({"check", store(), "--json"}), Json::parse(R"({"ok":true,"result":"ok"})"));
}

TEST_F(LookTest, CheckTellsADamagedPage) {
  std::string text;
  for (int i = 0; i < 500; ++i) text += line({{"content", std::string(50, 'x')}});
  import(text);
  const std::string whole = read_file(file());
  for (const char* name : {"t_message", "t_message_session", "t_session"}) {
    const std::string root =
        rows("select rootpage from sqlite_master where name='" + std::string(name) + "'").at(0);
    std::string bytes = whole;
    bytes.replace((std::stoul(root) - 1) * 4096, 4096, 4096, '\xff');
    write_file(file(), bytes);
    const Listing before = listing(store());
    const Outcome outcome = run({"check", store()});
    EXPECT_EQ(outcome.status, 1) << name << outcome.err;
    EXPECT_EQ(outcome.err, "");
    EXPECT_NE(outcome.out, "ok\n");
    EXPECT_TRUE(std::regex_search(outcome.out, std::regex("\\b[Pp]age " + root + "\\b")))
        << outcome.out;
    const Outcome program = run({"check", store(), "--json"});
    EXPECT_EQ(program.status, 1);
    EXPECT_EQ(Json::parse(program.out)["ok"], false);
    EXPECT_EQ(listing(store()), before);
    write_file(file(), whole);
  }
}

TEST_F(LookTest, CheckTellsAFindingALine) {
  import_sample();
  plant(
      "create index by_sender on t_message(sender) where id>3;pragma writable_schema=on;"
      "update sqlite_master set sql='create index by_sender on t_message(sender)' "
      "where name='by_sender'");
  const Outcome text = run({"check", store()});
  EXPECT_EQ(text.status, 1);
  const Rows findings = rows("pragma integrity_check");
  ASSERT_GT(findings.size(), 1U);
  std::string lines;
  for (const std::string& finding : findings) lines += finding + "\n";
  EXPECT_EQ(text.out, lines);
  const Json program = Json::parse(run({"check", store(), "--json"}).out);
  EXPECT_EQ(program["result"].get<std::string>() + "\n", text.out);
}

TEST_F(LookTest, ADamagedPageThatIsNeededIsAnErrorThatNamesTheStore) {
  import_sample();
  const std::string whole = read_file(file());
  const std::vector<std::pair<std::string, Rows>> needed_by = {
      {"t_message", {"list", "history", "show"}}, {"t_session", {"list", "unread"}}};
  for (const auto& [table, names] : needed_by) {
    write_file(file(), whole);
    const std::string root =
        rows("select rootpage from sqlite_master where name='" + table + "'").at(0);
    std::string bytes = whole;
    bytes.replace((std::stoul(root) - 1) * 4096, 4096, 4096, '\xff');
    write_file(file(), bytes);
    const Listing before = listing(store());
    std::vector<Arguments> needing = commands(store());
    needing.erase(std::remove_if(needing.begin(), needing.end(),
                                 [&names = names](const Arguments& arguments) {
                                   return std::count(names.begin(), names.end(), arguments[0]) == 0;
                                 }),
                  needing.end());
    ASSERT_EQ(needing.size(), 2 * names.size());
    expect_refused("database disk image is malformed; see 'corvan check' and 'corvan salvage'",
                   needing);
    EXPECT_EQ(listing(store()), before);
  }
}

TEST_F(LookTest, AFileThatIsNoDatabaseIsNotDeleted) {
  std::filesystem::create_directory(store());
  write_file(file(), std::string(10000, 'x'));
  const Listing before = listing(store());
  std::vector<Arguments> all = commands(store());
  all.resize(8);  // all but check
  expect_refused(
      "damaged (file is not a database); keep a copy: opening it with the library deletes it; "
      "'corvan salvage' brings out what can be read",
      all);
  const Outcome check = run({"check", store()});
  EXPECT_EQ(check.status, 1);
  EXPECT_EQ(check.out, "file is not a database\n");
  const Outcome program = run({"check", store(), "--json"});
  EXPECT_EQ(program.status, 1);
  EXPECT_EQ(Json::parse(program.out),
            Json::parse(R"({"ok":false,"result":"file is not a database"})"));
  EXPECT_EQ(listing(store()), before);
}

TEST_F(LookTest, AFileThatWasCutShortIsToldAsDamaged) {
  std::string text;
  for (int i = 0; i < 300; ++i) text += line({{"content", std::string(50, 'x')}});
  import(text);
  const std::string whole = read_file(file());
  for (const std::size_t size :
       {std::size_t{100}, std::size_t{4096}, whole.size() / 2, whole.size() - 4096}) {
    write_file(file(), whole.substr(0, size));
    const Listing before = listing(store());
    const Outcome check = run({"check", store()});
    EXPECT_EQ(check.status, 1) << size << check.err;
    EXPECT_NE(check.out, "ok\n");
    for (const Arguments& arguments : commands(store())) {
      const Outcome outcome = run(arguments);
      EXPECT_GE(outcome.status, 0) << "ended by a signal";
      EXPECT_NE(outcome.status, 127);
    }
    EXPECT_EQ(listing(store()), before);
  }
}

TEST_F(LookTest, AForeignDatabaseIsRefused) {
  std::filesystem::create_directory(store());
  plant("create table t(x)");
  const Listing before = listing(store());
  expect_refused("a database, but not a message store", commands(store()));
  EXPECT_EQ(listing(store()), before);
}

TEST_F(LookTest, AnEmptyFileIsRefused) {
  std::filesystem::create_directory(store());
  write_file(file(), "");
  const Listing before = listing(store());
  expect_refused("an empty file, not a message store", commands(store()));
  EXPECT_EQ(listing(store()), before);
}

TEST_F(LookTest, ADatabaseWithoutTablesIsRefused) {
  std::filesystem::create_directory(store());
  plant("create table t(x);drop table t");
  ASSERT_GT(read_file(file()).size(), 0U);
  expect_refused("an empty file, not a message store", commands(store()));
}

TEST_F(LookTest, WhatIsNoFileIsRefused) {
  std::filesystem::create_directories(file());
  expect_refused("not a file", commands(store()));
}

TEST_F(LookTest, AMissingStoreIsAnErrorAndIsNotMade) {
  write("bystander", "x");
  const Listing before = listing(folder.path());
  expect_refused("no store here; name the folder that holds the file \"corvan\"",
                 commands(store()));
  EXPECT_EQ(listing(folder.path()), before);
  std::filesystem::create_directory(store());
  expect_refused("no store here; name the folder that holds the file \"corvan\"",
                 commands(store()));
  EXPECT_EQ(listing(store()), Listing{});
  // A file in the folder's place is none either.
  const Outcome outcome = run({"list", folder.file("bystander")});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + folder.file("bystander/corvan") +
                             ": no store here; name the folder that holds the file \"corvan\"\n");
}

TEST_F(LookTest, LookingChangesNothing) {
  import_sample();
  write_file(store() + "/bystander", "x");
  const Listing before = listing(store());
  for (const Arguments& arguments : commands(store())) {
    EXPECT_EQ(run(arguments).status, 0) << arguments[0];
    EXPECT_EQ(listing(store()), before) << arguments[0];
  }
}

TEST_F(LookTest, MessagesOfAnOpenWriterAreShown) {
  import_sample();
  const WriteAhead writer(
      file(),
      "insert into t_message(session_id,session_type,content,sender,direction,sent_time) "
      "values('room',2,'in the log','u01',1,1700000009000);"
      "update t_session set latest_id=7,unread_count=9 where session_id='room'");
  const Listing before = listing(store());
  ASSERT_EQ(before.size(), 3U) << "a file, its log and the log's index";
  for (const Arguments& arguments : commands(store())) {
    EXPECT_EQ(run(arguments).status, 0) << arguments[0];
    EXPECT_EQ(listing(store()), before) << arguments[0];
  }
  EXPECT_EQ(json({"show", store(), "7", "--json"})["content"], "in the log");
  EXPECT_NE(output({"list", store()}).find("in the log"), std::string::npos);
  EXPECT_EQ(ids({}), (std::vector<int>{1, 2, 3, 7}));
  EXPECT_EQ(json({"unread", store(), "--type", "2", "--json"})["group"]["unread_count"], 9);
  EXPECT_EQ(output({"check", store()}), "ok\n");
}

TEST_F(LookTest, AnUnfinishedTransactionIsNotShown) {
  import_sample();
  const WriteAhead writer(file(), "begin immediate;update t_message set content='unfinished'");
  EXPECT_EQ(json({"show", store(), "1", "--json"})["content"], "first");
  EXPECT_EQ(output({"check", store()}), "ok\n");
}

TEST_F(LookTest, MessagesOfAKilledWriterAreShown) {
  import_sample();
  const std::string killed = folder.file("killed");
  std::filesystem::create_directory(killed);
  {
    const WriteAhead writer(file(), "update t_message set content='in the log' where id=1");
    for (const char* suffix : {"", "-wal", "-shm"}) {
      std::filesystem::copy_file(file() + suffix, killed + "/corvan" + suffix);
    }
  }
  for (const char* gone : {"", "-shm"}) {
    if (*gone != '\0') std::filesystem::remove(killed + "/corvan" + gone);
    const Listing before = listing(killed);
    for (const Arguments& arguments : commands(killed)) {
      EXPECT_EQ(run(arguments).status, 0) << arguments[0];
      EXPECT_EQ(listing(killed), before) << arguments[0];
    }
    EXPECT_EQ(json({"show", killed, "1", "--json"})["content"], "in the log");
  }
}

TEST_F(LookTest, AnInterruptedRollbackIsTakenBackInTheCopyAlone) {
  import_sample();
  const std::string killed = folder.file("killed");
  std::filesystem::create_directory(killed);
  plant("pragma journal_mode=delete");
  {
    // A cache of one page makes the writer change the file before the transaction ends.
    sqlite3* db = nullptr;
    ASSERT_EQ(sqlite3_open(file().c_str(), &db), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(db,
                           "pragma cache_size=1;begin;"
                           "update t_message set content=hex(zeroblob(5000));"
                           "update t_session set title=hex(zeroblob(5000))",
                           nullptr, nullptr, nullptr),
              SQLITE_OK);
    for (const char* suffix : {"", "-journal"}) {
      std::filesystem::copy_file(file() + suffix, killed + "/corvan" + suffix);
    }
    sqlite3_close(db);
  }
  const Listing before = listing(killed);
  EXPECT_EQ(json({"show", killed, "1", "--json"})["content"], "first");
  EXPECT_EQ(output({"check", killed}), "ok\n");
  EXPECT_EQ(listing(killed), before);
}

TEST_F(LookTest, ALinkLeadsToTheLogOfItsFile) {
  import_sample();
  const WriteAhead writer(file(), "update t_message set content='in the log' where id=1");
  const std::string linked = folder.file("linked");
  std::filesystem::create_directory(linked);
  std::filesystem::create_symlink(file(), linked + "/corvan");
  EXPECT_EQ(json({"show", linked, "1", "--json"})["content"], "in the log");
}

TEST_F(LookTest, AStoreThatMayOnlyBeReadIsShown) {
  import_sample();
  make_read_only();
  const Listing before = listing(store());
  for (const Arguments& arguments : commands(store())) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
  }
  EXPECT_EQ(listing(store()), before);
}

TEST_F(LookTest, AFolderThatMayNotBeReadIsAClearError) {
  import_sample();
  ASSERT_EQ(chmod(file().c_str(), 0000), 0);
  unprivileged = true;
  const Outcome outcome = run({"list", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err, "corvan: " + file() + ": Permission denied\n");
}

TEST_F(LookTest, OutputThatCannotBeWrittenIsAnError) {
  import_sample();
  std::vector<Arguments> all = commands(store());
  all.push_back({"--help"});
  all.push_back({"--version"});
  for (const Arguments& arguments : all) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    EXPECT_EQ(wait(start(arguments, full)), 2) << arguments[0];
    EXPECT_EQ(read_err(), "corvan: standard output: cannot be written\n") << arguments[0];
  }
}

TEST_F(LookTest, WhatWasDoneIsToldWhenOutputCannotBeWritten) {
  import_sample();
  plant("drop index t_message_sent_time;update t_session set unread_count=99");
  const std::string log = write("more.jsonl", line({{"server_uid", "s9"}}));
  const auto made = [this](const char* name) { return folder.file(name); };
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{"import", store(), "--user", "me", log}, "the import is done"},
      {{"index", store()}, "the indexes were changed"},
      {{"compact", store()}, "the store was compacted"},
      {{"verify", store(), "--repair", "counters", "--backup", made("before")},
       "the changes were made, and the original was copied to " + made("before")},
      {{"backup", store(), made("backup")}, "the backup is in " + made("backup")},
      {{"salvage", store(), made("salvaged")}, "the new store is in " + made("salvaged")},
      {{"export", store(), "--format", "jsonl", "--output", made("lines")},
       "the export is in " + made("lines")},
      {{"restore", made("lines"), made("restored")}, "the store is in " + made("restored")},
  };
  for (const auto& [arguments, done] : cases) {
    EXPECT_EQ(run_without_output(arguments), 2) << arguments[0];
    EXPECT_EQ(read_err(), "corvan: standard output: cannot be written; " + done + "\n");
  }
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"7"});
  EXPECT_EQ(run({"index", store()}).out.find("nothing to do"), 0U);
  for (const char* name : {"before", "backup", "salvaged", "restored"}) {
    EXPECT_TRUE(std::filesystem::exists(made(name) + "/corvan")) << name;
  }
}

// Names that SQLite, built to know URIs, would take apart.
TEST_F(LookTest, AFolderOfAnyNameIsTheOneThatIsNamed) {
  import_sample();
  const std::filesystem::path before = std::filesystem::current_path();
  std::filesystem::current_path(folder.path());
  for (const char* name : {"file:x", "file:x?mode=memory", "a?b", "a#b", "a%41"}) {
    EXPECT_EQ(run({"import", name, "--user", "me", "-"}, line({})).status, 0) << name;
    corvan_test::plant(folder.file(name) + "/corvan", "drop index t_message_sent_time");
    for (const Arguments& arguments :
         std::vector<Arguments>{{"list", name},
                                {"check", name},
                                {"import", name, "--user", "me", "/dev/null"},
                                {"index", name},
                                {"compact", name},
                                {"verify", name, "--repair", "counters"},
                                {"verify", name}}) {
      const Outcome outcome = run(arguments);
      EXPECT_EQ(outcome.status, 0) << arguments[0] << ' ' << outcome.out << outcome.err;
    }
    EXPECT_EQ(listing(folder.file(name)).size(), 1U) << name;
    EXPECT_FALSE(std::filesystem::exists(folder.file("x")));
  }
  std::filesystem::current_path(before);
}

// The parser's library would split such a value of a list.
TEST_F(LookTest, BracketsAreAPartOfAValue) {
  import(line({{"session_id", "[a,b]"}, { "content", "[x]" }}) + line({{ "session_id", "a" }}));
  const std::string lines = output({"export", store(), "--format", "jsonl", "[a,b]"});
  EXPECT_NE(lines.find("\"session_id\":\"[a,b]\""), std::string::npos) << lines;
  EXPECT_EQ(lines.find("\"session_id\":\"a\""), std::string::npos) << lines;
  EXPECT_EQ(json({"history", store(), "[a,b]", "--type", "2", "--json"}).size(), 1U);
  EXPECT_EQ(json({"search", store(), "[x]", "--session", "[a,b]", "--json"})["messages"].size(),
            1U);
  EXPECT_EQ(run({"list", store(), "[x]", "y"}).err.find('\xff'), std::string::npos) << read_err();
  EXPECT_NE(read_err().find("[x]"), std::string::npos) << read_err();
  EXPECT_NE(read_err().find("; see 'corvan --help'"), std::string::npos) << read_err();
  EXPECT_NE(run({"list", store(), "--type", "[x]"}).err.find("\"[x]\" is none of"),
            std::string::npos)
      << read_err();
}

TEST_F(LookTest, WhatBeginsLikeAnOptionStandsBehindTwoDashes) {
  import(line({{ "content", "a -x b" }}));
  EXPECT_EQ(run({"search", store(), "-x"}).status, 2);
  EXPECT_EQ(run({"search", store(), "--", "-x"}).status, 0);
  EXPECT_NE(output({"--help"}).find("-- -x"), std::string::npos);
}

TEST_F(LookTest, AReaderThatLeavesEarlyLeavesNoCopy) {
  import_sample();
  for (const Arguments& arguments : commands(store())) {
    int ends[2] = {};
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    EXPECT_EQ(wait(start(arguments, ends[1])), 2) << arguments[0];
    EXPECT_EQ(listing(copies()), Listing{}) << arguments[0];
  }
}

TEST_F(LookTest, ASignalLeavesNoCopy) {
  import_sample();
  const std::size_t size = read_file(file()).size();
  for (const int signal_number : {SIGTERM, SIGINT, SIGHUP}) {
    // Copying stops at the log, and the copy of the main file is there meanwhile.
    const LeasedFile log(file() + "-wal");
    if (!log.is_held()) GTEST_SKIP() << "the file system has no leases";
    const int out = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const pid_t pid = start({"list", store()}, out);
    EXPECT_TRUE(log.wait_for_opener());
    for (const auto& entry : std::filesystem::directory_iterator(copies())) {
      EXPECT_EQ(std::filesystem::file_size(entry.path() / "corvan"), size);
    }
    kill(pid, signal_number);
    EXPECT_EQ(wait(pid), -signal_number);
    EXPECT_EQ(listing(copies()), Listing{}) << signal_number;
  }
}

TEST_F(LookTest, ATerminalIsNotOverrun) {
  import_sample();
  plant("update t_message set content='" + std::string(200, 'x') +
        "' where id=3;"
        "update t_message set content='" +
        std::string(200, 'y') + "中' where id=5");
  const auto text = terminal_output({"list", store()}, 100);
  if (!text) GTEST_SKIP() << "no pseudo-terminals on this machine";
  std::istringstream lines(*text);
  int count = 0;
  int longest = 0;
  for (std::string row; std::getline(lines, row); ++count) {
    if (!row.empty() && row.back() == '\r') row.pop_back();
    longest = std::max(longest, corvan_tool::display_width(row));
  }
  EXPECT_EQ(count, 4);
  EXPECT_EQ(longest, 100);
}

// The bytes of a store's file and of its log.
struct Files {
  std::string main;
  std::string log;
};

class OvertakenCopyTest : public LookTest {
 protected:
  void SetUp() override {
    import_sample();
    std::filesystem::create_directory(folder.file("side"));
    std::filesystem::copy_file(file(), side_);
  }

  Files side() const { return {read_file(side_), read_file(side_ + "-wal")}; }

  // The conversation "room" of list, where the first copying meets the main file `first` and the
  // log `log_read`, and all files are `then` before it is at its end. Nothing where it cannot be
  // stopped there.
  std::optional<Json> list_room(const std::string& first, const std::string& log_read,
                                const Files& then) {
    write_file(file(), first);
    write_file(file() + "-wal", log_read);
    write_file(temporary("in"), "");
    pid_t pid = 0;
    {
      const LeasedFile journal(file() + "-journal");  // empty, and copied last
      if (!journal.is_held()) return std::nullopt;
      pid = start({"list", store(), "--type", "group", "--json"},
                  open(temporary("out").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
      EXPECT_TRUE(journal.wait_for_opener());
      write_file(file(), then.main);
      write_file(file() + "-wal", then.log);
    }
    EXPECT_EQ(wait(pid), 0) << read_err();
    return Json::parse(read_file(temporary("out")))[0];
  }

  const std::string side_ = folder.file("side/corvan");
};

TEST_F(OvertakenCopyTest, AMainFileThatChangedMeanwhileIsCopiedAgain) {
  const std::string before = read_file(side_);
  const WriteAhead writer(side_,
                          "update t_message set content='folded in' where id=3;"
                          "pragma wal_checkpoint(truncate);"
                          "update t_session set title='in the log'");
  const Files after = side();
  ASSERT_NE(after.main, before);
  // The old file and the new log are two valid halves of no state that ever was.
  const std::optional<Json> listed = list_room(before, after.log, after);
  if (!listed) GTEST_SKIP() << "the file system has no leases";
  const Json& room = *listed;
  EXPECT_EQ(room["message"]["content"], "folded in");
  EXPECT_EQ(room["title"], "in the log");
}

TEST_F(OvertakenCopyTest, ALogThatStartedAnewMeanwhileIsCopiedAgain) {
  const WriteAhead first(side_, "update t_message set content='older' where id=3");
  const std::string older = side().log;
  const WriteAhead second(side_,
                          "update t_message set content='folded in' where id=3;"
                          "pragma wal_checkpoint(passive)");
  const std::string main = side().main;
  const WriteAhead third(side_, "update t_session set title='in the log'");
  const Files after = side();
  ASSERT_EQ(after.main, main);
  ASSERT_NE(after.log.substr(0, 32), older.substr(0, 32)) << "the log has not started anew";
  // The older log would cover what is folded in.
  const std::optional<Json> listed = list_room(main, older, after);
  if (!listed) GTEST_SKIP() << "the file system has no leases";
  const Json& room = *listed;
  EXPECT_EQ(room["message"]["content"], "folded in");
  EXPECT_EQ(room["title"], "in the log");
}

TEST_F(OvertakenCopyTest, ALogThatGrewMeanwhileIsTakenAsItWas) {
  const WriteAhead first(side_, "update t_message set content='older' where id=3");
  const Files before = side();
  const WriteAhead second(side_, "update t_session set title='newer'");
  const Files after = side();
  const std::optional<Json> listed = list_room(before.main, before.log, after);
  if (!listed) GTEST_SKIP() << "the file system has no leases";
  const Json& room = *listed;
  EXPECT_EQ(room["message"]["content"], "older");
  EXPECT_EQ(room["title"], "");
}

TEST_F(LookTest, ACopyIsOfOneMomentWhileAnotherWrites) {
  import(line({}) + line({}));
  std::atomic<bool> stop{false};
  std::atomic<int> saved{0};
  std::atomic<int> pause{8};  // between steps, in milliseconds
  // Two messages at a time: every consistent state holds an even number. The log is folded into
  // the file after every few of these steps.
  std::thread writer([&] {
    corvan_tool::OpenStore open(store(), "me");
    open->execute_none_query("pragma wal_autocheckpoint=30");
    open->execute_none_query("pragma synchronous=off");
    while (!stop) {
      open->start_transaction();
      for (int i = 0; i < 2; ++i) {
        open->save_message("room", Corvan::CV_GROUP, "CV:TxtMsg", "u01", std::string(300, 'x'),
                           true, 0, 0, false, kTime + saved, 0, "", false, false, true);
      }
      open->commit_transaction();
      ++saved;
      std::this_thread::sleep_for(std::chrono::milliseconds(pause));
    }
    EXPECT_EQ(open.failure(), "");
  });
  int good = 0;
  for (int i = 0; i < 16; ++i) {
    if (i == 15) pause = 0;  // hardly a moment to copy in
    for (const Arguments& arguments :
         std::vector<Arguments>{{"check", store()}, {"list", store(), "--json"}}) {
      const int before = saved;
      const Outcome outcome = run(arguments);
      if (outcome.status == 2) {
        EXPECT_EQ(outcome.err, "corvan: " + file() +
                                   ": written to all the time; try again when its writer rests\n");
        if (good == 0) pause = 2 * pause;  // a slow machine needs more of a moment
        continue;
      }
      EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.err;
      ++good;
      if (arguments[0] == "check") {
        EXPECT_EQ(outcome.out, "ok\n");
        continue;
      }
      const Json entry = Json::parse(outcome.out)[0];
      EXPECT_EQ(entry["unread_count"].get<int>() % 2, 0);
      EXPECT_EQ(entry["unread_count"], entry["message"]["msg_id"]);
      EXPECT_GE(entry["unread_count"].get<int>(), 2 + 2 * before) << "an old state";
    }
  }
  stop = true;
  writer.join();
  EXPECT_GT(good, 0);
  EXPECT_EQ(output({"check", store()}), "ok\n");
}

TEST_F(LookTest, HelpIsCompleteAndSucceeds) {
  const std::vector<std::pair<Arguments, Rows>> cases = {
      {{"--help"}, {"import", "list", "history", "unread", "show", "check", "Exit status"}},
      {{"import", "--help"},
       {"FOLDER",        "FILE",       "--user ID",  "--batch N",  "--history",
        "--insert-only", "--skip-bad", "--json",     "session_id", "session_type",
        "object_name",   "sender",     "content",    "is_receive", "is_mention",
        "sent_status",   "sent_time",  "client_uid", "server_uid", "stored",
        "completed",     "refused",    "bad",        "seconds",    "lines_per_second"}},
      {{"list", "--help"},
       {"FOLDER", "--type T", "--limit N", "--json", "session_id", "session_type", "title", "draft",
        "is_top", "silence", "unread_count", "mention_count", "session_time", "message"}},
      {{"history", "--help"},
       {"FOLDER", "SESSION", "--type T", "--before ID", "--after ID", "--limit N", "--kind NAME",
        "--json", "msg_id", "read_status", "sent_status", "server_uid", "sent_time",
        "Exit status 1"}},
      {{"unread", "--help"},
       {"FOLDER", "--type T", "--json", "unread_count", "unmuted_unread_count", "mention_count"}},
      {{"show", "--help"}, {"FOLDER", "ID", "--json", "is_mention", "client_uid"}},
      {{"check", "--help"}, {"FOLDER", "--json", "ok", "result"}},
  };
  for (const auto& [arguments, words] : cases) {
    const std::string text = output(arguments);
    for (const std::string& word : words) {
      EXPECT_NE(text.find(word), std::string::npos) << arguments[0] << ": " << word;
    }
  }
  EXPECT_EQ(output({"--version"}).find("corvan "), 0U);
}

TEST_F(LookTest, BadUsageIsOneLine) {
  import_sample();
  const std::vector<std::pair<Arguments, std::string>> cases = {
      {{}, ""},
      {{"lst", store()}, ""},
      {{"list"}, "FOLDER"},
      {{"list", ""}, "FOLDER"},
      {{"list", store(), "more"}, "more"},
      {{"list", store(), "--bogus"}, "--bogus"},
      {{"list", store(), "--type"}, "--type"},
      {{"list", store(), "--type", "6"}, "\"6\""},
      {{"list", store(), "--type", "0"}, "\"0\""},
      {{"list", store(), "--type", "grp"}, "\"grp\""},
      {{"list", store(), "--limit", "0"}, "--limit"},
      {{"list", store(), "--limit", "-1"}, "--limit"},
      {{"list", store(), "--limit", "2147483648"}, "--limit"},
      {{"list", store(), "--limit", "010"}, "--limit"},
      {{"history", store(), "room"}, "--type"},
      {{"history", store(), "--type", "group"}, "SESSION"},
      {{"history", store(), "room", "--type", "group", "--before", "one"}, "--before"},
      {{"history", store(), "room", "--type", "group", "--before", "1", "--after", "2"}, "--after"},
      {{"history", store(), "room", "--type", "group", "--after", "99999999999999999999"},
       "--after"},
      {{"history", store(), "room", "--type", "group", "--kind", ""}, "--kind"},
      {{"show", store()}, "ID"},
      {{"show", store(), "one"}, "one"},
      {{"show", store(), "0x1"}, "0x1"},
      {{"show", store(), "99999999999999999999"}, "99999999999999999999"},
      {{"check", store(), "--type", "1"}, "--type"},
  };
  for (const auto& [arguments, name] : cases) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 2) << name;
    EXPECT_EQ(outcome.out, "") << name;
    EXPECT_EQ(outcome.err.find("corvan: "), 0U) << outcome.err;
    EXPECT_NE(outcome.err.find(name), std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.err.find('\n'), outcome.err.size() - 1) << outcome.err;
  }
}

}  // namespace
}  // namespace corvan_test
