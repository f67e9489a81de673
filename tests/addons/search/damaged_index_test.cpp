// An index that is damaged at random, and a file system that fails. Whatever happens, no hit is
// false and the store stays as it is; afterwards a sweep mends everything. CORVAN_SEARCH_SEED is
// the seed, CORVAN_SEARCH_DAMAGES the number of damaged files, CORVAN_SEARCH_FAULTS the number of
// failing calls that are tried.

#include <algorithm>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "tests/addons/search/index_faults.h"
#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/bounds.h"
#include "tests/support/rows.h"

namespace corvan_test {

namespace {

namespace fs = std::filesystem;

using Corvan::MessageSearch;
using Corvan::SearchStatus;
using std::chrono::microseconds;

constexpr int kMessages = 150;

class SearchDamage : public SearchTest {
 protected:
  void SetUp() override {
    SearchTest::SetUp();
    save_many(1, kMessages);
    build_index();
    close();
    store_bytes_ = read_file(file());
    index_ = index_files();
  }

  // Puts the closed store and its sound index back.
  void restore() const { replace_files(folder.path(), "corvan-search", index_); }

  std::string recovers() const {
    MessageSearch search(path());
    std::string wrong = mend_all(search);
    if (wrong.empty()) wrong = compare(search, truth_, few_queries());
    if (wrong.empty() && search.sweep(kPlenty).mended != 0) wrong = "mended twice";
    return wrong;
  }

  bool store_is_as_before() const { return read_file(file()) == store_bytes_; }

  std::string store_bytes_;
  FileSet index_;
  Truth truth_{file()};
};

// Overwrites bytes, runs of bytes, or whole pages; or swaps two pages.
std::string damaged(std::string bytes, Vocabulary& random) {
  constexpr std::size_t kPage = 4096;
  const std::size_t pages = bytes.size() / kPage;
  const auto any_byte = [&] { return static_cast<char>(random.below(256)); };
  for (std::size_t i = 1 + random.below(3); i > 0; --i) {
    const std::size_t kind = random.below(5);
    const std::size_t page = random.below(pages) * kPage;
    const std::size_t at = random.below(bytes.size());
    if (kind == 0) bytes[at] = any_byte();
    if (kind == 1) {
      for (std::size_t j = at; j < std::min(bytes.size(), at + 64); ++j) bytes[j] = any_byte();
    }
    if (kind == 2) std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(page), kPage, '\0');
    if (kind == 3) {
      for (std::size_t j = page; j < page + kPage; ++j) bytes[j] = any_byte();
    }
    if (kind == 4) bytes.replace(page, kPage, bytes.substr(random.below(pages) * kPage, kPage));
  }
  return bytes;
}

TEST_F(SearchDamage, DamagedIndex) {
  const uint64_t seed = setting("CORVAN_SEARCH_SEED", 1);
  const uint64_t rounds = bound("CORVAN_SEARCH_DAMAGES", 100, 3000);
  const Truth truth(file());
  truth_ = truth;
  int missing = 0;
  for (uint64_t round = seed; round < seed + rounds; ++round) {
    const std::string where =
        "CORVAN_SEARCH_SEED=" + std::to_string(round) + " CORVAN_SEARCH_DAMAGES=1";
    Vocabulary random(round);
    restore();
    write_file(index(), damaged(read_file(index()), random));
    {
      MessageSearch search(path());
      const std::string wrong = compare(search, truth_, few_queries(), truth_.ids());
      ASSERT_EQ(wrong, "") << where;
      if (!compare(search, truth_, few_queries()).empty()) ++missing;
    }
    ASSERT_EQ(recovers(), "") << where;
    ASSERT_TRUE(store_is_as_before()) << where;
  }
  // Damage that SQLite does not notice can hide messages until the sweep.
  RecordProperty("before_the_sweep_missing_in", missing);
}

TEST_F(SearchDamage, EachByteOfTheHeader) {
  truth_ = truth();
  const std::string sound = index_.at("corvan-search");
  for (std::size_t at = 0; at < 100; ++at) {
    for (const int value : {0, 3, 255}) {
      FileSet files = index_;
      files["corvan-search"][at] = static_cast<char>(value);
      replace_files(folder.path(), "corvan-search", files);
      ASSERT_EQ(recovers(), "") << "byte " << at << ": " << value;
    }
  }
  EXPECT_TRUE(store_is_as_before());
}

TEST_F(SearchDamage, TwoShardsWithOneTable) {
  truth_ = truth();
  plant(index(), "update shard set building=number");
  EXPECT_EQ(recovers(), "");
}

TEST_F(SearchDamage, NumbersOfAShard) {
  truth_ = truth();
  for (const std::string column : {"first_id", "number", "messages", "stale", "unmerged",
                                   "building", "built_to", "stale_built", "hash"}) {
    for (const char* const change : {"+1", "-5", "+2048"}) {
      restore();
      plant(index(), "update shard set " + column + "=" + column + change);
      {
        MessageSearch search(path());
        ASSERT_EQ(search.open(), SearchStatus::kOk);
        EXPECT_EQ(search.progress().indexed, 0) << column << change << ": not noticed";
      }
      EXPECT_EQ(recovers(), "") << column << change;
    }
  }
}

// Only find() looks at the tables.
TEST_F(SearchDamage, ShardWithoutTable) {
  truth_ = truth();
  plant(index(), "update shard set number=99");
  MessageSearch search(path());
  EXPECT_EQ(compare(search, truth_, "hello", {}), "");
  ASSERT_EQ(search.open(), SearchStatus::kOk);
  EXPECT_EQ(search.progress().indexed, 0) << "the index was not created again";
  EXPECT_EQ(recovers(), "");
}

// SQLite then cannot shorten the file.
TEST_F(SearchDamage, IndexWithoutIncrementalVacuum) {
  ASSERT_TRUE(open());
  save_many(2, 3000);
  build_index();
  std::string bytes = read_file(index());
  bytes[55] = 0;
  write_file(index(), bytes);
  the_store().clear_message_by_timestamp(std::numeric_limits<int64_t>::max(), false);
  MessageSearch search(path());
  EXPECT_EQ(mend_all(search), "");
}

TEST_F(SearchDamage, IndexDamagedUnderAnOpenObject) {
  const uint64_t seed = setting("CORVAN_SEARCH_SEED", 1);
  const uint64_t rounds = bound("CORVAN_SEARCH_DAMAGES", 40, 1000);
  truth_ = Truth(file());
  for (uint64_t round = seed; round < seed + rounds; ++round) {
    const std::string where = "CORVAN_SEARCH_SEED=" + std::to_string(round);
    Vocabulary random(round);
    restore();
    {
      MessageSearch search(path());
      ASSERT_EQ(search.find("hello").status, SearchStatus::kOk);
      write_file(index(), damaged(read_file(index()), random));
      ASSERT_EQ(compare(search, truth_, few_queries(), truth_.ids()), "") << where;
      search.changed(static_cast<int64_t>(1 + random.below(kMessages)));
      search.sweep(kPlenty);
      search.catch_up(kPlenty);
      ASSERT_EQ(compare(search, truth_, few_queries(), truth_.ids()), "") << where;
    }
    ASSERT_EQ(recovers(), "") << where;
    ASSERT_TRUE(store_is_as_before()) << where;
  }
}

// ---- A file system that fails -------------------------------------------------------------------

class SearchFaults : public SearchDamage {
 protected:
  // What a client does, with the first call at an index that does not exist, or exists. Returns a
  // complaint. find() must work whatever happens to the index.
  std::string work(IndexFaults::Files files) const {
    MessageSearch search(path());
    const bool complete = files == IndexFaults::Files::kIndex;
    const auto look = [&] {
      return complete ? compare(search, truth_, few_queries()) : look_at(search);
    };
    std::string wrong = look();
    for (int i = 0; i < 2 && wrong.empty(); ++i) {
      search.catch_up(kPlenty);
      wrong = look();
      search.changed(7);
      search.sweep(kPlenty);
      search.progress();
      if (wrong.empty()) wrong = look();
    }
    return wrong;
  }

  // If the store fails, results may be incomplete, and the status says so.
  std::string look_at(MessageSearch& search) const {
    for (const std::string& query : few_queries()) {
      Corvan::SearchOptions options;
      options.limit = 100000;
      const auto results = search.find(query, options);
      Hits hits;
      for (const auto& hit : results.hits) hits.emplace_back(hit.sent_time, hit.id);
      const Hits& all = truth_.hits(query);
      if (!std::includes(all.begin(), all.end(), hits.begin(), hits.end(), std::greater<>())) {
        return "false hit of " + query;
      }
      if (results.status == SearchStatus::kOk && !results.next && hits != all) {
        return "missed, and reported as complete: " + query;
      }
    }
    return "";
  }

  // Makes the calls fail one after the other, all of them or an even share.
  void try_faults(bool with_index, IndexFaults::Files files, IndexFaults::Kind kind) {
    truth_ = Truth(file());
    IndexFaults faults;
    const auto prepare = [&] {
      with_index ? restore() : replace_files(folder.path(), "corvan-search", {});
    };
    prepare();
    faults.arm(files, 0, kind);
    ASSERT_EQ(work(files), "");
    const uint64_t calls = faults.calls();
    const uint64_t tries = bound("CORVAN_SEARCH_FAULTS", 20, 100000);
    const uint64_t step = std::max<uint64_t>(1, calls / tries);
    for (uint64_t nth = 1; nth <= calls; nth += nth < 12 ? 1 : step) {
      const std::string where = "call " + std::to_string(nth) + " of " + std::to_string(calls);
      prepare();
      faults.arm(files, nth, kind);
      ASSERT_EQ(work(files), "") << where;
      faults.disarm();
      ASSERT_EQ(recovers(), "") << where;
      ASSERT_TRUE(store_is_as_before()) << where;
    }
  }
};

TEST_F(SearchFaults, OneCallForANewIndexFails) {
  try_faults(false, IndexFaults::Files::kIndex, IndexFaults::Kind::kOnce);
}

TEST_F(SearchFaults, AllLaterCallsForANewIndexFail) {
  try_faults(false, IndexFaults::Files::kIndex, IndexFaults::Kind::kFromThenOn);
}

TEST_F(SearchFaults, OneCallForAnExistingIndexFails) {
  try_faults(true, IndexFaults::Files::kIndex, IndexFaults::Kind::kOnce);
}

TEST_F(SearchFaults, AllLaterCallsForAnExistingIndexFail) {
  try_faults(true, IndexFaults::Files::kIndex, IndexFaults::Kind::kFromThenOn);
}

TEST_F(SearchFaults, OneCallForTheStoreFails) {
  try_faults(true, IndexFaults::Files::kStore, IndexFaults::Kind::kOnce);
}

TEST_F(SearchFaults, AllLaterCallsForTheStoreFail) {
  try_faults(true, IndexFaults::Files::kStore, IndexFaults::Kind::kFromThenOn);
}

// An index that cannot be read at the moment is not deleted.
TEST_F(SearchFaults, IndexIsKeptWhenReadingItFails) {
  truth_ = Truth(file());
  IndexFaults faults;
  for (const uint64_t nth : {1U, 2U, 3U, 5U, 8U, 13U, 21U, 34U}) {
    restore();
    faults.arm(IndexFaults::Files::kIndex, nth, IndexFaults::Kind::kFromThenOn);
    {
      MessageSearch search(path());
      search.open();
      EXPECT_EQ(compare(search, truth_, few_queries()), "") << nth;
    }
    faults.disarm();
    EXPECT_EQ(MessageSearch(path()).progress().waiting, 0) << nth;
  }
}

TEST_F(SearchFaults, FullDisk) {
  truth_ = Truth(file());
  IndexFaults faults;
  for (const bool with_index : {false, true}) {
    with_index ? restore() : replace_files(folder.path(), "corvan-search", {});
    ASSERT_TRUE(open());
    save_many(5, 100);
    const Truth now = truth();
    faults.fill_disk(true);
    {
      MessageSearch search(path());
      EXPECT_EQ(compare(search, now, few_queries()), "");
      EXPECT_EQ(search.catch_up(kPlenty).status, SearchStatus::kIndexError);
      EXPECT_EQ(compare(search, now, few_queries()), "");
      search.changed(3);
      search.sweep(kPlenty);
      EXPECT_EQ(compare(search, now, few_queries()), "");
      faults.fill_disk(false);
      EXPECT_EQ(mend_all(search), "");
      EXPECT_EQ(compare(search, now, all_queries()), "");
    }
    close();
  }
}

}  // namespace

}  // namespace corvan_test
