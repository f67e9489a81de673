// What --repair changes and prints.

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/tools/verify_fixture.h"

namespace corvan_test {
namespace {

TEST_F(VerifyTest, PrintsLeftColumnsWithReason) {
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

TEST_F(VerifyTest, BackupsOfOneSecondGetDifferentNames) {
  import_sample();
  // Fast enough that some of them fall into the same second.
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

TEST_F(VerifyTest, RepairChangesOnlyTheNamedValues) {
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

TEST_F(VerifyTest, PrintsRepairAsText) {
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

TEST_F(VerifyTest, RepairsStoreThatAClientHasOpen) {
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

TEST_F(VerifyTest, RepairFiresNoTriggers) {
  import_sample();
  plant(
      "update t_session set unread_count=8 where session_id='room';"
      "create trigger t after update on t_session begin delete from t_message; end");
  EXPECT_EQ(changes(repair("counters")), Rows{"counters room unread_count 8 -> 3"});
  EXPECT_EQ(rows("select count(*) from t_message"), Rows{"6"});
}

// The index exceeds SQLite's cache, so the file is locked to readers before the commit.
TEST_F(VerifyTest, CreatesLargeIndexOutsideWalMode) {
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

}  // namespace
}  // namespace corvan_test
