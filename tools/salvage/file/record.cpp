#include "tools/salvage/file/record.h"

#include <algorithm>
#include <array>

namespace corvan_tool {

namespace {

// The most columns that SQLite can be built for.
constexpr std::size_t kMostValues = 32767;

// Types of the file format from here on are texts and blobs.
constexpr std::uint64_t kFirstBlobType = 12;

bool is_reserved(std::uint64_t type) {
  return type == 10 || type == 11;
}

std::uint64_t size_of_type(std::uint64_t type) {
  static constexpr std::array<std::size_t, kFirstBlobType> kSizes = {0, 1, 2, 3, 4, 6, 8, 8};
  if (type >= kFirstBlobType) return (type - kFirstBlobType) / 2;
  return kSizes.at(static_cast<std::size_t>(type));
}

std::int64_t signed_number(std::string_view bytes) {
  std::uint64_t number = number_at(bytes, 0, bytes.size());
  const std::size_t bits = 8 * bytes.size();
  const bool is_negative = bits > 0 && (number >> (bits - 1) & 1U) != 0;
  if (is_negative && bits < 64) number |= ~std::uint64_t{0} << bits;
  return static_cast<std::int64_t>(number);
}

Value value_of(std::uint64_t type, std::string_view bytes) {
  Value value;
  if (type >= kFirstBlobType) {
    value.kind = type % 2 == 0 ? Value::kBlob : Value::kText;
    value.bytes = bytes;
  } else if (type == 8 || type == 9) {
    value.kind = Value::kInteger;
    value.integer = type == 9 ? 1 : 0;
  } else if (type != 0) {
    value.kind = type == 7 ? Value::kReal : Value::kInteger;
    value.integer = signed_number(bytes);
  }
  return value;
}

}  // namespace

std::uint64_t number_at(std::string_view bytes, std::size_t at, std::size_t count) {
  std::uint64_t value = 0;
  for (const char byte : bytes.substr(at, count)) {
    value = value << 8 | static_cast<unsigned char>(byte);
  }
  return value;
}

std::optional<std::uint64_t> take_varint(std::string_view bytes, std::size_t& at) {
  std::uint64_t value = 0;
  for (int i = 0; i < 9; ++i) {
    if (at >= bytes.size()) return std::nullopt;
    const auto byte = static_cast<unsigned char>(bytes[at++]);
    if (i == 8) return value << 8 | byte;
    value = value << 7 | (byte & 0x7FU);
    if ((byte & 0x80U) == 0) return value;
  }
  return std::nullopt;
}

bool parse_record(std::string_view record, std::uint64_t size, std::vector<Value>& values) {
  values.clear();
  std::size_t at = 0;
  const auto header_size = take_varint(record, at);
  if (!header_size || *header_size < at || *header_size > record.size()) return false;
  const std::string_view header = record.substr(0, static_cast<std::size_t>(*header_size));
  std::uint64_t body = header.size();
  while (at < header.size()) {
    const auto type = take_varint(header, at);
    if (!type || is_reserved(*type) || values.size() == kMostValues) return false;
    const std::uint64_t value_size = size_of_type(*type);
    if (value_size > size - body) return false;
    const auto begin = static_cast<std::size_t>(std::min<std::uint64_t>(body, record.size()));
    values.push_back(value_of(*type, record.substr(begin, static_cast<std::size_t>(value_size))));
    body += value_size;
  }
  return body == size;
}

}  // namespace corvan_tool
