// The sets of pages and row ids that salvage keeps.

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "tools/salvage/coverage.h"
#include "tools/salvage/file/page_set.h"
#include "tools/salvage/page_map.h"

namespace corvan_test {
namespace {

using corvan_tool::BadPageList;
using corvan_tool::BadPages;
using corvan_tool::IdRange;
using corvan_tool::IdRanges;
using corvan_tool::PageRange;
using corvan_tool::PageSet;

constexpr std::uint32_t kLastPage = std::numeric_limits<std::uint32_t>::max();

TEST(PageSetTest, GivesPlacesToItsOwnPagesOnly) {
  const PageSet pages({{7, 9}, {2, 3}, {9, 9}, {4, 4}, {kLastPage, kLastPage}});
  EXPECT_EQ(pages.count(), 7U);
  EXPECT_EQ(pages.place_of(1), std::nullopt);
  EXPECT_EQ(pages.place_of(2), 0U);
  EXPECT_EQ(pages.place_of(4), 2U);
  EXPECT_EQ(pages.place_of(5), std::nullopt);
  EXPECT_EQ(pages.place_of(9), 5U);
  EXPECT_EQ(pages.place_of(kLastPage - 1), std::nullopt);
  EXPECT_EQ(pages.place_of(kLastPage), 6U);
  std::vector<std::uint32_t> visited;
  pages.each([&visited](std::uint32_t page) { visited.push_back(page); });
  EXPECT_EQ(visited, (std::vector<std::uint32_t>{2, 3, 4, 7, 8, 9, kLastPage}));
}

TEST(PageSetTest, ListsGaps) {
  const PageSet pages({{2, 4}, {7, 9}, {kLastPage, kLastPage}});
  const auto gaps = [&pages](std::uint32_t first, std::uint32_t last) {
    std::string text;
    for (const PageRange& range : pages.gaps(first, last)) {
      text += std::to_string(range.first) + "-" + std::to_string(range.last) + " ";
    }
    return text;
  };
  EXPECT_EQ(gaps(1, 10), "1-1 5-6 10-10 ");
  EXPECT_EQ(gaps(3, 8), "5-6 ");
  EXPECT_EQ(gaps(10, kLastPage), "10-4294967294 ");
  EXPECT_EQ(PageSet().gaps(1, 0).size(), 0U);
  EXPECT_EQ(PageSet().gaps(1, kLastPage).size(), 1U);
}

TEST(BadPageListTest, ListsTheFirstFaultOfAPage) {
  BadPageList list;
  list.add(5, "a");
  list.add(3, "b");
  for (int i = 0; i < 10000; ++i) list.add(5, "c");
  list.add(4, "a");
  list.add(PageRange{kLastPage - 1, kLastPage}, "d");
  std::string text;
  for (const BadPages& pages : list.list()) {
    text += std::to_string(pages.first) + "-" + std::to_string(pages.last) + pages.what + " ";
  }
  EXPECT_EQ(text, "3-3b 4-5a 4294967294-4294967295d ");
}

TEST(IdRangesTest, JoinsAdjacentRanges) {
  IdRanges ids;
  EXPECT_TRUE(ids.empty());
  for (const IdRange& range :
       {IdRange{5, 7}, {1, 2}, {7, 8}, {3, 3}, {10, 9}, {20, 30}, {2, 3}, {25, 40}}) {
    ids.add(range);
  }
  EXPECT_EQ((std::vector<IdRange>(ids.begin(), ids.end())),
            (std::vector<IdRange>{{1, 3}, {5, 8}, {20, 40}}));
  EXPECT_FALSE(ids.has(1));
  EXPECT_TRUE(ids.has(2));
  EXPECT_TRUE(ids.has(3));
  EXPECT_FALSE(ids.has(4));
  EXPECT_TRUE(ids.has(40));
  EXPECT_FALSE(ids.has(41));
  ids.add({std::numeric_limits<std::int64_t>::min(), std::numeric_limits<std::int64_t>::max()});
  EXPECT_EQ(std::distance(ids.begin(), ids.end()), 1);
  EXPECT_TRUE(ids.has(-5));
}

}  // namespace
}  // namespace corvan_test
