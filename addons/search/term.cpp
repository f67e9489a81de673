#include "addons/search/term.h"

#include <algorithm>

#include "addons/search/folded_text.h"
#include "addons/search/platform.h"

namespace Corvan::search {

namespace {

constexpr char kGap = FoldedText::kGap;
constexpr std::size_t kNone = std::string_view::npos;

std::size_t find(std::string_view text, std::string_view what, std::size_t from) {
  const std::size_t found = find_bytes(text.substr(from), what);
  return found == kNone ? kNone : from + found;
}

// For each beginning of `what`: the size of the longest shorter one that is its end.
std::vector<std::size_t> borders(std::string_view what) {
  std::vector<std::size_t> sizes(what.size() + 1);
  std::size_t size = 0;
  for (std::size_t i = 1; i < what.size(); ++i) {
    while (size > 0 && what[i] != what[size]) size = sizes[size];
    if (what[i] == what[size]) ++size;
    sizes[i + 1] = size;
  }
  return sizes;
}

// Calls take(begin) wherever `what` is in the text, in linear time (Knuth, Morris and Pratt).
template <typename Take>
void for_each_occurrence(std::string_view text, std::string_view what, Take take) {
  const std::vector<std::size_t> sizes = borders(what);
  std::size_t size = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    while (size > 0 && (size == what.size() || text[i] != what[size])) size = sizes[size];
    if (text[i] == what[size]) ++size;
    if (size == what.size()) take(i + 1 - size);
  }
}

bool has_at(std::string_view text, std::size_t at, std::string_view what) {
  return text.compare(at, what.size(), what) == 0;
}

}  // namespace

bool Wanted::operator<(const Wanted& other) const {
  if (is_prefix != other.is_prefix) return other.is_prefix;
  if (text.size() != other.text.size()) return text.size() > other.text.size();
  return text < other.text;
}

Term::Term(const Wanted& wanted) : folded_(wanted.text) {
  bool was_word = true;
  for (std::size_t at = 0;;) {
    const std::string_view chunk = next_chunk(folded_, at);
    if (chunk.empty()) break;
    const bool word = is_word(chunk);
    if (pieces_.empty() || (!word && !was_word)) {
      pieces_.emplace_back(word ? 1 : 0, kGap);
    } else {
      pieces_.back() += kGap;
    }
    pieces_.back() += chunk;
    was_word = word;
  }
  is_prefix_ = wanted.is_prefix && was_word;
  if (was_word && !is_prefix_) pieces_.back() += kGap;
  for (const std::string& piece : pieces_) least_size_ += piece.size();
}

// The end of the term, which begins with its first piece at `begin`; npos if it is not there.
std::size_t Term::end_of(std::string_view folded, std::size_t begin) const {
  if (folded.size() - begin < least_size_) return kNone;
  std::size_t at = begin + pieces_.front().size();
  for (std::size_t i = 1; i < pieces_.size(); ++i) {
    if (at < folded.size() && folded[at] == kGap) ++at;
    if (!has_at(folded, at, pieces_[i])) return kNone;
    at += pieces_[i].size();
  }
  return at;
}

bool Term::is_in(std::string_view folded) const {
  const auto shorter = [](const std::string& a, const std::string& b) {
    return a.size() < b.size();
  };
  const auto longest = std::max_element(pieces_.begin(), pieces_.end(), shorter);
  if (find(folded, *longest, 0) == kNone) return false;
  std::size_t at = find(folded, pieces_.front(), 0);
  while (at != kNone && end_of(folded, at) == kNone) at = find(folded, pieces_.front(), at + 1);
  return at != kNone;
}

Term::Place Term::place_at(std::string_view folded, std::size_t begin) const {
  const std::size_t end = end_of(folded, begin);
  if (end == kNone) return {};
  const std::size_t first_gap = pieces_.front().front() == kGap ? 1 : 0;
  const std::size_t last_gap = pieces_.back().back() == kGap ? 1 : 0;
  return {begin + first_gap, end - last_gap};
}

std::vector<Term::Place> Term::find_all(std::string_view folded) const {
  std::vector<Place> places;
  for_each_occurrence(folded, pieces_.front(), [&](std::size_t begin) {
    const Place place = place_at(folded, begin);
    if (place.begin != kNone) places.push_back(place);
  });
  return places;
}

}  // namespace Corvan::search
