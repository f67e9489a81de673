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
    next = result["next_before"].is_null() ? "" : result["next_before"].dump();
    return ids;
  }

  std::string next;
};

using Ids = std::vector<int>;

TEST_F(SearchTest, FindsAPartOfTheTextInAnyScriptNewestFirst) {
  EXPECT_EQ(found({"am "}), Ids({2, 6, 5, 1}));
  EXPECT_EQ(found({"开会"}), Ids({3}));
  EXPECT_EQ(found({"Café"}), Ids({1}));
  EXPECT_EQ(found({"café"}), Ids());
  EXPECT_EQ(found({"！"}), Ids());
}

TEST_F(SearchTest, NothingInTheTextHasAMeaning) {
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

TEST_F(SearchTest, KeepsToConversations) {
  EXPECT_EQ(found({"am ", "--session", "room"}), Ids({2, 6, 1}));
  EXPECT_EQ(found({"am ", "--session", "room", "--type", "private"}), Ids({6}));
  EXPECT_EQ(found({"am ", "--session", "o'her"}), Ids({5}));
  EXPECT_EQ(found({"am ", "--session", ""}), Ids());
  EXPECT_EQ(found({"am ", "--type", "1", "--type", "system"}), Ids({6}));
}

TEST_F(SearchTest, PagesMeetEveryMessageOnce) {
  plant("update t_message set sent_time=7 where id in(1,2,5)");  // of one time: the larger id first
  Ids all;
  Arguments arguments = {"am ", "--limit", "1"};
  do {
    for (const int id : found(arguments)) all.push_back(id);
    arguments = {"am ", "--limit", "1", "--before", next};
  } while (!next.empty() && all.size() < 10);
  EXPECT_EQ(all, Ids({6, 5, 2, 1}));
}

TEST_F(SearchTest, TheTextSaysHowToGoOn) {
  const std::string text = output({"search", store(), "am ", "--limit", "2"});
  EXPECT_NE(text.find("\nmore: --before 6\n"), std::string::npos) << text;
  EXPECT_EQ(output({"search", store(), "am ", "--limit", "4"}).find("more:"), std::string::npos);
}

TEST_F(SearchTest, WhatCannotBeMeantIsAnError) {
  EXPECT_EQ(run({"search", store(), ""}).status, 2);
  const Outcome outcome = run({"search", store(), "am", "--before", "99"});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.find("corvan: " + file() + ": no message 99; "), 0U) << outcome.err;
}

TEST_F(SearchTest, FindsWhatOnlyTheLogHoldsAndChangesNothing) {
  const WriteAhead writer(file(),
                          "update t_message set content='in the log',sent_status=1 where id=3");
  const Listing before = listing(store());
  EXPECT_EQ(found({"in the log"}), Ids({3}));
  EXPECT_EQ(json({"search", store(), "in the log", "--json"})["messages"][0]["sent_status"], 1);
  EXPECT_EQ(listing(store()), before);
}

TEST_F(SearchTest, ContentThatIsNoUtf8IsSearchedAsItIs) {
  plant("update t_message set content=cast(x'ff414d20' as text) where id=3");
  EXPECT_EQ(found({"AM "}), Ids({3}));
  EXPECT_EQ(found({"AM ", "--ignore-case", "--limit", "9"}), Ids({2, 6, 3, 5, 1}));
}

}  // namespace
