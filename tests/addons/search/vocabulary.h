// Texts of messages in many scripts, from a small vocabulary, and queries that find them.

#ifndef TESTS_ADDONS_SEARCH_VOCABULARY_H_
#define TESTS_ADDONS_SEARCH_VOCABULARY_H_

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace corvan_test {

class Vocabulary {
 public:
  explicit Vocabulary(uint64_t seed) : random_(seed) {}

  // From 0 to before `count`.
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }
  bool one_in(std::size_t count) { return below(count) == 0; }

  // A message. Some are empty, long, or not valid UTF-8.
  std::string text();
  // A query: words, beginnings of words, characters, phrases. Some contain nothing to search for.
  std::string query();

 private:
  const std::string& word();
  const std::string& separator();
  std::string term();
  std::string part_of_word();

  std::mt19937_64 random_;
};

// Queries of each kind, for stores with texts of this vocabulary.
const std::vector<std::string>& all_queries();
// A few of them, for tests that compare after each of many steps.
const std::vector<std::string>& few_queries();

}  // namespace corvan_test

#endif  // TESTS_ADDONS_SEARCH_VOCABULARY_H_
