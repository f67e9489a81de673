// Random runs against a scan by the same rule. CORVAN_SEARCH_SEED is the seed of the first run,
// CORVAN_SEARCH_RUNS the number of runs.

#include <gtest/gtest.h>

#include <algorithm>

#include "tests/addons/search/search_fixture.h"
#include "tests/addons/search/search_run.h"
#include "tests/addons/search/vocabulary.h"
#include "tests/support/bounds.h"

namespace corvan_test {

namespace {

using Corvan::MessageSearch;

constexpr std::size_t kSteps = 250;

// Otherwise the runs would prove little.
TEST(SearchVocabulary, QueriesFindSomeMessagesAndNotAll) {
  const TemporaryFolder folder;
  ASSERT_TRUE(open_store_in(folder.path()));
  save_many(1, 300);
  const Truth truth(folder.file("corvan"));
  Vocabulary vocabulary(2);
  int found = 0;
  for (int i = 0; i < 300; ++i) {
    const std::size_t hits = truth.hits(vocabulary.query()).size();
    if (hits > 0 && hits < truth.messages().size()) ++found;
  }
  EXPECT_GT(found, 150);
  for (const std::string& query : few_queries()) EXPECT_FALSE(truth.hits(query).empty()) << query;
  Corvan::CvDbSingleton::delete_instance();
}

TEST(SearchDifferential, FindsWhatAScanFinds) {
  prefer_memory();
  const uint64_t first = setting("CORVAN_SEARCH_SEED", 1);
  const uint64_t runs = bound("CORVAN_SEARCH_RUNS", 6, 300);
  const LogCapture log(cvrtc::LS_WARNING);
  const TimeLimit limit;
  for (uint64_t seed = first; limit.given() ? !limit.passed() : seed < first + runs; ++seed) {
    const TemporaryFolder folder;
    ASSERT_TRUE(open_store_in(folder.path()));
    const std::string wrong = SearchRun(folder.path(), seed).run(kSteps);
    Corvan::CvDbSingleton::delete_instance();
    ASSERT_EQ(wrong, "") << "CORVAN_SEARCH_SEED=" << seed << " CORVAN_SEARCH_RUNS=1";
  }
}

}  // namespace

}  // namespace corvan_test
