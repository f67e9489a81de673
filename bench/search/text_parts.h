#ifndef BENCH_SEARCH_TEXT_PARTS_H_
#define BENCH_SEARCH_TEXT_PARTS_H_

#include <string_view>
#include <vector>

namespace corvan_bench {

// The parts of a text that queries are made of. They point into the text.
struct TextParts {
  // Runs of ASCII letters and digits, without those beside another letter.
  std::vector<std::string_view> words;
  // Runs of Chinese characters, one element per character.
  std::vector<std::vector<std::string_view>> chinese;
};

TextParts parts_of(std::string_view text);

// Whether exactly one space separates the words, the second of which follows the first.
bool are_neighbours(std::string_view first, std::string_view second);

// `count` characters of a run from `begin` on.
std::string_view part_of_run(const std::vector<std::string_view>& run, std::size_t begin,
                             std::size_t count);

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_TEXT_PARTS_H_
