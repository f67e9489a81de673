// A store and an index that do not belong together, and what must then hold.

#ifndef TESTS_ADDONS_SEARCH_MIXED_FILES_H_
#define TESTS_ADDONS_SEARCH_MIXED_FILES_H_

#include <cstdint>
#include <iterator>

#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/rows.h"

namespace corvan_test {

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
  // Saves 200 messages and indexes them. Returns a copy of the store's files; the store is open.
  FileSet indexed_store() const {
    save_many(1, 200);
    build_index();
    close();
    const FileSet files = store_files();
    EXPECT_TRUE(open());
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
    Corvan::MessageSearch search(path());
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

}  // namespace corvan_test

#endif  // TESTS_ADDONS_SEARCH_MIXED_FILES_H_
