// The search index of an encrypted store, and of one that is converted.

#include <filesystem>
#include <string>

#include "tests/tools/encrypted_fixture.h"

namespace corvan_test {
namespace {

class EncryptedSearchIndexTest : public EncryptedTest {
 protected:
  std::string index_file() const { return store() + "/corvan-search"; }

  std::string deleted() const {
    return "corvan: the old search index was deleted; make a new one with 'corvan search-index " +
           store() + "'\n";
  }

  void make_index(const std::string& key) {
    const Outcome outcome = run_with(key, {"search-index", store()});
    ASSERT_EQ(outcome.status, 0) << outcome.err;
    ASSERT_TRUE(file_exists(index_file()));
  }

  // Searches with and without the index, and expects one result, and `note` on standard error.
  void expect_equal(const std::string& key, const std::string& note) {
    const Outcome with = run_with(key, {"search", store(), "planted 17*"});
    EXPECT_EQ(with.err.compare(0, note.size(), note), 0) << with.err;
    EXPECT_EQ(with.status, 0);
    EXPECT_EQ(run_with(key, {"search", store(), "planted 17*", "--no-index"}).out, with.out);
  }

  // Expects a conversion that succeeds and leaves no index.
  void expect_deleted(const std::string& key, const Arguments& arguments) {
    const Outcome outcome = run_with(key, arguments);
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.err, deleted());
    EXPECT_FALSE(file_exists(index_file()));
    EXPECT_FALSE(file_exists(index_file() + "-wal"));
  }
};

TEST_F(EncryptedSearchIndexTest, IsEncryptedWithTheKeyOfTheStore) {
  make_store();
  make_index(key());
  expect_no_plain_file("search-index");
  expect_equal(key(), "corvan: used the search index\n");
  expect_no_plain_file("search");
}

TEST_F(EncryptedSearchIndexTest, IsDeletedByAConversion) {
  make_plain_store();
  make_index("");
  expect_deleted(key(), {"encrypt", store()});
  expect_no_plain_file("encrypt");
  make_index(key());
  expect_deleted(key(), {"rekey", store(), "--new-key-file", other()});
  make_index(other());
  expect_deleted(other(), {"decrypt", store()});
  EXPECT_EQ(run_with(key(), {"encrypt", store()}).err, "");
}

TEST_F(EncryptedSearchIndexTest, IsKeptIfTheStoreWasConvertedAlready) {
  make_store();
  make_index(key());
  EXPECT_EQ(run_with(key(), {"encrypt", store()}).err, "");
  expect_equal(key(), "corvan: used the search index\n");
}

// As after a conversion that was killed before it deleted the index.
TEST_F(EncryptedSearchIndexTest, APlainOneBesideAnEncryptedStoreIsDeleted) {
  make_plain_store();
  make_index("");
  const std::string plain = read_file(index_file());
  expect_deleted(key(), {"encrypt", store()});
  write_file(index_file(), plain);
  expect_equal(key(), "corvan: the search index is empty, damaged or of another store; ");
  expect_deleted(key(), {"encrypt", store()});
  write_file(index_file(), plain);
  make_index(key());
  expect_no_plain_file("search-index");
}

TEST_F(EncryptedSearchIndexTest, OneWithAnotherKeyIsMadeAnew) {
  make_store();
  make_index(key());
  const std::string old = read_file(index_file());
  expect_deleted(key(), {"rekey", store(), "--new-key-file", other()});
  write_file(index_file(), old);
  expect_equal(other(), "corvan: the search index is empty, damaged or of another store; ");
  make_index(other());
  expect_equal(other(), "corvan: used the search index\n");
}

TEST_F(EncryptedSearchIndexTest, AConversionReportsOneThatCannotBeDeleted) {
  make_plain_store();
  std::filesystem::create_directory(index_file());
  const Outcome outcome = run_with(key(), {"encrypt", store()});
  EXPECT_EQ(outcome.status, 2);
  EXPECT_EQ(outcome.out.find(file() + ": encrypted, "), 0U) << outcome.out;
  EXPECT_EQ(outcome.err.find("corvan: " + index_file() + ": belongs to the store before its "), 0U)
      << outcome.err;
}

}  // namespace
}  // namespace corvan_test
