#include "addons/search/query_parser.h"

#include <cstddef>
#include <utility>

#include "addons/search/cluster.h"

namespace Corvan::search {

namespace {

enum class Sign { kText, kSpace, kQuote, kAsterisk };

bool is_quote(char32_t point) {
  return point == U'"' || point == U'\u201C' || point == U'\u201D' || point == U'\u201E' ||
         point == U'\u201F' || point == U'\u00AB' || point == U'\u00BB' || point == U'\uFF02';
}

bool is_space(char32_t point) {
  return (point >= 0x09 && point <= 0x0D) || point == 0x20 || point == 0x85 || point == 0xA0 ||
         point == 0x1680 || (point >= 0x2000 && point <= 0x200A) || point == 0x2028 ||
         point == 0x2029 || point == 0x202F || point == 0x205F || point == 0x3000;
}

// A sign with a combining mark is text. CR with LF is one cluster.
Sign sign_of(const Cluster& cluster) {
  if (cluster.size() == 0) return Sign::kText;
  const char32_t first = cluster[0];
  if (is_space(first) && (cluster.size() == 1 || cluster[1] == U'\n')) return Sign::kSpace;
  if (cluster.size() > 1) return Sign::kText;
  if (is_quote(first)) return Sign::kQuote;
  return first == U'*' || first == U'\uFF0A' ? Sign::kAsterisk : Sign::kText;
}

class Parser {
 public:
  explicit Parser(std::string_view query) : query_(query) {}

  std::vector<QueryPart> parse() {
    while (at_ < query_.size()) {
      const Cluster cluster(query_.substr(at_));
      const std::size_t next = at_ + cluster.bytes();
      take(sign_of(cluster), next);
      at_ = next;
    }
    end_part();
    return std::move(parts_);
  }

 private:
  void take(Sign sign, std::size_t next) {
    if (sign == Sign::kQuote) {
      take_quote(next);
    } else if (is_quoted_ || sign == Sign::kText) {
      text_end_ = next;
    } else if (sign == Sign::kSpace) {
      end_part();
      begin_at(next, false);
    } else if (follows_quotation_ && at_ == begin_) {
      parts_.back().is_prefix = true;
      begin_at(next, true);
    }
  }

  void take_quote(std::size_t next) {
    const bool closes = is_quoted_;
    if (closes) {
      parts_.push_back({query_.substr(begin_, at_ - begin_), false});
    } else {
      end_part();
    }
    is_quoted_ = !closes;
    begin_at(next, closes);
  }

  // Asterisks behind text_end_ belong to the part's end.
  void end_part() {
    if (text_end_ == begin_) return;
    parts_.push_back({query_.substr(begin_, text_end_ - begin_), text_end_ < at_});
  }

  void begin_at(std::size_t begin, bool follows_quotation) {
    begin_ = text_end_ = begin;
    follows_quotation_ = follows_quotation;
  }

  const std::string_view query_;
  std::size_t at_ = 0;  // of the cluster that is being read
  std::vector<QueryPart> parts_;
  bool is_quoted_ = false;
  bool follows_quotation_ = false;
  std::size_t begin_ = 0;     // of the part
  std::size_t text_end_ = 0;  // the end of its last cluster that is not an asterisk
};

}  // namespace

std::vector<QueryPart> parse_query(std::string_view query) {
  return Parser(query).parse();
}

}  // namespace Corvan::search
