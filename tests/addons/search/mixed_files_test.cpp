// Other files in place of the index, log files that are missing or foreign, files and folders that
// cannot be written.

#include <sqlite3.h>

#include <filesystem>
#include <string>
#include <vector>

#include "addons/search/tokenizer.h"
#include "tests/addons/search/mixed_files.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/addons/search/without_privileges.h"
#include "tests/support/encryption.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

namespace fs = std::filesystem;

using Corvan::MessageSearch;
using Corvan::SearchStatus;
using Corvan::SearchWork;

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

std::string catch_up_again(const std::string& folder) {
  if (!open_store_in(folder)) return "the store does not open";
  MessageSearch search{cvrtc::Pathname(folder)};
  const std::string wrong = catch_up_all(search);
  the_store().close_db();
  return wrong;
}

TEST_F(SearchMixedFiles, ReadOnlyIndex) {
  save_many(1, 100);
  build_index();
  close();
  EXPECT_EQ(without_privileges([this] { return work_without_index(folder.path(), index()); }), "");
  EXPECT_EQ(without_privileges([this] { return catch_up_again(folder.path()); }), "");
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
