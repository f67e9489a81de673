// Damage that makes loops endless or hides a part for ever: rows out of order, a file without
// auto_vacuum, two parts with one table, a part that cannot be opened.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/encryption.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

using Corvan::MessageSearch;
using Corvan::SearchStatus;
using Corvan::SearchWork;
using std::chrono::microseconds;

constexpr std::size_t kPageBytes = 4096;

std::size_t number_at(const std::string& bytes, std::size_t at, std::size_t size) {
  std::size_t number = 0;
  for (std::size_t i = 0; i < size; ++i) {
    number = number << 8U | static_cast<unsigned char>(bytes[at + i]);
  }
  return number;
}

// The places of the table's dividers in the file: those between the pages with its rows. Each is a
// varint of two bytes, behind the number of a page.
std::vector<std::size_t> dividers(const std::string& file, const std::string& table) {
  const auto root = rows(file, "select rootpage from sqlite_master where name='" + table + "'");
  const std::string bytes = read_file(file);
  const std::size_t page = (std::stoul(root.at(0)) - 1) * kPageBytes;
  EXPECT_EQ(bytes[page], 5) << "the table has a single page";
  std::vector<std::size_t> places;
  for (std::size_t i = 0; i < number_at(bytes, page + 3, 2); ++i) {
    const std::size_t place = page + number_at(bytes, page + 12 + 2 * i, 2) + 4;
    if ((bytes[place] & 0x80) != 0 && (bytes[place + 1] & 0x80) == 0) places.push_back(place);
  }
  return places;
}

class SearchDamagedOrder : public SearchTest {
 protected:
  void SetUp() override {
    SearchTest::SetUp();
    save_many(1, 1600);
    build_index();
    close();
    index_ = index_files();
  }

  // Each call returns, and after a few hundred of them the work is complete or has failed.
  void expect_end() const {
    MessageSearch search(path());
    const auto ends = [](const auto& step) {
      for (int i = 0; i < 1000; ++i) {
        const SearchWork work = step();
        if (work.complete || work.status != SearchStatus::kOk) return true;
      }
      return false;
    };
    for (int pass = 0; pass < 2; ++pass) {
      EXPECT_TRUE(ends([&] { return search.catch_up(microseconds(0)); }));
      EXPECT_TRUE(ends([&] { return search.sweep(microseconds(0)); }));
    }
  }

  void expect_recovery() const {
    expect_end();
    MessageSearch search(path());
    EXPECT_EQ(mend_all(search), "");
    EXPECT_EQ(compare(search, truth(), few_queries()), "");
  }

  void put_index() const { replace_files(folder.path(), "corvan-search", index_); }

  // Whether the next call after a search has made the index again.
  bool is_made_again() const {
    MessageSearch search(path());
    EXPECT_EQ(compare(search, truth(), few_queries()), "");
    EXPECT_EQ(search.open(), SearchStatus::kOk);
    return search.progress().indexed == 0;
  }

  FileSet index_;
};

TEST_F(SearchDamagedOrder, Fingerprints) {
  SKIP_IF_ENCRYPTED("changes a byte of a row");
  const std::vector<std::size_t> places = dividers(index(), "fingerprint");
  ASSERT_FALSE(places.empty());
  const std::string sound = read_file(index());
  for (const unsigned first : {0x80U, 0x83U, 0x85U, 0x89U, 0x8CU, 0xFFU}) {
    std::string bytes = sound;
    bytes[places.front()] = static_cast<char>(first);
    put_index();
    write_file(index(), bytes);
    expect_recovery();
  }
}

TEST_F(SearchDamagedOrder, Store) {
  SKIP_IF_ENCRYPTED("changes a byte of a row");
  const std::vector<std::size_t> places = dividers(file(), "t_message");
  ASSERT_GT(places.size(), 8U);
  const std::string sound = read_file(file());
  for (std::size_t i = 0; i < places.size(); i += places.size() / 8) {
    std::string bytes = sound;
    bytes[places[i] + 1] ^= 0x40;
    write_file(file(), bytes);
    put_index();
    expect_end();
    MessageSearch::remove(path());
    expect_end();
  }
}

TEST_F(SearchDamagedOrder, NoAutoVacuum) {
  SKIP_IF_ENCRYPTED("changes a field of the file's header");
  std::string bytes = read_file(index());
  bytes.replace(52, 4, 4, '\0');  // the largest root page; 0 without auto_vacuum
  write_file(index(), bytes);
  plant(file(), "delete from t_message where id%2=0");
  expect_recovery();
}

TEST_F(SearchDamagedOrder, TwoPartsWithOneTable) {
  plant(
      index(),
      "insert into shard select 900,number,messages,0,0,0,0,0,0,hash from shard where first_id=1");
  EXPECT_TRUE(is_made_again());
  expect_recovery();
}

TEST_F(SearchDamagedOrder, PartThatCannotBeOpened) {
  const auto number = rows(index(), "select number from shard");
  plant(index(), "drop table shard_" + number.at(0) + "_config");
  EXPECT_TRUE(is_made_again());
  expect_recovery();
}

}  // namespace

}  // namespace corvan_test
