#include <algorithm>
#include <string>
#include <vector>

#include "tests/tools/look_sample.h"

namespace corvan_test {
namespace {

class ShowTest : public LookTest {};

TEST_F(ShowTest, ShowsAllFields) {
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

TEST_F(ShowTest, ShowsTextAfterAZeroByte) {
  import_sample();
  plant("update t_message set content=cast(x'610062' as text),id=-4 where id=1");
  EXPECT_EQ(json({"show", store(), "-4", "--json"})["content"], std::string("a\0b", 3));
  EXPECT_NE(output({"show", store(), "-4"}).find("content     a\\x00b\n"), std::string::npos);
  EXPECT_EQ(Json::parse(history({}).out)[0]["content"], std::string("a\0b", 3));
}

TEST_F(ShowTest, ReturnsOneIfThereIsNoMessage) {
  import_sample();
  const Outcome text = run({"show", store(), "99"});
  EXPECT_EQ(text.status, 1);
  EXPECT_EQ(text.out, "");
  EXPECT_EQ(text.err, "corvan: no message 99\n");
  const Outcome program = run({"show", store(), "9223372036854775807", "--json"});
  EXPECT_EQ(program.status, 1);
  EXPECT_EQ(program.out, "null\n");
}

TEST_F(ShowTest, EscapesControlCharacters) {
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

TEST_F(ShowTest, ShowsIllFormedRows) {
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

}  // namespace
}  // namespace corvan_test
