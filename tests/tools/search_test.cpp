#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/tools/search_sample.h"

namespace corvan_test {
namespace {

// Searches for words.

class SearchTest : public SearchSample {};

TEST_F(SearchTest, FindsWordsInAnyScriptNewestFirst) {
  EXPECT_EQ(found({"am"}), Ids({2, 6, 5, 1}));
  EXPECT_EQ(found({"am "}), Ids({2, 6, 5, 1}));
  EXPECT_EQ(found({"a"}), Ids());
  EXPECT_EQ(found({"开会"}), Ids({3}));
  EXPECT_EQ(found({"午"}), Ids({3}));
  EXPECT_EQ(found({"会开"}), Ids());
  EXPECT_EQ(found({"50"}), Ids({4}));
}

TEST_F(SearchTest, IgnoresCaseWidthAndComposition) {
  EXPECT_EQ(found({"café"}), Ids({2, 1}));
  EXPECT_EQ(found({"CAFE\xCC\x81"}), Ids({2, 1}));
  EXPECT_EQ(found({"ＣＡＦÉ"}), Ids({2, 1}));
  EXPECT_EQ(found({"cafe"}), Ids());
  EXPECT_EQ(found({"Café", "--ignore-case"}), Ids({2, 1}));
}

TEST_F(SearchTest, RequiresAllTerms) {
  EXPECT_EQ(found({"am café"}), Ids({2, 1}));
  EXPECT_EQ(found({"morgen am CAFÉ"}), Ids({1}));
  EXPECT_EQ(found({"am nowhere"}), Ids());
}

TEST_F(SearchTest, FindsPhrasesAndBeginnings) {
  EXPECT_EQ(found({"\"am abend\""}), Ids({2}));
  EXPECT_EQ(found({"\"abend am\""}), Ids());
  EXPECT_EQ(found({"\"off all\""}), Ids({4}));
  EXPECT_EQ(found({"en*"}), Ids({5}));
  EXPECT_EQ(found({"\"am m\"*"}), Ids({1}));
}

TEST_F(SearchTest, RefusesALongText) {
  const Outcome refused = run({"search", store(), std::string(5000, 'a')});
  EXPECT_EQ(refused.status, 2);
  EXPECT_NE(refused.err.find("has 5000 bytes, more than 4096; --literal has no limit\n"),
            std::string::npos)
      << refused.err;
  EXPECT_EQ(run({"search", store(), "--literal", std::string(5000, 'a')}).status, 1);
}

TEST_F(SearchTest, RefusesATextWithoutWords) {
  for (const char* text : {"%", "_", "*", "！", "\"\"", "' -- '"}) {
    const Outcome refused = run({"search", store(), "--", text});
    EXPECT_EQ(refused.status, 2) << text;
    EXPECT_EQ(refused.err, "corvan: \"" + std::string(text) +
                               "\" has no word to search for; --literal finds any characters\n");
    EXPECT_EQ(refused.out, "");
  }
}

TEST_F(SearchTest, SearchesContentThatIsNotUtf8) {
  plant("update t_message set content=cast(x'ff414d20' as text) where id=3");
  EXPECT_EQ(found({"AM", "--limit", "9"}), Ids({2, 6, 3, 5, 1}));
  plant("update t_message set content='Привет'||cast(x'd0' as text) where id=3");
  EXPECT_EQ(found({"ПРИВЕТ"}), Ids({3}));
}

TEST_F(SearchTest, SearchesContentOfAnyType) {
  plant(
      "update t_message set content=null where id=1;"
      "update t_message set content=x'616d2062c3a4723a00616d' where id=2;"
      "update t_message set content=42 where id=3;"
      "update t_message set content='am'||char(0)||'Zaun' where id=4");
  EXPECT_EQ(found({"am"}), Ids({2, 6, 4, 5}));
  EXPECT_EQ(found({"bär"}), Ids({2}));
  EXPECT_EQ(found({"42"}), Ids({3}));
  EXPECT_EQ(found({"zaun"}), Ids({4}));
}

// Messages that are older than enough others are not matched.
TEST_F(SearchTest, FindsTheNewestInAnyOrderOfTimes) {
  std::string more;
  for (int i = 7; i <= 60; ++i) {
    more +=
        line({{"content", "am " + std::to_string(i)}, {"sent_time", 1700000001000 + i * 7 % 53}});
  }
  import(more);
  const Ids all = found({"am", "--limit", "100"});
  ASSERT_EQ(all.size(), 58U);
  for (const int limit : {1, 2, 3, 7, 30}) {
    EXPECT_EQ(found({"am", "--limit", std::to_string(limit)}),
              Ids(all.begin(), all.begin() + limit));
  }
}

// With this index, SQLite would match contents before it looks at the type of the conversation.
TEST_F(SearchTest, FindsTheNewestWithAnIndexOfAnotherProgram) {
  for (const std::string& name :
       rows("select name from sqlite_master where type='index' and tbl_name='t_message'")) {
    plant("drop index " + name);
  }
  plant(
      "create index other on t_message(session_id,content,sent_time);"
      "update t_message set content='0 am' where id=6");
  EXPECT_EQ(found({"am", "--session", "room", "--type", "group", "--limit", "1"}), Ids({2}));
  EXPECT_EQ(next, "1700000000005:2");
}

TEST_F(SearchTest, ClippedTablesShowTheHit) {
  std::string before;
  for (int i = 0; i < 40; ++i) before += "ｘ";  // which folding makes shorter
  plant("update t_message set content='" + before + " Fund" + std::string(90, '.') +
        "' where id=3");
  const auto text = terminal_output({"search", store(), "fund"}, 90);
  if (!text) GTEST_SKIP() << "no pseudo-terminals on this machine";
  EXPECT_NE(text->find("ｘ Fund."), std::string::npos) << *text;
  EXPECT_NE(text->find("  …ｘ"), std::string::npos) << *text;
}

// Searches for a text as it is written.

class LiteralSearchTest : public SearchSample {
 protected:
  LiteralSearchTest() { way = {"--literal"}; }
};

TEST_F(LiteralSearchTest, FindsAPartOfTheTextInAnyScriptNewestFirst) {
  EXPECT_EQ(found({"am "}), Ids({2, 6, 5, 1}));
  EXPECT_EQ(found({"开会"}), Ids({3}));
  EXPECT_EQ(found({"Café"}), Ids({1}));
  EXPECT_EQ(found({"café"}), Ids());
  EXPECT_EQ(found({"！"}), Ids());
}

TEST_F(LiteralSearchTest, SearchesLiterally) {
  EXPECT_EQ(found({"%"}), Ids({4}));
  EXPECT_EQ(found({"_"}), Ids({4}));
  EXPECT_EQ(found({"'now'"}), Ids({4}));
  EXPECT_EQ(found({"' or 1=1 --"}), Ids());
  EXPECT_EQ(found({"*"}), Ids());
}

TEST_F(LiteralSearchTest, IgnoresCaseAndCompositionWhenAsked) {
  EXPECT_EQ(found({"café", "--ignore-case"}), Ids({2, 1}));
  EXPECT_EQ(found({"CAFE\xCC\x81", "--ignore-case"}), Ids({2, 1}));
  EXPECT_EQ(found({"cafe am", "--ignore-case"}), Ids());
}

TEST_F(LiteralSearchTest, SearchesContentThatIsNotUtf8) {
  plant("update t_message set content=cast(x'ff414d20' as text) where id=3");
  EXPECT_EQ(found({"AM "}), Ids({3}));
  EXPECT_EQ(found({"AM ", "--ignore-case", "--limit", "9"}), Ids({2, 6, 3, 5, 1}));
  plant("update t_message set content='Привет'||cast(x'd0' as text) where id=3");
  EXPECT_EQ(found({"ПРИВЕТ", "--ignore-case"}), Ids({3}));
}

TEST_F(LiteralSearchTest, ClippedTablesShowTheHit) {
  std::string before;
  for (int i = 0; i < 40; ++i) before += "İ";  // which folding makes longer
  plant("update t_message set content='" + before + "Fund" + std::string(90, '.') + "' where id=3");
  const auto text = terminal_output({"search", store(), "fund", "--ignore-case", "--literal"}, 90);
  if (!text) GTEST_SKIP() << "no pseudo-terminals on this machine";
  EXPECT_NE(text->find("İFund."), std::string::npos) << *text;
  EXPECT_NE(text->find("  …İ"), std::string::npos) << *text;
}

// Filters, order and pages are the same in each way of searching.

struct Way {
  const char* name;
  Arguments options;
  bool has_index = false;  // it was made before the test's changes
};

class EverySearchTest : public SearchSample, public testing::WithParamInterface<Way> {
 protected:
  EverySearchTest() {
    way = GetParam().options;
    if (GetParam().has_index) make_index();
  }
};

std::string name_of_way(const testing::TestParamInfo<Way>& one) {
  return one.param.name;
}

INSTANTIATE_TEST_SUITE_P(Ways, EverySearchTest,
                         testing::Values(Way{"Words", {}}, Way{"Index", {}, true},
                                         Way{"Literal", {"--literal"}},
                                         Way{"IgnoringCase", {"--literal", "--ignore-case"}}),
                         name_of_way);

TEST_P(EverySearchTest, FiltersByConversation) {
  EXPECT_EQ(found({"am ", "--session", "room"}), Ids({2, 6, 1}));
  EXPECT_EQ(found({"am ", "--session", "room", "--type", "private"}), Ids({6}));
  EXPECT_EQ(found({"am ", "--session", "o'her"}), Ids({5}));
  EXPECT_EQ(found({"am ", "--session", ""}), Ids());
  EXPECT_EQ(found({"am ", "--type", "1", "--type", "system"}), Ids({6}));
}

TEST_P(EverySearchTest, PagesShowEveryMessageOnce) {
  plant("update t_message set sent_time=7 where id in(1,2,5)");  // of one time: the larger id first
  EXPECT_EQ(all_pages("am ", next), Ids({6, 5, 2, 1}));
  EXPECT_EQ(all_pages("am ", next_id), Ids({6, 5, 2, 1}));
}

TEST_P(EverySearchTest, PagesShowMessagesOfAnyTimeAndId) {
  plant(
      "update t_message set sent_time=null where id=1;"
      "update t_message set sent_time='soon' where id=5;"
      "update t_message set sent_time=-8,id=-4 where id=2");
  EXPECT_EQ(found({"am "}), Ids({6, 5, 1, -4}));
  EXPECT_EQ(all_pages("am ", next), Ids({6, 5, 1, -4}));
  EXPECT_EQ(all_pages("am ", next_id), Ids({6, 5, 1, -4}));
}

TEST_P(EverySearchTest, ContinuesAfterAMessageThatHasMovedOrWasDeleted) {
  EXPECT_EQ(found({"am ", "--limit", "2"}), Ids({2, 6}));
  plant("delete from t_message where id=6");
  EXPECT_EQ(found({"am ", "--before", next}), Ids({5, 1}));
  EXPECT_EQ(found({"am ", "--limit", "1"}), Ids({2}));
  plant("update t_message set sent_time=sent_time+90 where id=2");
  EXPECT_EQ(found({"am ", "--before", next}), Ids({5, 1}));
}

TEST_P(EverySearchTest, AcceptsTheLargestLimit) {
  EXPECT_EQ(found({"am ", "--limit", "2147483647"}), Ids({2, 6, 5, 1}));
}

TEST_P(EverySearchTest, NamesTheOptionForTheNextPage) {
  const auto text = [this](const char* limit) {
    Arguments arguments = {"search", store(), "am ", "--limit", limit};
    arguments.insert(arguments.end(), way.begin(), way.end());
    return run(arguments).out;
  };
  EXPECT_NE(text("2").find("\nmore: --before 1700000000004:6\n"), std::string::npos) << text("2");
  EXPECT_EQ(text("4").find("more:"), std::string::npos);
}

TEST_P(EverySearchTest, RejectsInvalidOptions) {
  EXPECT_EQ(run({"search", store(), ""}).status, 2);
  Arguments arguments = {"search", store(), "am", "--before", ""};
  arguments.insert(arguments.end(), way.begin(), way.end());
  for (const char* place : {"x", "1:", ":1", "1:2:3", "1:x"}) {
    arguments[4] = place;
    const Outcome refused = run(arguments);
    EXPECT_EQ(refused.status, 2) << place;
    EXPECT_EQ(refused.err.find("corvan: --before: "), 0U) << refused.err;
  }
  arguments[4] = "99";
  const Outcome outcome = run(arguments);
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.err.find("corvan: " + file() + ": no message 99; "), 0U) << outcome.err;
}

TEST_P(EverySearchTest, SearchesTheLogAndChangesNothing) {
  const WriteAhead writer(file(),
                          "update t_message set content='in the log',sent_status=1 where id=3");
  const Listing before = listing(store());
  EXPECT_EQ(found({"in the log"}), Ids({3}));
  Arguments arguments = {"search", store(), "in the log", "--json"};
  arguments.insert(arguments.end(), way.begin(), way.end());
  EXPECT_EQ(Json::parse(run(arguments).out)["messages"][0]["sent_status"], 1);
  EXPECT_EQ(listing(store()), before);
}

}  // namespace
}  // namespace corvan_test
