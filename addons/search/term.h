// One term of a query.

#ifndef ADDONS_SEARCH_TERM_H_
#define ADDONS_SEARCH_TERM_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace Corvan::search {

// A text that is looked for, or the beginning of one.
struct Wanted {
  std::string text;
  bool is_prefix = false;

  // Whole texts come first, and long ones: they are rare.
  bool operator<(const Wanted& other) const;
};

// What a query requires in one place of a text: units that follow each other. All texts are those
// of FoldedText.
class Term {
 public:
  // The text must not be empty. Of a prefix, the last unit, if it is a word, may be the beginning
  // of a longer one.
  explicit Term(const Wanted& wanted);

  struct Place {
    std::size_t begin = std::string_view::npos;
    std::size_t end = 0;  // both without gaps
  };

  bool is_in(std::string_view folded) const;

  // The place of the term whose first piece is at `begin`; Place() if the rest does not follow.
  Place place_at(std::string_view folded, std::size_t begin) const;

  // All places in the text, from the first to the last; they may overlap.
  std::vector<Place> find_all(std::string_view folded) const;

  // The term as it was given.
  const std::string& folded() const { return folded_; }
  bool is_prefix() const { return is_prefix_; }

  // Each place of the term begins with this text, gaps included.
  const std::string& first_piece() const { return pieces_.front(); }

 private:
  std::size_t end_of(std::string_view folded, std::size_t begin) const;

  std::string folded_;
  bool is_prefix_ = false;
  // The texts to find, one behind the other. Between two of them, both of unspaced characters, the
  // text may have a gap.
  std::vector<std::string> pieces_;
  std::size_t least_size_ = 0;  // of all pieces together
};

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_TERM_H_
