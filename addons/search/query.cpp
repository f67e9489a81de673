#include "addons/search/query.h"

#include <algorithm>
#include <set>
#include <utility>

#include "addons/search/folded_text.h"
#include "addons/search/query_parser.h"

namespace Corvan::search {

namespace {

constexpr std::size_t kManyTerms = 32;

std::vector<SearchRange> merged(std::vector<SearchRange> ranges) {
  std::sort(ranges.begin(), ranges.end(),
            [](const SearchRange& a, const SearchRange& b) { return a.begin < b.begin; });
  std::vector<SearchRange> result;
  for (const SearchRange& range : ranges) {
    if (result.empty() || range.begin >= result.back().begin + result.back().size) {
      result.push_back(range);
    } else {
      SearchRange& last = result.back();
      last.size = std::max(last.size, range.begin + range.size - last.begin);
    }
  }
  return result;
}

}  // namespace

Query::Query(std::string_view text) {
  std::set<Wanted> all;
  for (const QueryPart& part : parse_query(text)) {
    const FoldedText folded(part.text);
    if (!folded.is_empty()) all.insert({folded.text(), part.is_prefix});
  }
  for (const Wanted& wanted : all) {
    terms_.emplace_back(wanted);
    expression_.add(terms_.back());
  }
  if (terms_.size() > kManyTerms) table_.emplace(terms_);
  tokens_ = expression_.tokens();
}

bool Query::matches(std::string_view text) const {
  if (is_empty()) return false;
  const FoldedText folded(text);
  const auto is_in = [&](const Term& term) { return term.is_in(folded.text()); };
  if (!table_) return std::all_of(terms_.begin(), terms_.end(), is_in);
  return is_in(terms_.front()) && table_->are_in(terms_, folded.text());
}

std::vector<SearchRange> Query::ranges(std::string_view text) const {
  const FoldedText folded(text, true);
  std::vector<SearchRange> ranges;
  for (const Term::Place& place : places(folded.text())) {
    ranges.push_back(folded.origin(place.begin, place.end));
  }
  return merged(std::move(ranges));
}

// The places of all terms; empty unless each term has one.
std::vector<Term::Place> Query::places(std::string_view folded) const {
  if (table_) return table_->find_all(terms_, folded);
  std::vector<Term::Place> all;
  for (const Term& term : terms_) {
    const std::vector<Term::Place> places = term.find_all(folded);
    if (places.empty()) return {};
    all.insert(all.end(), places.begin(), places.end());
  }
  return all;
}

}  // namespace Corvan::search
