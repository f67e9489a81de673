// Finds many terms at once.

#ifndef ADDONS_SEARCH_TERM_TABLE_H_
#define ADDONS_SEARCH_TERM_TABLE_H_

#include <cstddef>
#include <string_view>
#include <vector>

#include "addons/search/term.h"

namespace Corvan::search {

// An index of terms by their beginnings. One pass over a text finds them all, so that a query as
// long as a book does not take a pass for each word. The terms must exist as long as the table is
// used, at the same position of their vector.
class TermTable {
 public:
  explicit TermTable(const std::vector<Term>& terms);

  bool are_in(const std::vector<Term>& terms, std::string_view folded) const;

  // For each position at which a term begins, the place of the longest such term; empty unless all
  // terms are in the text.
  std::vector<Term::Place> find_all(const std::vector<Term>& terms, std::string_view folded) const;

 private:
  static constexpr std::size_t kNone = std::string_view::npos;

  std::size_t longest_at(const std::vector<Term>& terms, std::string_view rest) const;

  template <typename Take>
  bool visit(const std::vector<Term>& terms, std::string_view folded, Take take) const;

  std::vector<std::size_t> order_;    // the terms, sorted by their first pieces
  std::vector<std::size_t> shorter_;  // for each place in order_: the last one before it whose
                                      // first piece begins this one's; kNone if there is none
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_TERM_TABLE_H_
