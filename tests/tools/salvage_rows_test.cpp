// Which rows salvage leaves out as doubtful, and which it makes.

#include <string>

#include "tests/tools/salvage_fixture.h"
#include "tests/tools/store_pages.h"

namespace corvan_test {
namespace {

TEST_F(SalvageTest, DeletedMessagesStayDeleted) {
  plant("pragma secure_delete=off; delete from t_message where id between 100 and 800");
  const Json report = salvage(1);
  EXPECT_EQ(new_rows("select count(*) from t_message where id between 100 and 800"), Rows{"0"});
  const Json& counts = report["tables"]["t_message"];
  EXPECT_EQ(counts["lost_at_most"], 0);
  EXPECT_GT(counts["doubtful_by"]["deleted"], 0);
  const Json taken = salvage(1, {"--doubtful"});
  EXPECT_EQ(taken["tables"]["t_message"]["taken"], counts["doubtful"]);
  EXPECT_EQ(new_rows("select count(*) from t_message where id between 100 and 800"),
            Rows{counts["doubtful"].dump()});

  // Without the list of free pages, rows that the tables' sound trees lack were still deleted.
  sound = read_file(file());
  overwrite(sound, 1, 32, std::string(8, '\0'));
  write_file(file(), sound);
  const Json unlisted = salvage(1);
  EXPECT_EQ(unlisted["tables"]["t_message"]["doubtful_by"]["unreached"], counts["doubtful"]);
  EXPECT_EQ(new_rows("select count(*) from t_message where id between 100 and 800"), Rows{"0"});
}

TEST_F(SalvageTest, MessagesDeletedByTheStoreAreNotFoundAgain) {
  const Outcome none = run({"import", store(), "--user", "me", "-"}, "");
  ASSERT_EQ(none.status, 0);
  plant("pragma secure_delete=on; delete from t_message where id between 100 and 800");
  sound = read_file(file());
  overwrite(sound, 1, 0, std::string(kPageSize, 'x'));
  write_file(file(), sound);
  salvage(1, {"--doubtful"});
  EXPECT_EQ(new_rows("select count(*) from t_message where id between 100 and 800"), Rows{"0"});
}

TEST_F(SalvageTest, LeavesOutDoubtfulValuesByDefault) {
  plant(
      "update t_message set content=cast(x'61ff62' as text) where id=10;"
      "update t_message set content=cast(x'610062' as text) where id=11;"
      "update t_message set direction=7 where id=12;"
      "update t_message set sent_time='soon' where id=13;"
      "update t_message set sender=null where id=14;"
      "update t_session set is_top=2 where rowid=1");
  const Json report = salvage(1);
  EXPECT_EQ(report["tables"]["t_message"]["doubtful_by"], Json({{"text", 2}, {"value", 2}}));
  EXPECT_EQ(report["tables"]["t_session"]["doubtful_by"], Json({{"value", 1}}));
  EXPECT_EQ(new_rows("select count(*) from t_message where id between 10 and 13"), Rows{"0"});
  EXPECT_EQ(new_rows("select sender from t_message where id=14"), Rows{"NULL"});
  EXPECT_EQ(report["tables"]["t_message"]["lost_at_most"], 0);

  const Json taken = salvage(1, {"--doubtful"});
  EXPECT_EQ(taken["tables"]["t_message"]["taken"], 4);
  for (const char* sql : {"select id,hex(content),direction,sent_time,sender from t_message",
                          "select rowid,* from t_session"}) {
    EXPECT_EQ(new_rows(sql), rows(sql));
  }
}

TEST_F(SalvageTest, LeavesOutBothVersionsOfARow) {
  // Page 1 names the roots of all trees. Without it, nothing shows which of two pages is newer.
  const StorePages pages = store_pages_of("t_message");
  const auto& [page, on_page] = *pages.rows.begin();
  std::string changed = sound.substr((page - 1) * kPageSize, kPageSize);
  const std::size_t place = changed.find("CV:TxtMsg");
  ASSERT_NE(place, std::string::npos);
  changed[place] = 'X';
  std::string damaged = sound + changed;
  overwrite(damaged, 1, 0, std::string(kPageSize, '\0'));
  write_file(file(), damaged);
  const Json report = salvage(1);
  EXPECT_EQ(report["tables"]["t_message"]["doubtful_by"], Json({{"versions", 1}}));
  EXPECT_EQ(new_rows("select count(*) from t_message"), Rows{"1494"});
  salvage(1, {"--doubtful"});
  EXPECT_EQ(new_rows("select count(*) from t_message"), Rows{"1495"});
}

TEST_F(SalvageTest, MakesLostConversations) {
  const std::string original = folder.file("original");
  std::string damaged = sound;
  overwrite_rows(damaged, "t_session");
  write_file(file(), damaged);
  const Json report = salvage(1);
  const Json& counts = report["tables"]["t_session"];
  EXPECT_EQ(counts["recovered"], 0);
  EXPECT_EQ(counts["lost_at_least"], 30);
  EXPECT_EQ(counts["lost_at_most"], 30);
  EXPECT_EQ(counts["made"], 30);
  // Columns that are in an index are restored. The others have the defaults of a new row.
  EXPECT_EQ(new_rows("select rowid,*from t_session"),
            corvan_test::rows(original,
                              "select rowid,session_id,session_type,'','',is_top,session_time,"
                              "unread_count,mention_count,silence,latest_id,0,0 from t_session"));

  // Without the indexes, only messages show which conversations existed.
  for (const char* index :
       {"t_session_latest_id", "t_session_list", "sqlite_autoindex_t_session_1"}) {
    for (const std::string& page : corvan_test::rows(
             original, "select pageno from dbstat where name='" + std::string(index) + "'")) {
      overwrite(damaged, std::stoul(page), 0, std::string(kPageSize, 'x'));
    }
  }
  write_file(file(), damaged);
  EXPECT_EQ(salvage(1)["tables"]["t_session"]["made"], 30);
  EXPECT_EQ(new_rows("select session_id,session_type,session_time,latest_id,unread_count "
                     "from t_session order by 1,2"),
            corvan_test::rows(original,
                              "select session_id,session_type,max(sent_time),id,0 from t_message "
                              "group by 1,2 order by 1,2"));
  EXPECT_EQ(json({"list", salvaged, "--json"}).size(), 30U);
}

TEST_F(SalvageTest, CountsLostConversationsOnce) {
  std::string damaged = sound;
  overwrite_rows(damaged, "t_session");
  for (const std::string& page :
       corvan_test::rows(folder.file("original"),
                         "select pageno from dbstat where name in('t_session_list',"
                         "'sqlite_autoindex_t_session_1')")) {
    overwrite(damaged, std::stoul(page), 0, std::string(kPageSize, 'x'));
  }
  // The only index that is left names only row ids, and may be incomplete.
  for (const std::string& page : corvan_test::rows(
           folder.file("original"), "select pageno from dbstat where name='t_session_latest_id'")) {
    overwrite(damaged, std::stoul(page), 7, "\x3f");
  }
  write_file(file(), damaged);
  const Json report = salvage(1);
  EXPECT_EQ(report["tables"]["t_session"]["lost_at_least"], 30);
  EXPECT_EQ(report["tables"]["t_session"]["made"], 30);
}

TEST_F(SalvageTest, DoesNotMakeRemovedConversations) {
  plant("delete from t_session where rowid in(3,4)");
  overwrite(sound = read_file(file()), store_pages_of("t_message").rows.begin()->first, 0,
            std::string(kPageSize, 'x'));
  write_file(file(), sound);
  EXPECT_EQ(salvage(1)["tables"]["t_session"]["made"], 0);
  EXPECT_EQ(new_rows("select rowid from t_session where rowid in(3,4)"), Rows{});
}

}  // namespace
}  // namespace corvan_test
