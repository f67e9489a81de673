#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/tools/program.h"

namespace {

using namespace corvan_test;

class SearchTest : public ToolTest {
 protected:
  SearchTest() {
    import(line({{"content", "Café am Morgen"},
                 { "sent_time",
                   1700000000001 }}) +  // 1
           line({{"content", "CAFE\xCC\x81 am Abend"},
                 { "sent_time",
                   1700000000005 }}) +  // 2
           line({{"content", "下午开会吗？"},
                 { "sent_time",
                   1700000000003 }}) +  // 3
           line({{"content", "50% off_all 'now'"},
                 { "sent_time",
                   1700000000003 }}) +  // 4
           line({{"content", "am Ende"},
                 {"session_id", "o'her"},
                 { "sent_time",
                   1700000000002 }}) +  // 5
           line({{"content", "am Rand"},
                 {"session_type", 1},
                 { "sent_time",
                   1700000000004 }}));  // 6
  }

  std::vector<int> found(Arguments arguments) {
    arguments.insert(arguments.begin(), {"search", store()});
    arguments.push_back("--json");
    const Outcome outcome = run(arguments);
    std::vector<int> ids;
    const Json result = Json::parse(outcome.out);
    for (const Json& m : result["messages"]) ids.push_back(m["msg_id"]);
    EXPECT_EQ(outcome.status, ids.empty() ? 1 : 0) << outcome.err;
    EXPECT_EQ(outcome.err, ids.empty() ? "corvan: no such messages\n" : "");
    next = result["next_place"].is_null() ? "" : result["next_place"];
    next_id = next.substr(next.find(':') + 1);
    EXPECT_EQ(keys(result), (Rows{"messages", "next_place"}));
    return ids;
  }

  // The messages of all pages of one message each. `continuation` refers to `next` or `next_id`.
  std::vector<int> all_pages(const std::string& text, const std::string& continuation) {
    std::vector<int> all;
    Arguments arguments = {text, "--limit", "1"};
    do {
      for (const int id : found(arguments)) all.push_back(id);
      arguments = {text, "--limit", "1", "--before", continuation};
    } while (!continuation.empty() && all.size() < 10);
    return all;
  }

  // For --before: the place that the last search returned, and its id alone.
  std::string next;
  std::string next_id;
};

using Ids = std::vector<int>;

TEST_F(SearchTest, FindsAPartOfTheTextInAnyScriptNewestFirst) {
  EXPECT_EQ(found({"am "}), Ids({2, 6, 5, 1}));
  EXPECT_EQ(found({"开会"}), Ids({3}));
  EXPECT_EQ(found({"Café"}), Ids({1}));
  EXPECT_EQ(found({"café"}), Ids());
  EXPECT_EQ(found({"！"}), Ids());
}

TEST_F(SearchTest, SearchesLiterally) {
  EXPECT_EQ(found({"%"}), Ids({4}));
  EXPECT_EQ(found({"_"}), Ids({4}));
  EXPECT_EQ(found({"'now'"}), Ids({4}));
  EXPECT_EQ(found({"' or 1=1 --"}), Ids());
  EXPECT_EQ(found({"*"}), Ids());
}

TEST_F(SearchTest, IgnoresCaseAndCompositionWhenAsked) {
  EXPECT_EQ(found({"café", "--ignore-case"}), Ids({2, 1}));
  EXPECT_EQ(found({"CAFE\xCC\x81", "--ignore-case"}), Ids({2, 1}));
  EXPECT_EQ(found({"cafe am", "--ignore-case"}), Ids());
}

TEST_F(SearchTest, FiltersByConversation) {
  EXPECT_EQ(found({"am ", "--session", "room"}), Ids({2, 6, 1}));
  EXPECT_EQ(found({"am ", "--session", "room", "--type", "private"}), Ids({6}));
  EXPECT_EQ(found({"am ", "--session", "o'her"}), Ids({5}));
  EXPECT_EQ(found({"am ", "--session", ""}), Ids());
  EXPECT_EQ(found({"am ", "--type", "1", "--type", "system"}), Ids({6}));
}

TEST_F(SearchTest, PagesShowEveryMessageOnce) {
  plant("update t_message set sent_time=7 where id in(1,2,5)");  // of one time: the larger id first
  EXPECT_EQ(all_pages("am ", next), Ids({6, 5, 2, 1}));
  EXPECT_EQ(all_pages("am ", next_id), Ids({6, 5, 2, 1}));
}

TEST_F(SearchTest, PagesShowMessagesOfAnyTimeAndId) {
  plant(
      "update t_message set sent_time=null where id=1;"
      "update t_message set sent_time='soon' where id=5;"
      "update t_message set sent_time=-8,id=-4 where id=2");
  EXPECT_EQ(found({"am "}), Ids({6, 5, 1, -4}));
  EXPECT_EQ(all_pages("am ", next), Ids({6, 5, 1, -4}));
  EXPECT_EQ(all_pages("am ", next_id), Ids({6, 5, 1, -4}));
}

TEST_F(SearchTest, ContinuesAfterAMessageThatHasMovedOrWasDeleted) {
  EXPECT_EQ(found({"am ", "--limit", "2"}), Ids({2, 6}));
  plant("delete from t_message where id=6");
  EXPECT_EQ(found({"am ", "--before", next}), Ids({5, 1}));
  EXPECT_EQ(found({"am ", "--limit", "1"}), Ids({2}));
  plant("update t_message set sent_time=sent_time+90 where id=2");
  EXPECT_EQ(found({"am ", "--before", next}), Ids({5, 1}));
}

TEST_F(SearchTest, NamesTheOptionForTheNextPage) {
  const std::string text = output({"search", store(), "am ", "--limit", "2"});
  EXPECT_NE(text.find("\nmore: --before 1700000000004:6\n"), std::string::npos) << text;
  EXPECT_EQ(output({"search", store(), "am ", "--limit", "4"}).find("more:"), std::string::npos);
}

TEST_F(SearchTest, RejectsInvalidOptions) {
  EXPECT_EQ(run({"search", store(), ""}).status, 2);
  for (const char* place : {"x", "1:", ":1", "1:2:3", "1:x"}) {
    const Outcome refused = run({"search", store(), "am", "--before", place});
    EXPECT_EQ(refused.status, 2) << place;
    EXPECT_EQ(refused.err.find("corvan: --before: "), 0U) << refused.err;
  }
  const Outcome outcome = run({"search", store(), "am", "--before", "99"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.find("corvan: " + file() + ": no message 99; "), 0U) << outcome.err;
}

TEST_F(SearchTest, SearchesTheLogAndChangesNothing) {
  const WriteAhead writer(file(),
                          "update t_message set content='in the log',sent_status=1 where id=3");
  const Listing before = listing(store());
  EXPECT_EQ(found({"in the log"}), Ids({3}));
  EXPECT_EQ(json({"search", store(), "in the log", "--json"})["messages"][0]["sent_status"], 1);
  EXPECT_EQ(listing(store()), before);
}

TEST_F(SearchTest, SearchesContentThatIsNotUtf8) {
  plant("update t_message set content=cast(x'ff414d20' as text) where id=3");
  EXPECT_EQ(found({"AM "}), Ids({3}));
  EXPECT_EQ(found({"AM ", "--ignore-case", "--limit", "9"}), Ids({2, 6, 3, 5, 1}));
  plant("update t_message set content='Привет'||cast(x'd0' as text) where id=3");
  EXPECT_EQ(found({"ПРИВЕТ", "--ignore-case"}), Ids({3}));
}

TEST_F(SearchTest, ClippedTablesShowTheHit) {
  std::string before;
  for (int i = 0; i < 40; ++i) before += "İ";  // which folding makes longer
  plant("update t_message set content='" + before + "Fund" + std::string(90, '.') + "' where id=3");
  const auto text = terminal_output({"search", store(), "fund", "--ignore-case"}, 90);
  if (!text) GTEST_SKIP() << "no pseudo-terminals on this machine";
  EXPECT_NE(text->find("İFund."), std::string::npos) << *text;
  EXPECT_NE(text->find("  …İ"), std::string::npos) << *text;
}

}  // namespace
