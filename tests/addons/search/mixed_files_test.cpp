// Files that do not belong together: old copies, indexes of other stores, other files in place of
// the index, log files that are missing or foreign, files and folders that cannot be written.

#include <sqlite3.h>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "addons/search/tokenizer.h"
#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/faults/memory_child.h"
#include "tests/support/encryption.h"
#include "tests/support/privileges.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

namespace fs = std::filesystem;

using Corvan::MessageSearch;
using Corvan::SearchStatus;
using Corvan::SearchWork;
using std::chrono::microseconds;

class SearchMixedFiles : public SearchTest {
 protected:
  // The files of the closed store.
  FileSet store_files() const {
    FileSet files = files_in_folder(folder.path(), "corvan");
    for (auto at = files.begin(); at != files.end();) {
      at = at->first.rfind("corvan-search", 0) == 0 ? files.erase(at) : std::next(at);
    }
    return files;
  }
  // Replaces the files of the store, which is closed, and opens it.
  void put_store(const FileSet& files) const {
    const FileSet index = index_files();
    replace_files(folder.path(), "corvan", files);
    for (const auto& [name, content] : index) write_file(folder.path() + name, content);
    ASSERT_TRUE(open());
  }
  void put_index(const FileSet& files) const {
    replace_files(folder.path(), "corvan-search", files);
  }

  // No false hits at once, and nothing missed but messages of `may_miss`; nothing missed at all
  // after a whole sweep. Neither changes the store.
  void expect_recovery(const Ids& may_miss) const {
    const Rows before = rows(file(), "select * from t_message order by id");
    const Truth now = truth();
    MessageSearch search(path());
    EXPECT_EQ(compare(search, now, few_queries(), may_miss), "");
    EXPECT_EQ(catch_up_all(search), "");
    EXPECT_EQ(compare(search, now, few_queries(), may_miss), "");
    EXPECT_EQ(mend_all(search), "");
    EXPECT_EQ(compare(search, now, all_queries()), "");
    EXPECT_EQ(search.sweep(kPlenty).mended, 0);
    EXPECT_EQ(rows(file(), "select * from t_message order by id"), before);
  }
  void expect_recovery() const { expect_recovery(Ids()); }

  // Changes the text of every `step`th message, and deletes some, without a word to the search.
  Ids change_some(int64_t step) const {
    Vocabulary vocabulary(static_cast<uint64_t>(step));
    Ids changed;
    for (const int64_t id : truth().ids()) {
      if (id % step == 0) {
        the_store().set_message_content(id, vocabulary.text(), "");
        changed.insert(id);
      } else if (id % step == 1) {
        the_store().delete_message({id});
      }
    }
    return changed;
  }
};

// ---- Copies from other times --------------------------------------------------------------------

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
  save_many(1, 200);
  build_index();
  close();
  const FileSet old = store_files();
  ASSERT_TRUE(open());
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
    save_many(1, 200);
    build_index();
    close();
    const FileSet old = store_files();
    ASSERT_TRUE(open());
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
  save_many(1, 200);
  build_index();
  close();
  const FileSet old = store_files();
  ASSERT_TRUE(open());
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

// ---- Other files in its place -------------------------------------------------------------------

TEST_F(SearchMixedFiles, IndexOfAnotherTokenizerIsBuiltAnew) {
  save_many(1, 100);
  build_index();
  const std::string version = Corvan::search::tokenizer_version();
  ASSERT_FALSE(version.empty());
  int changed = 0;
  for (const std::string& table : rows(index(),
                                       "select name from sqlite_master where type='table' "
                                       "and sql not like 'create virtual%'")) {
    for (const std::string& column :
         rows(index(), "select name from pragma_table_info('" + table + "')")) {
      const std::string is_version =
          " where typeof(\"" + column + "\")='text' and \"" + column + "\"='" + version + "'";
      changed +=
          std::stoi(rows(index(), "select count(*) from \"" + table + "\"" + is_version).front());
      plant(index(), "update \"" + table + "\" set \"" + column + "\"='other'" + is_version);
    }
  }
  ASSERT_EQ(changed, 1);
  MessageSearch search(path());
  EXPECT_EQ(search.open(), SearchStatus::kOk);
  EXPECT_EQ(search.progress().waiting, 100);
  EXPECT_EQ(search.catch_up(kPlenty).messages, 100);
  EXPECT_EQ(compare(search, truth(), all_queries()), "");
}

TEST_F(SearchMixedFiles, OtherFilesInPlaceOfTheIndex) {
  save_many(1, 100);
  build_index();
  const std::string good = read_file(index());
  const TemporaryFolder other;
  plant(other.file("corvan"), "create table state(a,b); insert into state values(1,2)");
  close();
  const std::string store_bytes = read_file(file());
  ASSERT_TRUE(open());
  std::string random(20000, '\0');
  Vocabulary vocabulary(5);
  for (char& byte : random) byte = static_cast<char>(vocabulary.below(256));
  const std::vector<std::string> contents = {"",
                                             "x",
                                             std::string(512, '\0'),
                                             std::string(50000, '\0'),
                                             random,
                                             good.substr(0, 16) + random,
                                             good.substr(0, 100),
                                             good.substr(0, 4096),
                                             good.substr(0, 4096) + random,
                                             good.substr(0, good.size() / 2),
                                             good.substr(0, good.size() - 4096),
                                             good.substr(0, good.size() - 1),
                                             good + random,
                                             read_file(other.file("corvan")),
                                             store_bytes};
  for (std::size_t i = 0; i < contents.size(); ++i) {
    SCOPED_TRACE(i);
    put_index({{"corvan-search", contents[i]}});
    expect_recovery();
    EXPECT_EQ(MessageSearch(path()).progress().waiting, 0);
  }
  log.take();
}

TEST_F(SearchMixedFiles, TruncatedIndex) {
  save_many(1, 300);
  build_index();
  const std::string good = read_file(index());
  for (std::size_t size = 0; size < good.size(); size += 4096 + good.size() / 16) {
    SCOPED_TRACE(size);
    put_index({{"corvan-search", good.substr(0, size)}});
    expect_recovery();
  }
}

TEST_F(SearchMixedFiles, FolderInPlaceOfTheIndex) {
  save_many(1, 100);
  ASSERT_TRUE(fs::create_directory(index()));
  write_file(index() + "/file", "x");
  {
    MessageSearch search(path());
    EXPECT_EQ(search.open(), SearchStatus::kIndexError);
    EXPECT_EQ(compare(search, truth(), few_queries()), "");
    EXPECT_EQ(search.catch_up(kPlenty).status, SearchStatus::kIndexError);
    EXPECT_EQ(search.sweep(kPlenty).status, SearchStatus::kIndexError);
    EXPECT_EQ(search.changed(1), SearchStatus::kIndexError);
    EXPECT_EQ(search.progress().indexed, 0);
    EXPECT_EQ(search.progress().waiting, 100);
    EXPECT_EQ(compare(search, truth(), few_queries()), "");
    EXPECT_EQ(read_file(index() + "/file"), "x");
    fs::remove_all(index());
    EXPECT_EQ(mend_all(search), "");
  }
  expect_recovery();
}

TEST_F(SearchMixedFiles, IndexThatIsALink) {
  save_many(1, 100);
  const TemporaryFolder other;
  write_file(other.file("target"), "something else");
  fs::create_symlink(other.file("target"), index());
  expect_recovery();
}

// ---- Logs ---------------------------------------------------------------------------------------

TEST_F(SearchMixedFiles, MissingLog) {
  save_many(1, 200);
  build_index();
  save_many(2, 200);
  FileSet open_files;
  {
    MessageSearch search(path());
    EXPECT_EQ(catch_up_all(search), "");
    open_files = index_files();
  }
  ASSERT_EQ(open_files.count("corvan-search-wal"), 1U);
  FileSet without = open_files;
  without.erase("corvan-search-wal");
  put_index(without);
  expect_recovery();
}

TEST_F(SearchMixedFiles, ForeignLog) {
  const TemporaryFolder other;
  close();
  ASSERT_TRUE(open_store_in(other.path()));
  save_many(9, 500);
  FileSet foreign;
  {
    MessageSearch search{cvrtc::Pathname(other.path())};
    ASSERT_EQ(catch_up_all(search), "");
    foreign = files_in_folder(other.path(), "corvan-search");
  }
  ASSERT_EQ(foreign.count("corvan-search-wal"), 1U);
  close();
  ASSERT_TRUE(open());
  save_many(1, 300);
  build_index();
  FileSet mixed = index_files();
  mixed["corvan-search-wal"] = foreign.at("corvan-search-wal");
  put_index(mixed);
  expect_recovery();
}

TEST_F(SearchMixedFiles, OldLogBesideNewerIndex) {
  save_many(1, 100);
  FileSet early;
  {
    MessageSearch search(path());
    ASSERT_EQ(catch_up_all(search), "");
    early = index_files();
  }
  save_many(2, 300);
  const Ids changed = change_some(5);
  build_index();
  FileSet mixed = index_files();
  mixed["corvan-search-wal"] = early.at("corvan-search-wal");
  put_index(mixed);
  expect_recovery(changed);
}

TEST_F(SearchMixedFiles, LogOfRandomBytes) {
  save_many(1, 100);
  build_index();
  FileSet mixed = index_files();
  mixed["corvan-search-wal"] = std::string(50000, '\x5a');
  put_index(mixed);
  expect_recovery();
}

TEST_F(SearchMixedFiles, FolderInPlaceOfTheLog) {
  save_many(1, 100);
  build_index();
  ASSERT_TRUE(fs::create_directory(index() + "-wal"));
  {
    MessageSearch search(path());
    EXPECT_EQ(compare(search, truth(), few_queries()), "");
    search.catch_up(kPlenty);
    EXPECT_EQ(compare(search, truth(), few_queries()), "");
  }
  fs::remove_all(index() + "-wal");
  expect_recovery();
}

// ---- Permissions --------------------------------------------------------------------------------

// Runs the work in a process that permissions bind. Returns a complaint, or an empty text.
std::string without_privileges(const std::function<std::string()>& work) {
  const auto reports = in_children({0}, [&](uint64_t) {
    ChildReport report;
    report.complaint = drop_privileges() ? work() : "cannot drop privileges";
    return report;
  });
  return reports.front().complaint;
}

std::string work_without_index(const std::string& folder, const std::string& unwritable) {
  if (!open_store_in(folder)) return "the store does not open";
  save({"hello again"});
  fs::permissions(unwritable, fs::perms::owner_write, fs::perm_options::remove);
  std::string wrong;
  {
    MessageSearch search{cvrtc::Pathname(folder)};
    const Truth truth(folder + "corvan");
    wrong = compare(search, truth, few_queries());
    const SearchWork work = search.catch_up(kPlenty);
    search.changed(1);
    search.sweep(kPlenty);
    search.progress();
    const bool is_error = work.status == SearchStatus::kIndexError;
    const bool is_done = work.status == SearchStatus::kOk && work.complete;
    if (wrong.empty() && !is_error && !is_done) wrong = "unexpected status of catch_up";
    if (wrong.empty()) wrong = compare(search, truth, few_queries());
  }
  fs::permissions(unwritable, fs::perms::owner_write, fs::perm_options::add);
  the_store().close_db();
  return wrong;
}

TEST_F(SearchMixedFiles, ReadOnlyIndex) {
  save_many(1, 100);
  build_index();
  close();
  EXPECT_EQ(without_privileges([this] { return work_without_index(folder.path(), index()); }), "");
  ASSERT_TRUE(open());
  expect_recovery();
}

TEST_F(SearchMixedFiles, ReadOnlyFolder) {
  save_many(1, 100);
  for (const bool with_index : {false, true}) {
    if (with_index) build_index();
    close();
    EXPECT_EQ(
        without_privileges([this] { return work_without_index(folder.path(), folder.path()); }),
        "");
    ASSERT_TRUE(open());
    expect_recovery();
  }
}

}  // namespace

}  // namespace corvan_test
