// The words of messages that were deleted or edited leave the files of the index.

#include <string>
#include <vector>

#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/encryption.h"

namespace corvan_test {

namespace {

using Corvan::MessageSearch;

// FTS5 omits the bytes that a word has in common with the word before it. Nothing else begins with
// the same byte as these words, so they are in the file whole.
const std::vector<std::string>& secrets() {
  static const std::vector<std::string> list = {"zyxwvsecretone", "qjkzvsecrettwo", "жщыэсекрет",
                                                "가"};
  return list;
}

std::string secret_text() {
  std::string text;
  for (const std::string& secret : secrets()) text += secret + " ";
  return text + "hello 电影";
}

class SearchRemoval : public SearchTest {
 protected:
  void SetUp() override {
    SKIP_IF_ENCRYPTED("no word can be seen in the files");
    SearchTest::SetUp();
    save_many(1, 200);
    Sent message{secret_text(), 5000, "secret room", Corvan::CV_PRIVATE};
    message.server_uid = "secret uid";
    secret_ = save(message);
    save_many(2, 200);
    build_index();
    ASSERT_EQ(seen(), all()) << "the secrets cannot be seen at all";
  }

  // The secrets that are in the files of the index, by their numbers.
  std::string seen() const {
    std::string numbers;
    std::string bytes;
    for (const auto& [name, content] : index_files()) bytes += content;
    for (std::size_t i = 0; i < secrets().size(); ++i) {
      if (bytes.find(secrets()[i]) != std::string::npos) numbers += std::to_string(i);
    }
    return numbers;
  }
  static std::string all() {
    std::string numbers;
    for (std::size_t i = 0; i < secrets().size(); ++i) numbers += std::to_string(i);
    return numbers;
  }

  // Removes the message, in the sight of an open search or not, announced or not. Then a sweep must
  // remove its words.
  template <typename Remove>
  void expect_gone(const Remove& remove) {
    const FileSet store = files_in_folder(folder.path());
    for (const bool announced : {false, true}) {
      SCOPED_TRACE(announced ? "announced" : "not announced");
      close();
      replace_files(folder.path(), "corvan", store);
      ASSERT_TRUE(open());
      {
        MessageSearch search(path());
        remove();
        if (announced) {
          EXPECT_EQ(search.changed(secret_), Corvan::SearchStatus::kOk);
        }
        EXPECT_EQ(sweep_to_end(search), "");
        EXPECT_EQ(compare(search, truth(), few_queries()), "");
      }
      EXPECT_EQ(seen(), "");
    }
  }

  int64_t secret_ = 0;
};

TEST_F(SearchRemoval, DeletedMessage) {
  expect_gone([this] { ASSERT_TRUE(the_store().delete_message({secret_})); });
}

TEST_F(SearchRemoval, MessageDeletedByServerUid) {
  expect_gone([] {
    the_store().delete_message("secret room", Corvan::CV_PRIVATE,
                               std::vector<std::string>{"secret uid"});
  });
}

TEST_F(SearchRemoval, EditedMessage) {
  expect_gone([this] { ASSERT_TRUE(the_store().set_message_content(secret_, "harmless", "")); });
}

TEST_F(SearchRemoval, EmptiedMessage) {
  expect_gone([this] { ASSERT_TRUE(the_store().set_message_content(secret_, "", "")); });
}

TEST_F(SearchRemoval, ClearedConversation) {
  expect_gone(
      [] { ASSERT_TRUE(the_store().clear_message("secret room", Corvan::CV_PRIVATE, false)); });
}

TEST_F(SearchRemoval, AllMessagesCleared) {
  expect_gone([] { ASSERT_TRUE(the_store().clear_message_by_timestamp(1000000, true)); });
}

TEST_F(SearchRemoval, MessageSavedEditedAndDeletedBetweenTwoPasses) {
  {
    MessageSearch search(path());
    ASSERT_TRUE(the_store().delete_message({secret_}));
    EXPECT_EQ(mend_all(search), "");
    const int64_t again = save({secret_text()});
    EXPECT_EQ(catch_up_all(search), "");
    ASSERT_TRUE(the_store().set_message_content(again, "harmless", ""));
    EXPECT_EQ(search.changed(again), Corvan::SearchStatus::kOk);
    ASSERT_TRUE(the_store().delete_message({again}));
    EXPECT_EQ(search.changed(again), Corvan::SearchStatus::kOk);
    EXPECT_EQ(sweep_to_end(search), "");
  }
  EXPECT_EQ(seen(), "");
}

// The sweep removes words in short calls, too, each in an object of its own.
TEST_F(SearchRemoval, ShortCalls) {
  ASSERT_TRUE(the_store().delete_message({secret_}));
  bool complete = false;
  for (int calls = 0; !complete; ++calls) {
    ASSERT_LT(calls, 1000);
    complete = MessageSearch(path()).sweep(std::chrono::microseconds(0)).complete;
  }
  EXPECT_EQ(seen(), "");
}

// The words of an index that is dropped do not stay in the file's free pages.
TEST_F(SearchRemoval, IndexOfAnotherStore) {
  close();
  const FileSet foreign = index_files();
  const TemporaryFolder other;
  ASSERT_TRUE(open_store_in(other.path()));
  save_many(9, 300);
  replace_files(other.path(), "corvan-search", foreign);
  {
    MessageSearch search{cvrtc::Pathname(other.path())};
    EXPECT_EQ(mend_all(search), "");
  }
  close();
  std::string bytes;
  for (const auto& [name, content] : files_in_folder(other.path(), "corvan-search")) {
    bytes += content;
  }
  for (const std::string& secret : secrets()) {
    EXPECT_EQ(bytes.find(secret), std::string::npos) << secret;
  }
}

}  // namespace

}  // namespace corvan_test
