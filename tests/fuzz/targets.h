// What the fuzzers, and the test of their seeds, run for each input. Each function returns a
// description of the defect that it found; an empty string if there is none.

#ifndef TESTS_FUZZ_TARGETS_H_
#define TESTS_FUZZ_TARGETS_H_

#include <cstddef>
#include <cstdint>
#include <string>

namespace corvan_test {

// Three bytes of an input are one operation on the store and the model: its position in the model's
// table of operations, and the number that chooses its arguments, low byte first.
constexpr std::size_t kOperationBytes = 3;
constexpr std::size_t kMostOperations = 200;  // per input; the rest is ignored

// Runs the operations in the store and in the model, and compares everything after each.
std::string check_operations(const uint8_t* data, std::size_t size);

// Parses a line of a conversation log, and compares the result with one found without the parser.
std::string check_import_line(const uint8_t* data, std::size_t size);

// Searches for a query in a text, and for the text in itself. The input is the query, a line feed,
// and the text.
std::string check_search_query(const uint8_t* data, std::size_t size);

// Indexes a text, checks its tokens, and finds the text with itself as the query.
std::string check_search_tokenizer(const uint8_t* data, std::size_t size);

}  // namespace corvan_test

#endif  // TESTS_FUZZ_TARGETS_H_
