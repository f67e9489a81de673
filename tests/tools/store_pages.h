// Which pages of a store's file hold which rows, according to SQLite, and ways to damage pages.

#ifndef TESTS_TOOLS_STORE_PAGES_H_
#define TESTS_TOOLS_STORE_PAGES_H_

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace corvan_test {

constexpr std::size_t kPageSize = 4096;

struct StorePages {
  std::map<std::size_t, std::vector<int64_t>> rows;  // page to the ids of the rows on it
  std::vector<std::size_t> inner;                    // the tree's other pages
};

// The pages of a table of a sound file. Throws if SQLite was built without dbstat.
StorePages store_pages(const std::string& file, const std::string& table);

// The rows that are on none of these pages.
std::set<int64_t> rows_beside(const StorePages& pages, const std::set<std::size_t>& bad);

// The same bytes on every platform.
std::string random_bytes(std::mt19937_64& random, std::size_t count);

// A number from 0 to `end` - 1.
std::size_t random_below(std::mt19937_64& random, std::size_t end);

// `count` different pages of the file.
std::set<std::size_t> random_pages(std::mt19937_64& random, const std::string& content,
                                   std::size_t count);

// Overwrites bytes of a page from offset `at` on. Pages count from 1.
void overwrite(std::string& content, std::size_t page, std::size_t at, const std::string& bytes);

// Flips a bit of a page.
void flip_bit(std::string& content, std::size_t page, std::size_t bit);

}  // namespace corvan_test

#endif  // TESTS_TOOLS_STORE_PAGES_H_
