#include <cstddef>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/look_sample.h"

namespace corvan_test {
namespace {

class HistoryTest : public LookTest {};

TEST_F(HistoryTest, ShowsATable) {
  import_sample();
  plant("update t_message set read_status=1 where id=1");
  EXPECT_EQ(output({"history", store(), "room", "--type", "group"}),
            "ID  TIME (UTC)           SENDER  STATE   KIND       CONTENT\n"
            " 1  2023-11-14 22:13:20  u01     read    CV:TxtMsg  first\n"
            " 2  2023-11-14 22:13:21  李明    unread  CV:TxtMsg  你好\n"
            " 3  2023-11-14 22:13:22  u01     unread  it's       pic\n");
}

TEST_F(HistoryTest, HasTheDocumentedKeys) {
  import_sample();
  const Json list = json({"history", store(), "u01", "--type", "private", "--json"});
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list[0], Json::parse(R"({"msg_id":4,"session_id":"u01","session_type":1,
    "object_name":"CV:TxtMsg","sender":"u01","content":"hi","is_receive":true,"read_status":0,
    "sent_status":0,"server_uid":"s4","sent_time":1700000003000})"));
  EXPECT_EQ(list[1]["sent_status"], 1);
}

TEST_F(HistoryTest, ShowsAMessageBeingSent) {
  import_sample();
  EXPECT_NE(output({"history", store(), "u01", "--type", "private"}).find("  sending  "),
            std::string::npos);
  EXPECT_NE(output({"show", store(), "5"}).find("sent        sending\n"), std::string::npos);
  EXPECT_EQ(json({"show", store(), "5", "--json"})["sent_status"], 1);
  EXPECT_EQ(rows("select sent_status from t_message where id=5"), Rows{"1"});
}

TEST_F(HistoryTest, ShowsTheSentStateOfOwnMessages) {
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

TEST_F(HistoryTest, Pages) {
  std::string text;
  for (int i = 1; i <= 30; ++i) text += line({{"sent_time", kSampleTime + i}});
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

TEST_F(HistoryTest, PagesSplitMessagesOfTheSameTime) {
  std::string text;
  for (int i = 0; i < 6; ++i) text += line({{"sent_time", kSampleTime + i / 4}});
  import(text);
  EXPECT_EQ(ids({"--limit", "3"}), (std::vector<int>{4, 5, 6}));
  EXPECT_EQ(ids({"--limit", "3", "--before", "4"}), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(ids({"--after", "2"}), (std::vector<int>{3, 4, 5, 6}));
}

TEST_F(HistoryTest, TreatsATimeThatIsNotANumberAsZero) {
  import_sample();
  plant("update t_message set sent_time=null where id=2;update t_message set id=-4 where id=3");
  EXPECT_EQ(ids({}), (std::vector<int>{2, 1, -4}));
  EXPECT_EQ(ids({"--before", "-4"}), (std::vector<int>{2, 1}));
  EXPECT_EQ(ids({"--after", "2", "--limit", "1"}), std::vector<int>{1});
}

TEST_F(HistoryTest, FiltersByKind) {
  import_sample();
  EXPECT_EQ(ids({"--kind", "it's"}), std::vector<int>{3}) << "a quote in the name";
  EXPECT_EQ(ids({"--kind", "CV:TxtMsg"}), (std::vector<int>{1, 2}));
  EXPECT_EQ(ids({"--kind", "CV:TxtMsg", "--kind", "it's"}), (std::vector<int>{1, 2, 3}));
  EXPECT_EQ(ids({"--kind", "CV:TxtMsg", "--limit", "1"}), std::vector<int>{2});
  const Outcome attack = history({"--kind", "x') or ('1'='1"});
  EXPECT_EQ(attack.status, 1);
  EXPECT_EQ(Json::parse(attack.out), Json::array());
}

TEST_F(HistoryTest, DistinguishesConversationsByTypeAndId) {
  import_sample();
  import(line({{"session_id", "u01"},
               {"content", "in the group"},
               { "sent_time",
                 kSampleTime }}) +
         line({{"session_id", "it's \"odd\" 会"},
               { "content",
                 "odd" }}));
  const Json list = json({"history", store(), "u01", "--type", "2", "--json"});
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0]["content"], "in the group");
  EXPECT_EQ(json({"history", store(), "it's \"odd\" 会", "--type", "2", "--json"}).size(), 1U);
}

TEST_F(HistoryTest, ReturnsOneIfThereAreNoMessages) {
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

TEST_F(HistoryTest, RejectsAMessageOfAnotherConversationAsAnchor) {
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

// Beyond what 32 bits and the functions of some systems can express.
TEST_F(HistoryTest, ShowsTimesOfAllYears) {
  import(line({}));
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"-9223372036854775808", "-292275055-05-16 16:47:04"},
      {"-1000", "1969-12-31 23:59:59"},
      {"-62135596800000", "1-01-01 00:00:00"},
      {"2147483648000", "2038-01-19 03:14:08"},
      {"4102444800000", "2100-01-01 00:00:00"},
      {"253402300800000", "10000-01-01 00:00:00"},
      {"9223372036854775807", "292278994-08-17 07:12:55"}};
  for (const auto& [time, text] : cases) {
    plant("update t_message set sent_time=" + time);
    const std::string shown = output({"history", store(), "room", "--type", "group"});
    EXPECT_NE(shown.find(" " + text + " "), std::string::npos) << shown;
    const std::string exported = output({"export", store(), "--format", "csv"});
    EXPECT_NE(exported.find("," + text + ","), std::string::npos) << exported;
  }
}

}  // namespace
}  // namespace corvan_test
