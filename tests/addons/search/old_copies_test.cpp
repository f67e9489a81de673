// Copies from other times: of the store beside a newer index, of the index beside a newer store, of
// both from other stores.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>

#include "tests/addons/search/mixed_files.h"

namespace corvan_test {

namespace {

namespace fs = std::filesystem;

using Corvan::MessageSearch;
using std::chrono::microseconds;

TEST_F(SearchMixedFiles, OldIndexBesideNewerStore) {
  save_many(1, 300);
  build_index();
  const FileSet old = index_files();
  const Ids changed = change_some(7);
  save_many(2, 200);
  build_index();
  put_index(old);
  expect_recovery(changed);
}

TEST_F(SearchMixedFiles, IndexFromBeforeAPassOfTheSweep) {
  save_many(1, 600);
  build_index();
  {
    MessageSearch search(path());
    while (search.progress().swept < 0.5 && !search.sweep(microseconds(0)).complete) {
    }
  }
  const FileSet old = index_files();
  const Ids changed = change_some(5);
  build_index();
  put_index(old);
  expect_recovery(changed);
}

TEST_F(SearchMixedFiles, NewerIndexBesideOlderStore) {
  const FileSet old = indexed_store();
  save_many(2, 300);
  build_index();
  close();
  put_store(old);
  expect_recovery();
  save_many(3, 300);  // the same ids again
  expect_recovery();
}

// The saves come before the search is opened.
TEST_F(SearchMixedFiles, IdsThatAreUsedAgain) {
  for (const int again : {50, 300, 400}) {
    SCOPED_TRACE(again);
    const FileSet old = indexed_store();
    save_many(2, 300);
    build_index();
    close();
    put_store(old);
    save_many(3, again);
    expect_recovery();
  }
}

// The newest messages are the same ones in both stores.
TEST_F(SearchMixedFiles, RolledBackStoreThatReceivesTheSameMessagesLast) {
  const FileSet old = indexed_store();
  save_many(2, 300);
  save({"the last one"});
  build_index();
  close();
  put_store(old);
  save_many(3, 300);
  save({"the last one"});
  Ids doubtful;
  for (const int64_t id : truth().ids()) {
    if (id > 200) doubtful.insert(id);
  }
  expect_recovery(doubtful);
}

TEST_F(SearchMixedFiles, IndexOfAnotherStore) {
  for (const int count : {100, 300, 500}) {
    SCOPED_TRACE(count);
    TemporaryFolder other;
    close();
    ASSERT_TRUE(open_store_in(other.path()));
    save_many(9, count);
    {
      MessageSearch search{cvrtc::Pathname(other.path())};
      ASSERT_EQ(mend_all(search), "");
    }
    close();
    ASSERT_TRUE(open());
    save_many(1, 100);
    put_index(files_in_folder(other.path(), "corvan-search"));
    expect_recovery();
  }
}

TEST_F(SearchMixedFiles, EmptyStoreBesideAFullIndex) {
  save_many(1, 300);
  build_index();
  close();
  for (const char* const end : {"", "-wal", "-shm"}) fs::remove(file() + end);
  ASSERT_TRUE(open());
  expect_recovery();
  save_many(2, 100);
  expect_recovery();
}

TEST_F(SearchMixedFiles, StoreWhoseMessagesWereAllDeleted) {
  save_many(1, 300);
  build_index();
  ASSERT_TRUE(the_store().clear_message_by_timestamp(100000, true));
  expect_recovery();
  save_many(2, 100);
  expect_recovery();
}

}  // namespace

}  // namespace corvan_test
