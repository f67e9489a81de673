// Encodes keys and values as bytes.

#ifndef BENCH_PEERS_KEY_VALUE_CODEC_H_
#define BENCH_PEERS_KEY_VALUE_CODEC_H_

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace corvan_bench {

class Encoder {
 public:
  Encoder& byte(uint8_t value) {
    bytes_.push_back(static_cast<char>(value));
    return *this;
  }
  // Big-endian, so that non-negative numbers sort like their bytes.
  Encoder& number(int64_t value) {
    const auto bits = static_cast<uint64_t>(value);
    for (int shift = 56; shift >= 0; shift -= 8) byte(static_cast<uint8_t>(bits >> shift));
    return *this;
  }
  // For keys: every text but the last ends with a zero byte, which no text contains.
  Encoder& ended_text(std::string_view text) {
    bytes_.append(text);
    return byte(0);
  }
  Encoder& last_text(std::string_view text) {
    bytes_.append(text);
    return *this;
  }
  Encoder& text(std::string_view text) {
    number(static_cast<int64_t>(text.size()));
    return last_text(text);
  }

  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

class Decoder {
 public:
  explicit Decoder(std::string_view bytes) : bytes_(bytes) {}

  uint8_t byte() { return static_cast<uint8_t>(take(1).front()); }
  int64_t number() {
    uint64_t bits = 0;
    for (const char c : take(8)) bits = bits << 8 | static_cast<uint8_t>(c);
    return static_cast<int64_t>(bits);
  }
  int32_t small_number() { return static_cast<int32_t>(number()); }
  std::string ended_text() {
    const std::string_view text = take(bytes_.find('\0'));
    byte();
    return std::string(text);
  }
  std::string last_text() { return std::string(take(bytes_.size())); }
  std::string text() { return std::string(take(static_cast<std::size_t>(number()))); }

 private:
  std::string_view take(std::size_t size) {
    if (size > bytes_.size()) throw std::runtime_error("a record is too short");
    const std::string_view taken = bytes_.substr(0, size);
    bytes_.remove_prefix(size);
    return taken;
  }

  std::string_view bytes_;
};

}  // namespace corvan_bench

#endif  // BENCH_PEERS_KEY_VALUE_CODEC_H_
