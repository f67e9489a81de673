// Each allocation fails in turn. CORVAN_SEARCH_ALLOCATIONS is the number of allocations that are
// tried per case, at even distances.

#include <sqlite3.h>

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/faults/memory_faults.h"
#include "tests/support/bounds.h"
#include "tests/support/rows.h"
#include "tests/support/uncounted.h"

namespace corvan_test {

namespace {

using Corvan::MessageSearch;
using Corvan::SearchOptions;
using Corvan::SearchResults;
using Corvan::SearchStatus;
using Corvan::SearchWork;

constexpr int kIndexed = 60;
constexpr int kDeleted = 2;

bool is_shortage(SearchStatus status) {
  return status == SearchStatus::kNoMemory;
}

class SearchMemory : public SearchTest {
 protected:
  void SetUp() override {
    SearchTest::SetUp();
    save_many(1, kIndexed);
    build_index();
    indexed_ = index_files();
    save_many(2, 40);
    the_store().set_message_content(5, "other hello", "");
    the_store().delete_message({6, 7});
    truth_ = std::make_unique<Truth>(file());
  }

  // One call. Returns its status, and may complain about its results.
  using Call = std::function<SearchStatus(MessageSearch&, std::string&)>;

  // Makes each allocation of the call fail, with an object that is new or has been used, and an
  // index that exists or not. Afterwards the same object must do all of its work.
  void try_call(const Call& call) {
    for (const Memory memory : {Memory::kSqlite, Memory::kOwn}) {
      for (const bool with_index : {true, false}) {
        for (const bool used : {false, true}) {
          for (const bool once : {true, false}) try_case(call, memory, with_index, used, once);
        }
      }
    }
  }

  void try_case(const Call& call, Memory memory, bool with_index, bool used, bool once) {
    SCOPED_TRACE(std::string(memory == Memory::kSqlite ? "SQLite's" : "own") +
                 (with_index ? ", with index" : "") + (used ? ", used" : "") +
                 (once ? ", once" : ""));
    uint64_t all = 0;
    ASSERT_EQ(one(call, memory, 0, with_index, used, once, all), "");
    const uint64_t tries = bound("CORVAN_SEARCH_ALLOCATIONS", 6, 100000);
    const uint64_t step = std::max<uint64_t>(1, all / tries);
    for (uint64_t nth = 1 + all % step; nth <= all; nth += step) {
      uint64_t ignored = 0;
      ASSERT_EQ(one(call, memory, nth, with_index, used, once, ignored), "")
          << "allocation " << nth << " of " << all;
    }
  }

  std::string one(const Call& call, Memory memory, uint64_t nth, bool with_index, bool used,
                  bool once, uint64_t& count) {
    replace_files(folder.path(), "corvan-search", with_index ? indexed_ : FileSet());
    auto search = std::make_unique<MessageSearch>(path());
    if (used) {
      search->open();
      search->find("hello");
    }
    std::string wrong;
    arm_memory(memory, nth, once);
    const SearchStatus status = call(*search, wrong);
    disarm_memory();
    count = allocations();
    if (wrong.empty()) wrong = judge(status);
    if (wrong.empty() && with_index && search->progress().indexed < kIndexed - kDeleted) {
      wrong = "the index was dropped";
    }
    if (wrong.empty()) wrong = mend_all(*search);
    if (wrong.empty()) wrong = compare(*search, *truth_, few_queries());
    return wrong;
  }

  // SQLite does without some allocations.
  static std::string judge(SearchStatus status) {
    if (status == SearchStatus::kOk || (failed_allocations() > 0 && is_shortage(status))) return "";
    return "status " + std::to_string(static_cast<int>(status));
  }

  FileSet indexed_;
  std::unique_ptr<Truth> truth_;
};

TEST_F(SearchMemory, Open) {
  try_call([](MessageSearch& search, std::string&) { return search.open(); });
}

TEST_F(SearchMemory, Find) {
  const std::string query = "\"hello hello\" he* 天";
  const Hits all = truth_->hits("he*");
  const Hits some = truth_->hits("hello");
  const std::string short_query = "hello";
  SearchOptions options;
  options.limit = 1000;
  options.sender = "u01";
  options.object_names = {"CV:TxtMsg", "a kind whose name is long enough to be allocated"};
  try_call([&](MessageSearch& search, std::string& wrong) {
    search.find(query, options);
    const SearchResults results = search.find(short_query, options);
    const Uncounted uncounted;
    if (results.status != SearchStatus::kOk) {
      if (!results.hits.empty()) wrong = "hits with a failure";
      return results.status;
    }
    Hits hits;
    for (const auto& hit : results.hits) hits.emplace_back(hit.sent_time, hit.id);
    Hits expected = some;
    expected.erase(std::remove_if(expected.begin(), expected.end(),
                                  [](const auto& hit) { return hit.second == 5; }),
                   expected.end());
    hits.erase(
        std::remove_if(hits.begin(), hits.end(), [](const auto& hit) { return hit.second == 5; }),
        hits.end());
    if (!results.next && hits != expected) wrong = "other hits than the scan";
    return results.status;
  });
}

TEST_F(SearchMemory, CatchUp) {
  try_call([](MessageSearch& search, std::string& wrong) {
    const SearchWork work = search.catch_up(kPlenty);
    const Uncounted uncounted;
    if (work.status == SearchStatus::kOk && !work.complete) wrong = "not complete";
    return work.status;
  });
}

TEST_F(SearchMemory, Changed) {
  try_call([](MessageSearch& search, std::string&) { return search.changed(5); });
}

TEST_F(SearchMemory, Sweep) {
  try_call([](MessageSearch& search, std::string& wrong) {
    const SearchWork work = search.sweep(kPlenty);
    const Uncounted uncounted;
    if (work.status == SearchStatus::kOk && !work.complete) wrong = "not complete";
    return work.status;
  });
}

TEST_F(SearchMemory, Progress) {
  try_call([](MessageSearch& search, std::string&) { return search.progress().status; });
}

// Neither a call nor an object keeps memory.
TEST_F(SearchMemory, NothingLeaks) {
  const auto use = [this](uint64_t nth) {
    replace_files(folder.path(), "corvan-search", indexed_);
    MessageSearch search(path());
    arm_memory(Memory::kBoth, nth, true);
    search.find("hello");
    search.catch_up(kPlenty);
    search.changed(3);
    search.sweep(kPlenty);
    search.progress();
    MessageSearch::snippet("hello 电影", "hello 影");
    disarm_memory();
    return allocations();
  };
  log.take();
  const uint64_t all = use(0);
  use(1);
  log.take();
  const uint64_t step = std::max<uint64_t>(1, all / bound("CORVAN_SEARCH_ALLOCATIONS", 40, 100000));
  for (uint64_t nth = 1; nth < all; nth += step) {
    const int64_t blocks = own_blocks();
    const sqlite3_int64 bytes = sqlite3_memory_used();
    use(nth);
    log.take();
    ASSERT_EQ(own_blocks(), blocks) << nth << " of " << all;
    ASSERT_EQ(sqlite3_memory_used(), bytes) << nth << " of " << all;
  }
}

TEST_F(SearchMemory, SnippetAndRemove) {
  const std::string text = "hello 电影 hello";
  const std::string query = "hello \"电影\"";
  arm_memory(Memory::kBoth, 0, true);
  MessageSearch::snippet(text, query);
  const uint64_t all = allocations();
  for (uint64_t nth = 1; nth <= all; ++nth) {
    arm_memory(Memory::kBoth, nth, true);
    const auto ranges = MessageSearch::snippet(text, query);
    disarm_memory();
    EXPECT_TRUE(ranges.empty() || ranges.size() == 3) << nth;
  }
  const cvrtc::Pathname place = path();
  for (uint64_t nth = 1;; ++nth) {
    replace_files(folder.path(), "corvan-search", indexed_);
    arm_memory(Memory::kBoth, nth, true);
    const bool removed = MessageSearch::remove(place);
    disarm_memory();
    EXPECT_TRUE(!removed || index_files().empty()) << nth;
    if (failed_allocations() == 0) break;
  }
}

}  // namespace

}  // namespace corvan_test
