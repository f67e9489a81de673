// Words with natural frequencies.

#ifndef BENCH_SEARCH_VOCABULARY_H_
#define BENCH_SEARCH_VOCABULARY_H_

#include <cstdint>
#include <string>
#include <vector>

#include "bench/search/random.h"

namespace corvan_bench {

// Draws words by frequency; a word is given by its rank, from 1, the most frequent one. The first
// 10,000 ranks have the frequencies of Zipf and Mandelbrot. One word in 25 is a rarer one, from a
// tail without end: so the vocabulary grows with the text as Heaps observed, by about the power 0.6
// of the number of words. The parameters fit English chats.
class WordRanks {
 public:
  WordRanks();
  std::uint64_t draw(Random& random) const;

 private:
  std::vector<double> cumulative_;  // of the first ranks
};

// The Latin word of this rank: syllables, more of them if the word is rare. Different ranks have
// different words.
std::string latin_word(std::uint64_t rank);

// The Chinese word of this rank: one character if it is very frequent, mostly two otherwise. The
// characters have natural frequencies.
std::string chinese_word(std::uint64_t rank);

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_VOCABULARY_H_
