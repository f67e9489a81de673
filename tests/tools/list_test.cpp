#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/look_sample.h"
#include "tools/ui/terminal_text.h"

namespace corvan_test {
namespace {

class ListTest : public LookTest {};

TEST_F(ListTest, ShowsATable) {
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

TEST_F(ListTest, KeepsColumnsAlignedUnderWideCharacters) {
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

TEST_F(ListTest, HasTheDocumentedKeys) {
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

TEST_F(ListTest, ListsAConversationWithoutMessages) {
  import_sample();
  plant(
      "insert into t_session(session_id,session_type,session_time,latest_id) "
      "values('empty',5,0,-1)");
  const Json list = json({"list", store(), "--type", "system", "--json"});
  ASSERT_EQ(list.size(), 1U);
  EXPECT_TRUE(list[0]["message"].is_null());
  EXPECT_NE(output({"list", store(), "--type", "5"}).find("system  empty"), std::string::npos);
}

TEST_F(ListTest, ShowsNoMessageIfTheLatestIsGone) {
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

TEST_F(ListTest, ShowsOnlyTheMessageThatTheConversationNames) {
  import_sample();
  // The latest message of "room" is also named by another conversation.
  plant(
      "update t_session set latest_id=1 where session_id='room';"
      "update t_session set latest_id=3 where session_id='hall'");
  const Json list = json({"list", store(), "--json"});
  ASSERT_EQ(list.size(), 3U);
  EXPECT_EQ(list[1]["session_id"], "room");
  EXPECT_EQ(list[1]["message"]["msg_id"], 1);
  EXPECT_EQ(list[1]["message"]["content"], "first");
  EXPECT_EQ(list[1]["session_time"], kSampleTime);
}

TEST_F(ListTest, TruncatesTheIdOfTheLatestMessageAsAClientDoes) {
  import_sample();
  plant(
      "update t_message set id=4294967299 where id=3;"
      "update t_session set latest_id=4294967299 where session_id='room'");
  const Json list = json({"list", store(), "--type", "group", "--json"});
  ASSERT_EQ(list.size(), 1U);
  EXPECT_TRUE(list[0]["message"].is_null()) << list[0];  // 3, which does not exist
}

TEST_F(ListTest, ShowsNoMessageWhoseIdIsNotPositive) {
  import_sample();
  plant(
      "update t_message set id=-7 where id=3;"
      "update t_session set latest_id=-7 where session_id='room'");
  EXPECT_TRUE(json({"list", store(), "--type", "group", "--json"})[0]["message"].is_null());
  EXPECT_EQ(output({"list", store(), "--type", "group"}).find("pic"), std::string::npos);
}

TEST_F(ListTest, EndsTextsAtAZeroByteAsAClientDoes) {
  import_sample();
  plant("update t_message set content='a'||char(0)||'b' where id=3");
  const Json list = json({"list", store(), "--type", "group", "--json"});
  EXPECT_EQ(list[0]["message"]["content"], "a");
}

TEST_F(ListTest, FiltersByTypeAndLimits) {
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

}  // namespace
}  // namespace corvan_test
