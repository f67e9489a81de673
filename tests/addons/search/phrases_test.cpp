// Phrases of common words, for whose pairs the index has tokens: find() gives what is there,
// however the messages got into the index, and whatever happens to the lists of words.

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "tests/addons/search/search_fixture.h"
#include "tests/support/encryption.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

using Corvan::MessageSearch;
using Corvan::SearchStatus;

constexpr int kMessages = 3000;

class SearchPhrases : public SearchTest {
 protected:
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }

  // Of 40 words, those with small numbers are frequent.
  std::string word() { return "w" + std::to_string(below(1 + below(1 + below(40)))); }

  std::string text() {
    std::string text = word();
    for (std::size_t left = below(9); left > 0; --left) {
      text += below(8) == 0 ? " 电影 " : below(5) == 0 ? ", " : " ";
      text += word();
    }
    return text;
  }

  std::string phrase() {
    std::string phrase = "\"" + word();
    for (std::size_t left = 1 + below(3); left > 0; --left) phrase += " " + word();
    if (below(4) == 0) phrase += " 电";
    return phrase + (below(4) == 0 ? "\"*" : "\"");
  }

  std::vector<std::string> phrases() {
    std::vector<std::string> phrases{"\"w39 w0\"", "\"w0 w0\"", "\"w1 w2\" w3", "w2-w1 w4*"};
    for (int i = 0; i < 25; ++i) phrases.push_back(phrase());
    return phrases;
  }

  void insert(int count) {
    std::string sql = "insert into t_message(session_id,session_type,content,sent_time) values";
    for (int i = 0; i < count; ++i) {
      sql += std::string(i == 0 ? "" : ",") + "('room',2,'" + text() + "'," +
             std::to_string(++time_) + ")";
    }
    plant(file(), sql);
  }

  // How many common words the lists have.
  int common_words() const {
    return std::stoi(rows(index(), "select coalesce(sum(length(words)),0)/16 from pair").at(0));
  }

  std::mt19937_64 random_{5};
  int time_ = 0;
};

TEST_F(SearchPhrases, AreFoundInABuiltIndex) {
  insert(kMessages);
  build_index();
  ASSERT_GT(common_words(), 3);
  insert(50);  // not indexed
  MessageSearch search(path());
  EXPECT_EQ(compare(search, truth(), phrases()), "");
}

TEST_F(SearchPhrases, AreFoundAfterEditsAndDeletions) {
  insert(kMessages);
  build_index();
  MessageSearch search(path());
  for (int64_t id = 3; id < kMessages; id += 40) {
    ASSERT_TRUE(the_store().set_message_content(id, text(), ""));
    ASSERT_TRUE(the_store().delete_message({id + 1}));
    ASSERT_EQ(search.changed(id), SearchStatus::kOk);
  }
  EXPECT_EQ(compare(search, truth(), phrases()), "");
  for (int64_t id = 5; id < kMessages; id += 40) {
    ASSERT_TRUE(the_store().set_message_content(id, text(), ""));
  }
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), phrases()), "");
  ASSERT_GT(common_words(), 3);
}

// The index had no messages to count words in when it was begun.
TEST_F(SearchPhrases, AreFoundInAnIndexThatGrewWithTheStore) {
  MessageSearch search(path());
  insert(1);
  EXPECT_EQ(catch_up_all(search), "");
  insert(kMessages);
  EXPECT_EQ(catch_up_all(search), "");
  ASSERT_EQ(common_words(), 0);
  EXPECT_EQ(compare(search, truth(), phrases()), "");
  ASSERT_TRUE(the_store().delete_message({7}));
  EXPECT_EQ(mend_all(search), "");
  ASSERT_GT(common_words(), 3) << "a part that is built anew has lists";
  EXPECT_EQ(compare(search, truth(), phrases()), "");
}

TEST_F(SearchPhrases, AreFoundIfTheListsAreDamaged) {
  insert(kMessages);
  build_index();
  close();
  const FileSet sound = index_files();
  for (const char* const damage :
       {"delete from pair", "update pair set words=x''", "update pair set words=substr(words,17)",
        "update pair set words=substr(words,2)", "update pair set exceptions=x''",
        "update pair set exceptions=null", "update pair set exceptions=substr(exceptions,9)",
        "update pair set least=1", "update pair set hash=hash+1", "update pair set number=number+1",
        "drop table pair"}) {
    replace_files(folder.path(), "corvan-search", sound);
    plant(index(), damage);
    for (const bool finds_first : {true, false}) {
      MessageSearch search(path());
      if (finds_first) {
        EXPECT_EQ(compare(search, truth(), phrases()), "") << damage;
      }
      insert(5);
      EXPECT_EQ(catch_up_all(search), "") << damage;
      EXPECT_EQ(compare(search, truth(), phrases()), "") << damage;
    }
    EXPECT_GT(common_words(), 3) << damage;
  }
}

TEST_F(SearchPhrases, CommonWordsOfDeletedMessagesLeaveTheIndex) {
  SKIP_IF_ENCRYPTED("no word can be seen in the files");
  insert(kMessages);
  plant(file(), "update t_message set content=content||' zyxwvsecret w0' where id%3=0");
  build_index();
  {
    MessageSearch search(path());
    EXPECT_EQ(compare(search, truth(), {"\"zyxwvsecret w0\""}), "");
  }
  plant(file(), "delete from t_message where id%3=0");
  {
    MessageSearch search(path());
    EXPECT_EQ(mend_all(search), "");
    EXPECT_EQ(compare(search, truth(), phrases()), "");
  }
  for (const auto& [name, bytes] : index_files()) {
    EXPECT_EQ(bytes.find("zyxwvsecret"), std::string::npos) << name;
  }
}

}  // namespace

}  // namespace corvan_test
