#include "addons/search/term.h"

#include <cstring>

#include "addons/search/folded_text.h"

namespace Corvan::search {

namespace {

constexpr char kGap = FoldedText::kGap;

std::size_t find(std::string_view text, std::string_view what, std::size_t from) {
  const void* found = memmem(text.data() + from, text.size() - from, what.data(), what.size());
  if (found == nullptr) return std::string_view::npos;
  return static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

bool has_at(std::string_view text, std::size_t at, std::string_view what) {
  return text.compare(at, what.size(), what) == 0;
}

}  // namespace

Term::Term(std::string_view folded, bool is_prefix) : folded_(folded) {
  bool was_word = true;
  for (std::size_t at = 0;;) {
    const std::string_view chunk = next_chunk(folded, at);
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
  is_prefix_ = is_prefix && was_word;
  if (was_word && !is_prefix) pieces_.back() += kGap;
}

// The end of the term, which begins with its first piece at `begin`; npos if it is not there.
std::size_t Term::end_of(std::string_view folded, std::size_t begin) const {
  std::size_t at = begin + pieces_.front().size();
  for (std::size_t i = 1; i < pieces_.size(); ++i) {
    if (at < folded.size() && folded[at] == kGap) ++at;
    if (!has_at(folded, at, pieces_[i])) return std::string_view::npos;
    at += pieces_[i].size();
  }
  return at;
}

bool Term::is_in(std::string_view folded) const {
  for (std::size_t at = 0;; ++at) {
    at = find(folded, pieces_.front(), at);
    if (at == std::string_view::npos) return false;
    if (end_of(folded, at) != std::string_view::npos) return true;
  }
}

std::vector<Term::Place> Term::find_all(std::string_view folded) const {
  std::vector<Place> places;
  for (std::size_t at = 0;; ++at) {
    at = find(folded, pieces_.front(), at);
    if (at == std::string_view::npos) return places;
    const std::size_t end = end_of(folded, at);
    if (end == std::string_view::npos) continue;
    const std::size_t first_gap = pieces_.front().front() == kGap ? 1 : 0;
    const std::size_t last_gap = pieces_.back().back() == kGap ? 1 : 0;
    places.push_back({at + first_gap, end - last_gap});
  }
}

}  // namespace Corvan::search
