// Which pages of a store's file hold what, as SQLite itself tells it, and ways to damage them.

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
  std::map<std::size_t, std::vector<int64_t>> rows;  // row ids by each page they lie on
  std::vector<std::size_t> inner;                    // the tree's other pages
};

// Of a table of a sound file. Asks SQLite's table dbstat, which throws where it was built without.
StorePages store_pages(const std::string& file, const std::string& table);

// The rows that lie on none of these pages.
std::set<int64_t> rows_beside(const StorePages& pages, const std::set<std::size_t>& bad);

// The same on every platform.
std::string random_bytes(std::mt19937_64& random, std::size_t count);

// A number from 0 up to, but without, `end`.
std::size_t random_below(std::mt19937_64& random, std::size_t end);

// So many different pages of the file.
std::set<std::size_t> random_pages(std::mt19937_64& random, const std::string& content,
                                   std::size_t count);

// Puts `bytes` in place of what stands at `at` in a page; the first is 1.
void overwrite(std::string& content, std::size_t page, std::size_t at, const std::string& bytes);

// Turns a bit of a page.
void flip_bit(std::string& content, std::size_t page, std::size_t bit);

}  // namespace corvan_test

#endif  // TESTS_TOOLS_STORE_PAGES_H_
