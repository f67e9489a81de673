#include "bench/search/vocabulary.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>

namespace corvan_bench {

namespace {

constexpr std::size_t kCoreRanks = 10'000;
constexpr double kMandelbrotShift = 2.7;
constexpr double kZipfExponent = 1.05;
constexpr double kTailShare = 0.04;
constexpr double kTailExponent = 0.6;  // of the share of words beyond a rank
constexpr double kLastRank = 1e12;

constexpr std::string_view kConsonants = "tnshrdlcmwfgypbvk";
constexpr std::string_view kVowels = "eaoiu";
constexpr std::string_view kEndings = "snrtdg";
constexpr std::uint64_t kSyllables = kConsonants.size() * kVowels.size();

constexpr std::uint64_t kSingleCharacterWords = 40;

// The share of a text that the most frequent characters make up.
struct Share {
  double characters;
  double of_text;
};
constexpr std::array kShares = {Share{1, 0.04},     Share{10, 0.16},   Share{100, 0.45},
                                Share{500, 0.78},   Share{1000, 0.90}, Share{2000, 0.975},
                                Share{3500, 0.998}, Share{7000, 1.0}};

constexpr std::u16string_view kFrequent =
    u"的一是不了在人有我他这中大来上个国到说们为子和你地出道也时年得就那要下以生会自着去之过家学对可她里后";

// In a scattered order, because neighbours in Unicode have equal radicals.
char16_t character(std::uint64_t rank) {
  constexpr std::uint64_t kUnified = 20'902;
  constexpr std::uint64_t kStep = 7919;  // a prime
  if (rank <= kFrequent.size()) return kFrequent[static_cast<std::size_t>(rank - 1)];
  return static_cast<char16_t>(0x4E00 + rank * kStep % kUnified);
}

void append(std::string& text, char16_t c) {
  text += static_cast<char>(0xE0 | (c >> 12U));
  text += static_cast<char>(0x80 | ((c >> 6U) & 0x3FU));
  text += static_cast<char>(0x80 | (c & 0x3FU));
}

// Between two known shares the logarithm of the rank grows evenly.
std::uint64_t draw_character(Random& random) {
  const double at = random.unit();
  const Share* const next = std::find_if(kShares.begin(), kShares.end() - 1,
                                         [at](const Share& share) { return share.of_text >= at; });
  if (next == kShares.begin()) return 1;
  const Share& previous = *(next - 1);
  const double part = (at - previous.of_text) / (next->of_text - previous.of_text);
  const double rank = previous.characters * std::pow(next->characters / previous.characters, part);
  return static_cast<std::uint64_t>(std::ceil(rank));
}

std::size_t characters_of_word(Random& random) {
  const double at = random.unit();
  if (at <= 0.08) return 1;
  if (at <= 0.78) return 2;
  return at <= 0.92 ? 3 : 4;
}

}  // namespace

WordRanks::WordRanks() {
  double sum = 0;
  for (std::size_t rank = 1; rank <= kCoreRanks; ++rank) {
    sum += std::pow(static_cast<double>(rank) + kMandelbrotShift, -kZipfExponent);
    cumulative_.push_back(sum);
  }
}

std::uint64_t WordRanks::draw(Random& random) const {
  if (random.chance(kTailShare)) {
    const double rank = kCoreRanks * std::pow(random.unit(), -1 / kTailExponent);
    return static_cast<std::uint64_t>(std::min(rank, kLastRank)) + 1;
  }
  const double at = random.unit() * cumulative_.back();
  const auto found = std::lower_bound(cumulative_.begin(), cumulative_.end(), at);
  return static_cast<std::uint64_t>(found - cumulative_.begin()) + 1;
}

std::string latin_word(std::uint64_t rank) {
  std::string word;
  std::uint64_t number = rank;
  std::uint64_t shift = 0;  // so that neighbouring ranks do not begin with the same letters
  while (number > 0) {
    const std::uint64_t digit = number % kSyllables;
    const auto syllable = static_cast<std::size_t>((digit * 29 + shift) % kSyllables);
    word += kConsonants[syllable % kConsonants.size()];
    word += kVowels[syllable / kConsonants.size()];
    shift = shift * 31 + digit + 7;
    number /= kSyllables;
  }
  const auto end = static_cast<std::size_t>(scrambled(rank) % (2 * kEndings.size()));
  if (end < kEndings.size()) word += kEndings[end];
  return word;
}

std::string chinese_word(std::uint64_t rank) {
  std::string word;
  if (rank <= kSingleCharacterWords) {
    append(word, character(rank));
    return word;
  }
  Random random(rank);
  for (std::size_t left = characters_of_word(random); left > 0; --left) {
    append(word, character(draw_character(random)));
  }
  return word;
}

}  // namespace corvan_bench
