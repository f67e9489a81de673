// transcript FILE SEED SEQUENCES LENGTH: runs sequences with these seeds and writes their
// transcript to the file.

#include <cstdint>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <iostream>
#include <string>

#include "tests/support/temporary_folder.h"
#include "tests/twins/sequence.h"

int main(int argc, char** argv) {
  if (argc != 5) return EXIT_FAILURE;
  corvan_test::prefer_memory();
  std::ofstream out(argv[1], std::ios::binary);
  try {
    const uint64_t first = std::stoull(argv[2]);
    const uint64_t count = std::stoull(argv[3]);
    for (uint64_t seed = first; seed - first < count; ++seed) {
      corvan_test::TwinSequence(out, seed).run(std::stoul(argv[4]));
    }
  } catch (const std::exception& error) {
    std::cerr << error.what() << std::endl;
    return EXIT_FAILURE;
  }
  return out.flush() ? EXIT_SUCCESS : EXIT_FAILURE;
}
