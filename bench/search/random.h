#ifndef BENCH_SEARCH_RANDOM_H_
#define BENCH_SEARCH_RANDOM_H_

#include <cstddef>
#include <cstdint>

namespace corvan_bench {

// Spreads a number over all 64 bits. Different numbers give different results.
inline std::uint64_t scrambled(std::uint64_t number) {
  number += 0x9E3779B97F4A7C15U;
  number = (number ^ (number >> 30U)) * 0xBF58476D1CE4E5B9U;
  number = (number ^ (number >> 27U)) * 0x94D049BB133111EBU;
  return number ^ (number >> 31U);
}

// Random numbers. Equal seeds give equal numbers, with every library of C++.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(scrambled(seed)) {}

  std::uint64_t next() { return scrambled(state_++); }
  // From 0 to count - 1.
  std::size_t below(std::size_t count) { return static_cast<std::size_t>(next() % count); }
  // Above 0, at most 1.
  double unit() { return static_cast<double>((next() >> 11U) + 1) / 9007199254740992.0; }
  bool chance(double probability) { return unit() <= probability; }

  template <typename List>
  const typename List::value_type& one_of(const List& list) {
    return list[below(list.size())];
  }

 private:
  std::uint64_t state_;
};

}  // namespace corvan_bench

#endif  // BENCH_SEARCH_RANDOM_H_
