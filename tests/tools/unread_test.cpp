#include <string>

#include "tests/tools/look_sample.h"

namespace corvan_test {
namespace {

class UnreadTest : public LookTest {};

TEST_F(UnreadTest, ShowsATable) {
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

TEST_F(UnreadTest, HasTheDocumentedKeys) {
  import_sample();
  plant("update t_session set silence=1 where session_id='room'");
  EXPECT_EQ(json({"unread", store(), "--json", "--type", "group"}),
            Json::parse(R"({"group":{"unread_count":3,"unmuted_unread_count":0,"mention_count":1},
                            "all":{"unread_count":3,"unmuted_unread_count":0,"mention_count":1}})"));
  EXPECT_EQ(keys(json({"unread", store(), "--json"})),
            (Rows{"private", "group", "chatroom", "reception", "system", "all"}));
}

TEST_F(UnreadTest, WorksIfOnlyMessagesAreDamaged) {
  import_sample();
  const std::string before = output({"unread", store()});
  const std::string root = rows("select rootpage from sqlite_master where name='t_message'").at(0);
  std::string bytes = read_file(file());
  bytes.replace((std::stoul(root) - 1) * 4096, 4096, 4096, '\xff');
  write_file(file(), bytes);
  EXPECT_EQ(output({"unread", store()}), before);
}

}  // namespace
}  // namespace corvan_test
