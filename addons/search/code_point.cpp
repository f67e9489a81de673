#include "addons/search/code_point.h"

#include <utf8proc.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <iterator>
#include <memory>

#include "addons/search/cluster.h"

namespace Corvan::search {

namespace {

struct Range {
  char32_t first;
  char32_t last;
};

#include "addons/search/unspaced_characters.inc"

constexpr char32_t kReplacementCharacter = 0xFFFD;
using Block = std::array<Traits, kTraitsPerBlock>;

bool is_in_table(char32_t point) {
  const auto* range =
      std::lower_bound(std::begin(kUnspacedCharacters), std::end(kUnspacedCharacters), point,
                       [](const Range& r, char32_t p) { return r.last < p; });
  return range != std::end(kUnspacedCharacters) && range->first <= point;
}

Kind kind_of(char32_t point) {
  if (is_in_table(point)) return Kind::kUnspaced;
  const utf8proc_category_t category = utf8proc_category(static_cast<int32_t>(point));
  if (category == UTF8PROC_CATEGORY_SO && point != kReplacementCharacter) return Kind::kUnspaced;
  if (category == UTF8PROC_CATEGORY_CO) return Kind::kUnspaced;  // often a symbol of a font
  if (category >= UTF8PROC_CATEGORY_MN && category <= UTF8PROC_CATEGORY_ME) return Kind::kMark;
  const bool is_word = category >= UTF8PROC_CATEGORY_LU && category <= UTF8PROC_CATEGORY_NO;
  return is_word ? Kind::kWord : Kind::kSeparator;
}

// Between two code points of these classes there is always a break. CR and LF are one cluster, but
// nothing depends on that.
bool breaks_among_its_like(int32_t point) {
  switch (utf8proc_get_property(point)->boundclass) {
    case UTF8PROC_BOUNDCLASS_OTHER:
    case UTF8PROC_BOUNDCLASS_CR:
    case UTF8PROC_BOUNDCLASS_LF:
    case UTF8PROC_BOUNDCLASS_CONTROL:
    case UTF8PROC_BOUNDCLASS_LV:
    case UTF8PROC_BOUNDCLASS_LVT:
    case UTF8PROC_BOUNDCLASS_EXTENDED_PICTOGRAPHIC:
      return true;
    default:
      return false;
  }
}

Traits compute(char32_t point) {
  std::array<char, 4> bytes{};
  const auto size = utf8proc_encode_char(static_cast<int32_t>(point),
                                         reinterpret_cast<utf8proc_uint8_t*>(bytes.data()));
  const Cluster cluster(std::string_view(bytes.data(), static_cast<std::size_t>(size)));
  const FoldedCluster folded(cluster);
  const Kind own = kind_of(point);
  if (folded.size() != 1) return {0, Kind::kSeparator, own, false};
  return {folded[0], kind_of(folded[0]), own, breaks_among_its_like(static_cast<int32_t>(point))};
}

std::unique_ptr<Block> compute_block(std::size_t number) {
  auto block = std::make_unique<Block>();
  for (std::size_t i = 0; i < kTraitsPerBlock; ++i) {
    const auto point = static_cast<char32_t>(number * kTraitsPerBlock + i);
    if (utf8proc_codepoint_valid(static_cast<int32_t>(point))) (*block)[i] = compute(point);
  }
  return block;
}

}  // namespace

std::array<std::atomic<const Traits*>, 0x110000 / kTraitsPerBlock> traits_blocks;

// Blocks are never released. Two threads may compute the same block; one of the results is kept.
const Traits* make_traits_block(std::size_t number) {
  std::unique_ptr<Block> block = compute_block(number);
  const Traits* present = nullptr;
  if (traits_blocks[number].compare_exchange_strong(present, block->data())) {
    return block.release()->data();
  }
  return present;
}

const char* unspaced_characters_version() {
  return kUnspacedVersion;
}

std::size_t decode_checked(std::string_view text, char32_t& code_point) {
  int32_t point = 0;
  const auto bytes = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                                      static_cast<utf8proc_ssize_t>(text.size()), &point);
  if (bytes <= 0) return 0;
  code_point = static_cast<char32_t>(point);
  return static_cast<std::size_t>(bytes);
}

}  // namespace Corvan::search
