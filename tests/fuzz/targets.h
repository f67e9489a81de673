// What the fuzzers run for each input, and the test of their corpus, too. Each answers what is
// wrong with the project, in whole sentences or lines; nothing when all is well.

#ifndef TESTS_FUZZ_TARGETS_H_
#define TESTS_FUZZ_TARGETS_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace corvan_test {

// An operation on the store and the model is three bytes of an input: its place in the table of
// operations, and the number that chooses its arguments, low byte first.
constexpr std::size_t kOperationBytes = 3;
constexpr std::size_t kMostOperations = 200;  // of one input; the rest is not run

// Runs the operations in the store and in the model, and compares all that there is after each.
std::string check_operations(const uint8_t* data, std::size_t size);

// Reads a line of a conversation log, and holds the answer against one that is found without the
// parser.
std::string check_import_line(const uint8_t* data, std::size_t size);

}  // namespace corvan_test

#endif  // TESTS_FUZZ_TARGETS_H_
