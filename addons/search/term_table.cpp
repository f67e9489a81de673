#include "addons/search/term_table.h"

#include <algorithm>
#include <numeric>

#include "addons/search/folded_text.h"

namespace Corvan::search {

namespace {

bool starts_with(std::string_view text, std::string_view beginning) {
  return text.compare(0, beginning.size(), beginning) == 0;
}

// Words begin with the gap before them, unspaced characters with a byte above ASCII.
bool may_begin_term(char c) {
  return c == FoldedText::kGap || static_cast<unsigned char>(c) >= 0xC0;
}

}  // namespace

TermTable::TermTable(const std::vector<Term>& terms)
    : order_(terms.size()), shorter_(terms.size(), kNone) {
  std::iota(order_.begin(), order_.end(), 0);
  std::sort(order_.begin(), order_.end(), [&terms](std::size_t a, std::size_t b) {
    return terms[a].first_piece() < terms[b].first_piece();
  });
  for (std::size_t i = 1; i < order_.size(); ++i) {
    const std::string& piece = terms[order_[i]].first_piece();
    std::size_t at = i - 1;
    while (at != kNone && !starts_with(piece, terms[order_[at]].first_piece())) at = shorter_[at];
    shorter_[i] = at;
  }
}

// The last place in order_ whose first piece begins `rest`. The others are reached by shorter_.
std::size_t TermTable::longest_at(const std::vector<Term>& terms, std::string_view rest) const {
  const auto after = std::upper_bound(
      order_.begin(), order_.end(), rest,
      [&terms](std::string_view text, std::size_t i) { return text < terms[i].first_piece(); });
  if (after == order_.begin()) return kNone;
  auto at = static_cast<std::size_t>(after - order_.begin()) - 1;
  while (at != kNone && !starts_with(rest, terms[order_[at]].first_piece())) at = shorter_[at];
  return at;
}

// Calls take(begin, end) for each position with terms, with the end of the longest one. Ends when
// all terms were found and take() returns false. Returns whether all were found.
template <typename Take>
bool TermTable::visit(const std::vector<Term>& terms, std::string_view folded, Take take) const {
  std::vector<bool> is_found(terms.size());
  std::size_t missing = terms.size();
  for (std::size_t begin = 0; begin < folded.size(); ++begin) {
    if (!may_begin_term(folded[begin])) continue;
    Term::Place longest;
    for (std::size_t at = longest_at(terms, folded.substr(begin)); at != kNone; at = shorter_[at]) {
      const Term::Place place = terms[order_[at]].place_at(folded, begin);
      if (place.begin == kNone) continue;
      if (place.end > longest.end) longest = place;
      if (!is_found[order_[at]]) --missing;
      is_found[order_[at]] = true;
    }
    if (longest.begin != kNone && !take(longest) && missing == 0) return true;
  }
  return missing == 0;
}

bool TermTable::are_in(const std::vector<Term>& terms, std::string_view folded) const {
  return visit(terms, folded, [](const Term::Place& /*place*/) { return false; });
}

std::vector<Term::Place> TermTable::find_all(const std::vector<Term>& terms,
                                             std::string_view folded) const {
  std::vector<Term::Place> places;
  const bool all = visit(terms, folded, [&places](const Term::Place& place) {
    places.push_back(place);
    return true;
  });
  if (!all) places.clear();
  return places;
}

}  // namespace Corvan::search
