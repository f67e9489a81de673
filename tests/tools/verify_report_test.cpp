// What verify prints.

#include <string>

#include "tests/tools/verify_fixture.h"

namespace corvan_test {
namespace {

TEST_F(VerifyTest, ImportedStoreHasNoFindings) {
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

TEST_F(VerifyTest, TextNamesConversationValueAndOperations) {
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

TEST_F(VerifyTest, TextShowsTenFindingsAndEscapesControlCharacters) {
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

}  // namespace
}  // namespace corvan_test
