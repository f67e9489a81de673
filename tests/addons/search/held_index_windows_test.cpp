// An index that another program holds open when it has to be deleted, which Windows then refuses.

#include <windows.h>

#include <filesystem>
#include <memory>
#include <string>

#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

using Corvan::MessageSearch;
using Corvan::SearchStatus;

// Another program's handle to a file.
class Holder {
 public:
  explicit Holder(const std::string& file)
      : handle_(CreateFileW(std::filesystem::u8path(file).c_str(), GENERIC_READ,
                            FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                            FILE_ATTRIBUTE_NORMAL, nullptr)) {
    EXPECT_NE(handle_, INVALID_HANDLE_VALUE);
  }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;
  ~Holder() { CloseHandle(handle_); }

 private:
  const HANDLE handle_;
};

class HeldIndex : public SearchTest {
 protected:
  void SetUp() override {
    SearchTest::SetUp();
    save_many(1, 200);
  }

  // While somebody holds the index, the search does without it; afterwards it is created again.
  void expect_search_without_index_until_it_is_released() const {
    MessageSearch search(path());
    {
      const Holder other(index());
      expect_index_error(search);
    }
    EXPECT_EQ(mend_all(search), "");
    EXPECT_EQ(compare(search, truth(), all_queries()), "");
    EXPECT_EQ(search.progress().indexed, 200);
  }

  void expect_index_error(MessageSearch& search) const {
    EXPECT_EQ(search.open(), SearchStatus::kIndexError);
    EXPECT_EQ(search.catch_up(kPlenty).status, SearchStatus::kIndexError);
    EXPECT_EQ(search.sweep(kPlenty).status, SearchStatus::kIndexError);
    EXPECT_EQ(search.changed(1), SearchStatus::kIndexError);
    EXPECT_EQ(compare(search, truth(), few_queries()), "");
  }
};

TEST_F(HeldIndex, ForeignFileIsReplacedWhenItIsReleased) {
  write_file(index(), std::string(5000, 'x'));
  expect_search_without_index_until_it_is_released();
}

TEST_F(HeldIndex, OtherDatabaseIsReplacedWhenItIsReleased) {
  plant(index(), "create table other(a)");
  expect_search_without_index_until_it_is_released();
}

TEST_F(HeldIndex, IndexOfAnotherVersionIsReplacedWhenItIsReleased) {
  build_index();
  plant(index(), "pragma user_version=1000");
  expect_search_without_index_until_it_is_released();
}

TEST_F(HeldIndex, IndexOfAnotherStoreIsReplacedWhenItIsReleased) {
  const TemporaryFolder other;
  close();
  ASSERT_TRUE(open_store_in(other.path()));
  save_many(9, 300);
  ASSERT_EQ(mend_all(*std::make_unique<MessageSearch>(cvrtc::Pathname(other.path()))), "");
  close();
  ASSERT_TRUE(open());
  replace_files(folder.path(), "corvan-search", files_in_folder(other.path(), "corvan-search"));
  MessageSearch search(path());
  {
    const Holder program(index());
    search.catch_up(kPlenty);
    EXPECT_EQ(compare(search, truth(), few_queries()), "");
  }
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
}

TEST_F(HeldIndex, RemovalSaysThatItFailedAndChangesNothing) {
  build_index();
  const FileSet before = index_files();
  {
    const Holder other(index());
    EXPECT_FALSE(MessageSearch::remove(path()));
    EXPECT_EQ(log.take(), Rows{"4 MessageSearch: " + index() + ": cannot be deleted"});
    EXPECT_EQ(index_files(), before);
  }
  EXPECT_TRUE(MessageSearch::remove(path()));
  EXPECT_TRUE(index_files().empty());
}

// The log has messages that the file lacks.
TEST_F(HeldIndex, RemovalUnderAnOpenObjectLeavesTheLog) {
  MessageSearch search(path());
  ASSERT_EQ(catch_up_all(search), "");
  ASSERT_EQ(index_files().count("corvan-search-wal"), 1U);
  EXPECT_FALSE(MessageSearch::remove(path()));
  EXPECT_EQ(index_files().count("corvan-search-wal"), 1U);
  EXPECT_EQ(search.progress().indexed, 200);
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
}

// Both halves of the object have the damaged file open.
TEST_F(HeldIndex, DamagedFileIsReplacedAlthoughBothHalvesHaveItOpen) {
  MessageSearch search(path());
  ASSERT_EQ(mend_all(search), "");
  ASSERT_EQ(compare(search, truth(), few_queries()), "");
  write_file(index(), std::string(read_file(index()).size(), 'x'));
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
}

TEST_F(HeldIndex, DamagedFileIsReplacedWhenAnotherObjectClosesIt) {
  MessageSearch search(path());
  ASSERT_EQ(mend_all(search), "");
  {
    MessageSearch other(path());
    ASSERT_EQ(mend_all(other), "");
    ASSERT_EQ(compare(other, truth(), few_queries()), "");
    write_file(index(), std::string(read_file(index()).size(), 'x'));
    search.sweep(kPlenty);
    EXPECT_EQ(compare(search, truth(), few_queries()), "");
    EXPECT_EQ(compare(other, truth(), few_queries()), "");
  }
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
}

TEST_F(HeldIndex, FolderWithChineseCharacters) {
  close();
  const std::string place = folder.path() + "\u804a\u5929\u8bb0\u5f55/";
  std::filesystem::create_directory(std::filesystem::u8path(place));
  ASSERT_TRUE(open_store_in(place));
  save_many(1, 50);
  write_file(place + MessageSearch::kFileName, std::string(5000, 'x'));
  {
    MessageSearch search{cvrtc::Pathname(place)};
    EXPECT_EQ(mend_all(search), "");
    EXPECT_EQ(compare(search, Truth(place + "corvan"), few_queries()), "");
  }
  EXPECT_TRUE(MessageSearch::remove(cvrtc::Pathname(place)));
  EXPECT_FALSE(file_exists(place + MessageSearch::kFileName));
}

TEST_F(HeldIndex, FolderThatIsNotUtf8HasNoStore) {
  const cvrtc::Pathname place(folder.path() + "\xcf\xfb\xcf\xa2/");
  MessageSearch search(place);
  EXPECT_EQ(search.open(), SearchStatus::kNoStore);
  EXPECT_EQ(search.find("hello").status, SearchStatus::kNoStore);
  EXPECT_EQ(search.catch_up(kPlenty).status, SearchStatus::kNoStore);
  MessageSearch::remove(place);
}

}  // namespace

}  // namespace corvan_test
