#include "addons/search/folded_text.h"

#include <algorithm>

namespace Corvan::search {

namespace {

void append(std::string& text, char32_t point) {
  const auto trail = [&](unsigned shift) {
    text += static_cast<char>(0x80U | (point >> shift & 0x3FU));
  };
  if (point < 0x80) {
    text += static_cast<char>(point);
  } else if (point < 0x800) {
    text += static_cast<char>(0xC0U | point >> 6U);
    trail(0);
  } else if (point < 0x10000) {
    text += static_cast<char>(0xE0U | point >> 12U);
    trail(6);
    trail(0);
  } else {
    text += static_cast<char>(0xF0U | point >> 18U);
    trail(12);
    trail(6);
    trail(0);
  }
}

}  // namespace

FoldedText::FoldedText(std::string_view original, bool with_origins) {
  text_.reserve(original.size() + original.size() / 4 + 2);
  text_ += kGap;
  for (std::size_t at = 0; at < original.size();) {
    const std::string_view rest = original.substr(at);
    const std::size_t before = text_.size();
    std::size_t size = simple_cluster(rest);
    if (size == 0) {
      const Cluster cluster(rest);
      add(cluster);
      size = cluster.bytes();
    }
    if (with_origins) origins_.push_back({before, at, at + size});
    at += size;
  }
  add_gap();
}

// Adds the first cluster if that is simple: one simple code point, with another one behind it.
std::size_t FoldedText::simple_cluster(std::string_view rest) {
  char32_t point = 0;
  const std::size_t size = decode(rest, point);
  if (size == 0) return 0;
  const Traits first = traits(point);
  if (!first.is_simple()) return 0;
  if (size < rest.size()) {
    if (decode(rest.substr(size), point) != 0 && !traits(point).is_simple()) return 0;
  }
  add(first.folded(), first.kind());
  return size;
}

void FoldedText::add(const Cluster& cluster) {
  if (cluster.size() == 0) add(0, Kind::kSeparator);
  const FoldedCluster folded(cluster);
  for (std::size_t i = 0; i < folded.size(); ++i) add(folded[i], traits(folded[i]).own_kind());
}

void FoldedText::add(char32_t point, Kind kind) {
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
  const std::size_t begin = std::min(folded.find_first_not_of(FoldedText::kGap, at), folded.size());
  at = std::min(folded.find(FoldedText::kGap, begin), folded.size());
  return folded.substr(begin, at - begin);
}

bool is_word(std::string_view chunk) {
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
