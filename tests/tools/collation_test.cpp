// Stores in which another program has given columns a collation. Conversations whose ids differ
// only in letter case must stay separate.

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "tests/tools/export_sample.h"
#include "tests/tools/program.h"

namespace corvan_test {
namespace {

void replace_once(std::string& text, const std::string& part, const std::string& with) {
  const std::size_t at = text.find(part);
  ASSERT_NE(at, std::string::npos) << text;
  text.replace(at, part.size(), with);
}

class CollationTest : public ExportSample {
 protected:
  CollationTest() {
    import(line(
               {{ "content",
                  "small one" }}) +
           line({{"session_id", "Room"},
                 { "content",
                   "large one" }}) +
           line({{"session_id", "Room"},
                 { "content",
                   "large two" }}));
    plant(
        "update t_session set title=session_id||' title';"
        "update t_message set server_uid='same',client_uid=7 where id in(1,2);"
        "update t_message set server_uid='SAME' where id=3");
  }

  // Creates a table again with parts of its CREATE statement replaced. The table keeps its rows.
  void rebuild(const std::string& table,
               const std::vector<std::pair<std::string, std::string>>& changes) {
    std::string sql = rows("select sql from sqlite_master where name='" + table + "'")[0];
    for (const auto& [part, with] : changes) replace_once(sql, part, with);
    plant("alter table " + table + " rename to old_rows;" + sql + ";insert into " + table +
          " select * from old_rows;drop table old_rows");
  }

  void ignore_case() {
    rebuild("t_message", {{"session_id text", "session_id text collate nocase"},
                          {"sender text", "sender text collate nocase"},
                          {"server_uid text", "server_uid text collate nocase"}});
    rebuild("t_session", {{"session_id text", "session_id text collate nocase"},
                          {"unique(session_id", "unique(session_id collate binary"}});
  }

  std::string exported(const Arguments& sessions, const char* format) {
    Arguments arguments = {"export", store()};
    arguments.insert(arguments.end(), sessions.begin(), sessions.end());
    arguments.insert(arguments.end(), {"--format", format});
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    return outcome.out;
  }

  // The records of these conversations, without the time in the header and the row id of the
  // sequence: creating a table again changes that row id.
  std::vector<Json> records(const Arguments& sessions) {
    std::vector<Json> all = lines(exported(sessions, "jsonl"));
    all.at(0).erase("export_time");
    for (Json& record : all) {
      if (record["type"] == "sequence") record.erase("rowid");
    }
    return all;
  }

  // The pages of an export, the index first.
  std::vector<std::string> html(const Arguments& sessions) {
    const std::string place = folder.file("pages");
    Arguments arguments = {"export", store(), "--format", "html", "--output", place};
    arguments.insert(arguments.begin() + 2, sessions.begin(), sessions.end());
    output(arguments);
    std::vector<std::string> texts = {read_file(place + "/index.html")};
    for (const char* page : {"1", "2", "3"}) {
      const std::string file = place + "/pages/0000" + page + ".html";
      if (std::filesystem::exists(file)) texts.push_back(read_file(file));
    }
    std::filesystem::remove_all(place);
    return texts;
  }

  // The duplicates that verify finds.
  std::vector<Json> duplicates() {
    std::vector<Json> result;
    const Json all = Json::parse(run({"verify", store(), "--json"}).out);
    for (const Json& finding : all["findings"]) {
      const std::string code = finding["code"];
      if (code != "server-uid-twice" && code != "client-key-twice") continue;
      result.insert(result.end(), finding["rows"].begin(), finding["rows"].end());
    }
    return result;
  }
};

TEST_F(CollationTest, ExportsHoldOnlyTheChosenConversation) {
  for (const Arguments& chosen : std::vector<Arguments>{{}, {"room"}, {"Room"}}) {
    SCOPED_TRACE(chosen.empty() ? "all" : chosen[0]);
    const std::string before = read_file(file());
    const std::string csv = exported(chosen, "csv");
    const std::vector<Json> jsonl = records(chosen);
    const std::vector<std::string> pages = html(chosen);
    ASSERT_EQ(csv.find("small one") == std::string::npos, chosen == Arguments{"Room"});
    ASSERT_EQ(csv.find("large one") == std::string::npos, chosen == Arguments{"room"});
    ignore_case();
    EXPECT_EQ(exported(chosen, "csv"), csv);
    EXPECT_EQ(records(chosen), jsonl);
    EXPECT_EQ(html(chosen), pages);
    write_file(file(), before);
  }
}

TEST_F(CollationTest, ExportsHoldConversationsWithoutRow) {
  plant("delete from t_session where session_id='Room'");
  const std::string csv = exported({}, "csv");
  const std::vector<std::string> pages = html({});
  ignore_case();
  EXPECT_EQ(exported({}, "csv"), csv);
  EXPECT_EQ(html({}), pages);
}

TEST_F(CollationTest, IdInAnotherLetterCaseIsUnknown) {
  ignore_case();
  expect_refused({"ROOM", "--format", "csv"},
                 file() + ": no conversation \"ROOM\"; 'corvan list' shows all conversations\n");
}

TEST_F(CollationTest, SearchAndStatsKeepConversationsApart) {
  const Json largest = json({"stats", store(), "--json"})["largest"];
  const std::string found = output({"search", store(), "one", "--session", "room", "--json"});
  ASSERT_EQ(largest.size(), 2U);
  ASSERT_EQ(Json::parse(found)["messages"].size(), 1U);
  ignore_case();
  EXPECT_EQ(json({"stats", store(), "--json"})["largest"], largest);
  EXPECT_EQ(output({"search", store(), "one", "--session", "room", "--json"}), found);
}

TEST_F(CollationTest, VerifyFindsTheSameDuplicates) {
  const std::vector<Json> before = duplicates();
  ASSERT_EQ(before.size(), 2U) << "one per conversation with the server uid \"same\"";
  ignore_case();
  EXPECT_EQ(duplicates(), before);
}

TEST_F(CollationTest, RejectsPagesThatWouldShowMessagesTwice) {
  rebuild("t_session", {{",unique(session_id,session_type)", ""}});
  plant("insert into t_session select * from t_session where session_id='Room'");
  expect_refused({"--format", "html", "--output", folder.file("pages")},
                 file() +
                     ": 5 rows of t_message were found, but the table has only 3; see 'corvan "
                     "check' and 'corvan verify'; --format jsonl reads the tables alone\n");
}

}  // namespace
}  // namespace corvan_test
