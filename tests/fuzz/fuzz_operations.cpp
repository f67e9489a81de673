// Entry point of the fuzzer for sequences of operations on the store and the model. Mutation and
// crossover work on whole operations: one byte more or less would change all that follow.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <random>
#include <vector>

#include "tests/fuzz/targets.h"

using corvan_test::kOperationBytes;

namespace {

using Operation = std::array<uint8_t, kOperationBytes>;
using Operations = std::vector<Operation>;

class Changes {
 public:
  Changes(unsigned seed, std::size_t most) : random_(seed), most_(most) {}

  void change(Operations& all) {
    switch (all.empty() ? 0 : below(6)) {
      case 0:
        insert(all, {any_operation()});
        break;
      case 1:
        all[below(all.size())][0] = any_byte();
        break;
      case 2: {
        Operation& one = all[below(all.size())];
        one[1] = any_byte();
        one[2] = any_byte();
        break;
      }
      case 3:
        insert(all, piece(all));
        break;
      case 4: {
        const std::size_t from = below(all.size());
        const std::size_t count = std::min(1 + below(8), all.size() - from);
        all.erase(all.begin() + place(from), all.begin() + place(from + count));
        break;
      }
      default:
        std::swap(all[below(all.size())], all[below(all.size())]);
        break;
    }
  }

  // A few consecutive operations.
  Operations piece(const Operations& all) {
    if (all.empty()) return {};
    const std::size_t from = below(all.size());
    const std::size_t count = std::min(1 + below(16), all.size() - from);
    return {all.begin() + place(from), all.begin() + place(from + count)};
  }

  void insert(Operations& all, const Operations& some) {
    all.insert(all.begin() + place(below(all.size() + 1)), some.begin(), some.end());
    if (all.size() > most_) all.resize(most_);
  }

  std::size_t below(std::size_t count) { return static_cast<std::size_t>(random_() % count); }

 private:
  static std::ptrdiff_t place(std::size_t index) { return static_cast<std::ptrdiff_t>(index); }
  uint8_t any_byte() { return static_cast<uint8_t>(below(256)); }
  Operation any_operation() { return {any_byte(), any_byte(), any_byte()}; }

  std::mt19937 random_;
  std::size_t most_;
};

Operations decode(const uint8_t* data, std::size_t size) {
  Operations all(size / kOperationBytes);
  if (!all.empty()) std::memcpy(all.data(), data, all.size() * kOperationBytes);
  return all;
}

std::size_t encode(const Operations& all, uint8_t* data) {
  if (!all.empty()) std::memcpy(data, all.data(), all.size() * kOperationBytes);
  return all.size() * kOperationBytes;
}

}  // namespace

extern "C" std::size_t LLVMFuzzerCustomMutator(uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned seed) {
  Operations all = decode(data, size);
  Changes changes(seed, max_size / kOperationBytes);
  for (std::size_t left = 1 + changes.below(4); left > 0; --left) changes.change(all);
  return encode(all, data);
}

extern "C" std::size_t LLVMFuzzerCustomCrossOver(const uint8_t* data1, std::size_t size1,
                                                 const uint8_t* data2, std::size_t size2,
                                                 uint8_t* out, std::size_t max_out_size,
                                                 unsigned seed) {
  Operations all = decode(data1, size1);
  Changes changes(seed, max_out_size / kOperationBytes);
  changes.insert(all, changes.piece(decode(data2, size2)));
  return encode(all, out);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string wrong = corvan_test::check_operations(data, size);
  if (wrong.empty()) return 0;
  std::cerr << wrong << std::endl;
  std::abort();
}
