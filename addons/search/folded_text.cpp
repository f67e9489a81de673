#include "addons/search/folded_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace Corvan::search {

namespace {

void append(std::string& text, char32_t point) {
  const auto byte = [point](unsigned first, unsigned shift) {
    return static_cast<char>(first | (point >> shift & 0x3FU));
  };
  if (point < 0x80) {
    text += static_cast<char>(point);
  } else if (point < 0x800) {
    text.append({byte(0xC0, 6), byte(0x80, 0)});
  } else if (point < 0x10000) {
    text.append({static_cast<char>(0xE0U | point >> 12U), byte(0x80, 6), byte(0x80, 0)});
  } else {
    text.append({byte(0xF0, 18), byte(0x80, 12), byte(0x80, 6), byte(0x80, 0)});
  }
}

// What each ASCII character becomes.
constexpr std::array<char, 128> folded_ascii() {
  std::array<char, 128> folded{};
  for (std::size_t i = 0; i < folded.size(); ++i) {
    const auto c = static_cast<char>(i);
    const bool is_upper = c >= 'A' && c <= 'Z';
    const bool is_word = is_upper || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
    folded[i] = is_upper ? static_cast<char>(c + ('a' - 'A')) : is_word ? c : FoldedText::kGap;
  }
  return folded;
}

constexpr std::array<char, 128> kFoldedAscii = folded_ascii();

bool is_ascii(char c) {
  return static_cast<unsigned char>(c) < 0x80;
}

// The same of eight characters.
bool are_ascii(const char* text) {
  uint64_t word = 0;
  std::memcpy(&word, text, sizeof word);
  return (word & 0x8080808080808080) == 0;
}

// The ASCII characters at the beginning that are clusters of their own. The last one may have a
// mark.
std::size_t ascii_size(std::string_view text) {
  std::size_t size = 0;
  while (size + sizeof(uint64_t) <= text.size() && are_ascii(text.data() + size)) {
    size += sizeof(uint64_t);
  }
  while (size < text.size() && is_ascii(text[size])) ++size;
  return size == text.size() || size == 0 ? size : size - 1;
}

}  // namespace

FoldedText::FoldedText(std::string_view original, bool with_origins) {
  text_.reserve(original.size() + original.size() / 4 + 2);
  text_ += kGap;
  if (with_origins) {
    fold_with_origins(original);
  } else {
    fold(original);
  }
  add_gap();
}

void FoldedText::fold(std::string_view rest) {
  while (!rest.empty()) {
    std::size_t size = add_ascii(rest);
    if (size == 0) size = add_unspaced(rest);
    if (size == 0) size = add_simple(rest);
    if (size == 0) size = add_cluster(rest);
    rest.remove_prefix(size);
  }
}

void FoldedText::fold_with_origins(std::string_view original) {
  for (std::size_t at = 0; at < original.size();) {
    const std::size_t before = text_.size();
    const std::size_t end = at + add_cluster(original.substr(at));
    origins_.push_back({before, at, end});
    at = end;
  }
}

// Each of these adds clusters from the beginning of a text, and returns their size in the text.

std::size_t FoldedText::add_ascii(std::string_view rest) {
  const std::size_t size = ascii_size(rest);
  if (size == 0) return 0;
  if (last_ == Kind::kUnspaced) add_gap();
  const std::size_t before = text_.size();
  text_.resize(before + size);
  char* to = text_.data() + before;
  char last = to[-1];
  for (const char c : rest.substr(0, size)) {
    const char folded = kFoldedAscii[static_cast<unsigned char>(c)];
    *to = folded;
    to += folded != kGap || last != kGap ? 1 : 0;
    last = folded;
  }
  text_.resize(static_cast<std::size_t>(to - text_.data()));
  last_ = last == kGap ? Kind::kSeparator : Kind::kWord;
  return size;
}

// Unspaced characters that fold to themselves, as nearly all Chinese ones do.
std::size_t FoldedText::add_unspaced(std::string_view rest) {
  std::size_t size = 0;
  std::size_t last = 0;
  char32_t point = 0;
  std::size_t next_size = decode(rest, point);
  for (; next_size > 0 && traits(point).is_plain(point);
       next_size = decode(rest.substr(size), point)) {
    last = size;
    size += next_size;
  }
  if (next_size > 0 && !traits(point).is_simple()) size = last;  // they may be one cluster
  if (size == 0) return 0;
  if (last_ != Kind::kUnspaced) add_gap();
  text_.append(rest.data(), size);
  last_ = Kind::kUnspaced;
  return size;
}

// Code points are clusters of their own if they and their successors are simple. Stops before those
// that the functions above add faster.
std::size_t FoldedText::add_simple(std::string_view rest) {
  std::size_t at = 0;
  char32_t point = 0;
  std::size_t size = decode(rest, point);
  while (size > 0 && traits(point).is_simple()) {
    const Traits first = traits(point);
    if (at > 0 && (point < 0x80 || first.is_plain(point))) break;
    const std::size_t next_size = decode(rest.substr(at + size), point);
    if (next_size > 0 && !traits(point).is_simple()) break;
    add(first.folded(), first.kind());
    at += size;
    size = next_size;
  }
  return at;
}

std::size_t FoldedText::add_cluster(std::string_view rest) {
  const Cluster cluster(rest);
  if (cluster.size() == 0) add(0, Kind::kSeparator);
  const FoldedCluster folded(cluster);
  for (std::size_t i = 0; i < folded.size(); ++i) add(folded[i], traits(folded[i]).own_kind());
  return cluster.bytes();
}

void FoldedText::add(char32_t point, Kind kind) {
  if (kind == Kind::kMark) {
    if (last_ == Kind::kWord) append(text_, point);
    return;
  }
  if (kind == Kind::kSeparator || kind != last_) add_gap();
  if (kind != Kind::kSeparator) append(text_, point);
  last_ = kind;
}

void FoldedText::add_gap() {
  if (text_.back() != kGap) text_ += kGap;
}

const FoldedText::Origin& FoldedText::origin_of(std::size_t folded) const {
  const auto after =
      std::upper_bound(origins_.begin(), origins_.end(), folded,
                       [](std::size_t place, const Origin& o) { return place < o.folded; });
  return *(after - 1);
}

SearchRange FoldedText::origin(std::size_t begin, std::size_t end) const {
  const std::size_t first = origin_of(begin).begin;
  return {first, origin_of(end - 1).end - first};
}

std::string_view next_chunk(std::string_view folded, std::size_t& at) {
  std::size_t begin = at;
  while (begin < folded.size() && folded[begin] == FoldedText::kGap) ++begin;
  std::size_t end = begin;
  while (end < folded.size() && folded[end] != FoldedText::kGap) ++end;
  at = end;
  return folded.substr(begin, end - begin);
}

bool is_word(std::string_view chunk) {
  if (!chunk.empty() && is_ascii(chunk.front())) return true;  // a letter or a digit
  char32_t point = 0;
  return decode(chunk, point) != 0 && traits(point).own_kind() == Kind::kWord;
}

std::size_t first_size(std::string_view valid) {
  const auto lead = static_cast<unsigned char>(valid.front());
  if (lead < 0x80) return 1;
  if (lead < 0xE0) return 2;
  return lead < 0xF0 ? 3 : 4;
}

}  // namespace Corvan::search
