// Statuses, and the life of the files, as the header of MessageSearch promises them.

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/encryption.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

namespace fs = std::filesystem;

using Corvan::MessageSearch;
using Corvan::SearchOptions;
using Corvan::SearchResults;
using Corvan::SearchStatus;

class SearchContract : public SearchTest {};

// ---- Statuses -----------------------------------------------------------------------------------

TEST_F(SearchContract, EachStatusHasAText) {
  std::set<std::string> texts;
  for (int32_t status = 0; status <= 5; ++status) {
    texts.insert(to_text(static_cast<SearchStatus>(status)));
  }
  EXPECT_EQ(texts.size(), 6U);
  EXPECT_EQ(texts.count(""), 0U);
  EXPECT_NE(to_text(static_cast<SearchStatus>(99)), nullptr);
}

TEST_F(SearchContract, FolderWithoutStore) {
  const TemporaryFolder empty;
  for (const std::string& place : {empty.path(), empty.path() + "missing/"}) {
    MessageSearch search{cvrtc::Pathname(place)};
    EXPECT_EQ(search.open(), SearchStatus::kNoStore);
    EXPECT_EQ(search.find("hello").status, SearchStatus::kNoStore);
    EXPECT_EQ(search.catch_up(kPlenty).status, SearchStatus::kNoStore);
    EXPECT_FALSE(search.catch_up(kPlenty).complete);
    EXPECT_EQ(search.changed(1), SearchStatus::kNoStore);
    EXPECT_EQ(search.sweep(kPlenty).status, SearchStatus::kNoStore);
    EXPECT_EQ(search.progress().status, SearchStatus::kNoStore);
  }
  EXPECT_TRUE(fs::is_empty(empty.path()));
}

TEST_F(SearchContract, StoreThatIsNotADatabase) {
  SKIP_IF_ENCRYPTED("the add-on for encryption refuses the file");
  const TemporaryFolder other;
  const std::string bytes(10000, 'x');
  write_file(other.file("corvan"), bytes);
  MessageSearch search{cvrtc::Pathname(other.path())};
  const SearchStatus status = search.find("hello").status;
  EXPECT_TRUE(status == SearchStatus::kNoStore || status == SearchStatus::kStoreError);
  EXPECT_EQ(read_file(other.file("corvan")), bytes);
  EXPECT_FALSE(log.take().empty());
}

TEST_F(SearchContract, LockedStoreIsAStoreError) {
  the_store().execute_none_query("pragma locking_mode=exclusive");
  ASSERT_GT(save({}), 0);
  {
    MessageSearch search(path());
    // A store that is locked cannot be unlocked with a key.
    const auto status = stores_are_encrypted() ? SearchStatus::kNoStore : SearchStatus::kStoreError;
    EXPECT_EQ(search.find("hello").status, status);
    EXPECT_EQ(search.catch_up(kPlenty).status, status);
    the_store().execute_none_query("pragma locking_mode=normal");
    ASSERT_GT(save({}), 0);
    EXPECT_EQ(search.find("hello").hits.size(), 2U);
  }
  EXPECT_FALSE(log.take().empty());
}

TEST_F(SearchContract, FailuresAreLogged) {
  const TemporaryFolder empty;
  MessageSearch search{cvrtc::Pathname(empty.path())};
  EXPECT_EQ(log.take(), Rows{});  // the constructor opens nothing
  search.open();
  EXPECT_EQ(log.take().size(), 1U);
  search.find("hello");
  EXPECT_EQ(log.take().size(), 1U);
}

TEST_F(SearchContract, StoreMayBeCreatedAfterTheObject) {
  const TemporaryFolder later;
  MessageSearch search{cvrtc::Pathname(later.path())};
  EXPECT_EQ(search.find("hello").status, SearchStatus::kNoStore);
  close();
  ASSERT_TRUE(open_store_in(later.path()));
  const int64_t id = save({});
  EXPECT_EQ(ids(search, "hello"), Found{id});
  EXPECT_EQ(catch_up_all(search), "");
  close();
}

TEST_F(SearchContract, OnlyTheFolderOfThePathCounts) {
  const int64_t id = save({});
  MessageSearch search{cvrtc::Pathname(folder.path() + "anything.db")};
  EXPECT_EQ(ids(search, "hello"), Found{id});
  EXPECT_EQ(catch_up_all(search), "");
  EXPECT_TRUE(file_exists(index()));
}

// ---- The life of the files ----------------------------------------------------------------------

TEST_F(SearchContract, WhatIsIndexedStaysSo) {
  save_many(1, 50);
  { EXPECT_EQ(catch_up_all(*std::make_unique<MessageSearch>(path())), ""); }
  MessageSearch search(path());
  EXPECT_EQ(search.progress().indexed, 50);
  EXPECT_EQ(search.catch_up(kPlenty).messages, 0);
}

TEST_F(SearchContract, StoreIsNotChanged) {
  save_many(1, 100);
  close();
  const std::string bytes = read_file(file());
  build_index();
  {
    MessageSearch search(path());
    EXPECT_EQ(compare(search, truth(), few_queries()), "");
  }
  EXPECT_TRUE(read_file(file()) == bytes);
}

TEST_F(SearchContract, RemoveDeletesTheIndexAndNothingElse) {
  save_many(1, 50);
  EXPECT_TRUE(MessageSearch::remove(path()));
  build_index();
  close();
  const FileSet store = {{"corvan", read_file(file())}};
  EXPECT_TRUE(file_exists(index()));
  EXPECT_TRUE(MessageSearch::remove(path()));
  EXPECT_TRUE(index_files().empty());
  EXPECT_FALSE(file_exists(index() + "-shm"));
  EXPECT_EQ(read_file(file()), store.at("corvan"));
  EXPECT_TRUE(MessageSearch::remove(cvrtc::Pathname(folder.path() + "missing/")));
  ASSERT_TRUE(open());
  MessageSearch search(path());
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
  EXPECT_EQ(search.progress().waiting, 50);
  EXPECT_EQ(log.take(), Rows{});
}

TEST_F(SearchContract, RemoveThatFailsSaysSo) {
  ASSERT_TRUE(fs::create_directory(index()));
  write_file(index() + "/file", "x");
  EXPECT_FALSE(MessageSearch::remove(path()));
  EXPECT_EQ(log.take().size(), 1U);
  EXPECT_TRUE(file_exists(index() + "/file"));
}

TEST_F(SearchContract, IndexRemovedUnderAnOpenObject) {
  save_many(1, 100);
  MessageSearch search(path());
  EXPECT_EQ(mend_all(search), "");
  replace_files(folder.path(), "corvan-search", {});
  save_many(2, 100);
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
  search.catch_up(kPlenty);
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
  MessageSearch other(path());
  EXPECT_EQ(mend_all(other), "");
  EXPECT_EQ(compare(other, truth(), few_queries()), "");
}

TEST_F(SearchContract, StoreDeletedAndCreatedAnewUnderAnOpenObject) {
  save_many(1, 100);
  MessageSearch search(path());
  EXPECT_EQ(mend_all(search), "");
  close();
  for (const char* const end : {"", "-wal", "-shm"}) fs::remove(file() + end);
  ASSERT_TRUE(open());
  save_many(2, 60);
  EXPECT_EQ(compare(search, truth(), few_queries(), truth().ids()), "");
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
}

TEST_F(SearchContract, StoreReplacedByAnotherUnderAnOpenObject) {
  save_many(1, 100);
  MessageSearch search(path());
  EXPECT_EQ(mend_all(search), "");
  close();
  const TemporaryFolder other;
  ASSERT_TRUE(open_store_in(other.path()));
  save_many(2, 150);
  close();
  for (const char* const end : {"-wal", "-shm"}) fs::remove(file() + end);
  fs::rename(other.file("corvan"), file());
  ASSERT_TRUE(open());
  EXPECT_EQ(compare(search, truth(), few_queries(), truth().ids()), "");
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
}

TEST_F(SearchContract, StoreWithoutTables) {
  const TemporaryFolder other;
  plant(other.file("corvan"), "create table other(a)");
  MessageSearch search{cvrtc::Pathname(other.path())};
  const SearchResults results = search.find("hello");
  EXPECT_NE(results.status, SearchStatus::kOk);
  EXPECT_NE(results.status, SearchStatus::kIndexError);
  EXPECT_FALSE(log.take().empty());
}

TEST_F(SearchContract, VacuumOfTheStore) {
  save_many(1, 200);
  MessageSearch search(path());
  EXPECT_EQ(mend_all(search), "");
  ASSERT_TRUE(the_store().clear_message("room1", Corvan::CV_GROUP, true));
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
  save_many(2, 100);
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
}

TEST_F(SearchContract, OlderStoreWithoutIndexes) {
  SKIP_IF_ENCRYPTED("covered in plain text");
  save_many(1, 100);
  const Rows names = rows(file(), "select name from sqlite_master where type='index' and sql<>''");
  for (const std::string& name : names) plant(file(), "drop index " + name);
  MessageSearch search(path());
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
  SearchOptions options;
  options.session_id = "room1";
  options.limit = 3;
  EXPECT_EQ(compare(search, truth(), "hello", options), "");
}

TEST_F(SearchContract, AllMembersWorkWhileTheStoreIsInATransaction) {
  save_many(1, 100);
  MessageSearch search(path());
  ASSERT_TRUE(the_store().start_transaction());
  save({"pending hello"});
  EXPECT_EQ(mend_all(search), "");
  EXPECT_EQ(search.changed(5), SearchStatus::kOk);
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
  EXPECT_EQ(search.progress().status, SearchStatus::kOk);
  ASSERT_TRUE(the_store().commit_transaction());
  EXPECT_EQ(compare(search, truth(), few_queries()), "");
}

// The search must not keep the store's log from being emptied.
TEST_F(SearchContract, IdleSearchHoldsNoSnapshotOfTheStore) {
  save_many(1, 100);
  MessageSearch search(path());
  EXPECT_EQ(mend_all(search), "");
  EXPECT_FALSE(search.find("hello").hits.empty());
  EXPECT_EQ(search.progress().status, SearchStatus::kOk);
  EXPECT_EQ(rows(file(), "pragma wal_checkpoint(truncate)").front().front(), '0');
  EXPECT_EQ(fs::file_size(file() + "-wal"), 0U);
}

// More messages than one part of the index has.
TEST_F(SearchContract, LargeStore) {
  constexpr int64_t kCount = 140000;
  plant(file(), "with recursive n(i) as (select 1 union all select i+1 from n where i<" +
                    std::to_string(kCount) +
                    ") insert into t_message(session_id,session_type,content,sent_time) "
                    "select 'room',2,'n'||(i/64)||' 天'||case i%1000 when 7 then ' seven' else '' "
                    "end,i/2 from n");
  MessageSearch search(path());
  ASSERT_EQ(catch_up_all(search), "");
  const std::vector<std::string> queries = {"seven", "n2047", "n2048", "n1 seven", "\"n2100 天\""};
  const Truth before = truth();
  EXPECT_EQ(compare(search, before, queries), "");
  Corvan::SearchOptions pages;
  pages.limit = 50;
  EXPECT_EQ(compare(search, before, "seven", pages), "");
  EXPECT_EQ(search.progress().waiting, 0);
  EXPECT_EQ(search.progress().indexed, kCount);
  plant(file(), "update t_message set content='edited seven' where id%20011=0");
  plant(file(), "delete from t_message where id%20011=1 or id between 131000 and 131100");
  EXPECT_EQ(sweep_to_end(search), "");
  EXPECT_EQ(compare(search, truth(), {"seven", "n2047", "n2048", "edited"}), "");
  EXPECT_EQ(search.sweep(kPlenty).mended, 0);
}

}  // namespace

}  // namespace corvan_test
