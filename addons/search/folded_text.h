// Texts in the form in which they are compared.

#ifndef ADDONS_SEARCH_FOLDED_TEXT_H_
#define ADDONS_SEARCH_FOLDED_TEXT_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "addons/search/cluster.h"
#include "addons/search/code_point.h"
#include "addons/search/message_search.h"

namespace Corvan::search {

// A text as words and unspaced characters. text() has kGap at its ends, around each word, and where
// unspaced characters are separated: " foo 中文 字 ". What is between two gaps is a *chunk*: a
// word, or unspaced characters that are adjacent in the original.
class FoldedText {
 public:
  static constexpr char kGap = ' ';

  // `with_origins`: origin() will be called.
  explicit FoldedText(std::string_view original, bool with_origins = false);

  const std::string& text() const { return text_; }

  // Whether there is neither a word nor an unspaced character.
  bool is_empty() const { return text_.size() == 1; }

  // The clusters of the original that text()[begin, end) comes from. The first and the last byte
  // must not be gaps.
  SearchRange origin(std::size_t begin, std::size_t end) const;

 private:
  struct Origin {
    std::size_t folded;  // what the cluster became begins here in text_
    std::size_t begin;
    std::size_t end;
  };

  void fold(std::string_view rest);
  void fold_with_origins(std::string_view original);
  std::size_t add_ascii(std::string_view rest);
  std::size_t add_unspaced(std::string_view rest);
  std::size_t add_simple(std::string_view rest);
  std::size_t add_cluster(std::string_view rest);
  void add(char32_t point, Kind kind);
  void add_gap();
  const Origin& origin_of(std::size_t folded) const;

  std::string text_;
  Kind last_ = Kind::kSeparator;
  std::vector<Origin> origins_;
};

// The first chunk at or after `at`, without gaps; empty if there is none. Moves `at` behind it.
std::string_view next_chunk(std::string_view folded, std::size_t& at);

// Whether the chunk is a word.
bool is_word(std::string_view chunk);

// The size of the first code point of a valid text, in bytes.
std::size_t first_size(std::string_view valid);

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_FOLDED_TEXT_H_
