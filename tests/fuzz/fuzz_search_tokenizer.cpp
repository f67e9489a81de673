// Entry point of the fuzzer for the tokenizer of the search.

#include <cstdlib>
#include <iostream>

#include "tests/fuzz/targets.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string wrong = corvan_test::check_search_tokenizer(data, size);
  if (wrong.empty()) return 0;
  std::cerr << wrong << std::endl;
  std::abort();
}
