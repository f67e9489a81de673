// The numbers and records of SQLite's file format, parsed without trusting a byte of them.

#ifndef TOOLS_SALVAGE_FILE_RECORD_H_
#define TOOLS_SALVAGE_FILE_RECORD_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace corvan_tool {

// The unsigned big-endian number in `count` bytes, which must be within `bytes`.
std::uint64_t number_at(std::string_view bytes, std::size_t at, std::size_t count);

// Reads a number of variable length and moves `at` past it. Nothing if the number does not end
// within `bytes`.
std::optional<std::uint64_t> take_varint(std::string_view bytes, std::size_t& at);

struct Value {
  enum Kind { kNull, kInteger, kReal, kText, kBlob };
  Kind kind = kNull;
  std::int64_t integer = 0;  // kReal: the bits of the double
  std::string_view bytes;    // kText and kBlob: a part of the record
};

// Parses the values of a record of `size` bytes. `record` may be only the beginning of it, but must
// contain the record's header; values are cut off where it ends. Returns false if it is not a
// record, or if its values do not add up to `size`; `values` is then undefined.
bool parse_record(std::string_view record, std::uint64_t size, std::vector<Value>& values);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_FILE_RECORD_H_
