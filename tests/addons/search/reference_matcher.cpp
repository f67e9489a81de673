#include "tests/addons/search/reference_matcher.h"

#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <deque>
#include <set>
#include <utility>

namespace corvan_test {

namespace {

struct Point {
  std::size_t at;
  std::size_t size;
  int32_t value;  // -1: not valid
};

struct Term {
  std::vector<Unit> units;
  bool is_prefix = false;
};

const utf8proc_uint8_t* bytes(const std::string& text) {
  return reinterpret_cast<const utf8proc_uint8_t*>(text.data());
}

std::vector<Point> points_of(const std::string& text) {
  std::vector<Point> points;
  for (std::size_t at = 0; at < text.size();) {
    int32_t value = -1;
    const auto left = static_cast<utf8proc_ssize_t>(text.size() - at);
    const utf8proc_ssize_t size = utf8proc_iterate(bytes(text) + at, left, &value);
    points.push_back({at, size > 0 ? static_cast<std::size_t>(size) : 1, size > 0 ? value : -1});
    at += points.back().size;
  }
  return points;
}

std::string folded(const std::string& cluster) {
  utf8proc_uint8_t* result = nullptr;
  const auto options = static_cast<utf8proc_option_t>(
      UTF8PROC_STABLE | UTF8PROC_COMPAT | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD | UTF8PROC_IGNORE);
  const auto size = static_cast<utf8proc_ssize_t>(cluster.size());
  const utf8proc_ssize_t given = utf8proc_map(bytes(cluster), size, &result, options);
  if (given < 0) return "\n";
  std::string text(reinterpret_cast<char*>(result), static_cast<std::size_t>(given));
  std::free(result);
  int32_t second = 0;
  if (text.size() > 1 && text[0] == ' ' && utf8proc_iterate(bytes(text) + 1, -1, &second) > 0 &&
      utf8proc_get_property(second)->combining_class > 0) {
    return " ";  // a space with marks separates
  }
  return text;
}

// By blocks: good enough for the characters of the tests.
bool is_in_unspaced_block(int32_t p) {
  const std::pair<int32_t, int32_t> blocks[] = {
      {0x0E00, 0x0EFF}, {0x1000, 0x109F},   {0x1100, 0x11FF},  {0x1780, 0x17FF},
      {0x3005, 0x3007}, {0x302A, 0x318F},   {0x3400, 0x9FFF},  {0xAC00, 0xD7AF},
      {0xF900, 0xFAFF}, {0x1F1E6, 0x1FAFF}, {0x20000, 0x2FA1F}};
  for (const auto& [first, last] : blocks) {
    if (p >= first && p <= last) return true;
  }
  return false;
}

enum class Class { kSeparator, kWord, kUnspaced, kMark };

Class class_of(int32_t p) {
  const char category = *utf8proc_category_string(p);
  const bool is_letter = category == 'L' || category == 'M' || category == 'N';
  if (utf8proc_category(p) == UTF8PROC_CATEGORY_SO) {
    return p == 0xFFFD ? Class::kSeparator : Class::kUnspaced;
  }
  if (p >= 0x1F3FB && p <= 0x1F3FF) return Class::kUnspaced;
  if (is_letter && is_in_unspaced_block(p)) return Class::kUnspaced;
  if (utf8proc_category(p) == UTF8PROC_CATEGORY_CO) return Class::kUnspaced;
  if (category == 'M') return Class::kMark;
  return is_letter ? Class::kWord : Class::kSeparator;
}

class Units {
 public:
  void add(const std::string& cluster) {
    const std::string text = folded(cluster);
    for (const Point& point : points_of(text)) {
      add(text.substr(point.at, point.size), class_of(point.value));
    }
  }

  void separate() { is_open_ = false, is_separated_ = true; }

  std::vector<Unit> units;

 private:
  void add(const std::string& point, Class kind) {
    if (kind == Class::kSeparator) return separate();
    if (kind == Class::kMark && !is_open_) return;
    if (kind != Class::kUnspaced && is_open_) {
      units.back().text += point;
      return;
    }
    units.push_back({point, kind == Class::kWord, is_separated_});
    is_open_ = kind == Class::kWord;
    is_separated_ = false;
  }

  bool is_open_ = false;  // a word that may go on
  bool is_separated_ = false;
};

bool follow_alike(const Unit& wanted_before, const Unit& wanted, const Unit& given) {
  if (wanted_before.is_word || wanted.is_word || wanted.is_separated) return true;
  return !given.is_separated;
}

bool is_at(const Term& term, const std::vector<Unit>& units, std::size_t at) {
  for (std::size_t i = 0; i < term.units.size(); ++i) {
    if (at + i >= units.size()) return false;
    const Unit& wanted = term.units[i];
    const Unit& given = units[at + i];
    if (i > 0 && !follow_alike(term.units[i - 1], wanted, given)) return false;
    const bool open = term.is_prefix && i + 1 == term.units.size() && wanted.is_word;
    const std::string start = open ? given.text.substr(0, wanted.text.size()) : given.text;
    if (start != wanted.text || given.is_word != wanted.is_word) return false;
  }
  return true;
}

bool is_in(const Term& term, const std::vector<Unit>& units) {
  for (std::size_t at = 0; at < units.size(); ++at) {
    if (is_at(term, units, at)) return true;
  }
  return false;
}

bool is_space(const std::string& cluster) {
  static const std::set<std::string> spaces = {
      " ", "\t", "\n", "\r", "\r\n", "\v", "\f", "\u0085", "\u00A0", "\u2003", "\u2028", "\u3000"};
  return spaces.count(cluster) > 0;
}

bool is_quote(const std::string& cluster) {
  static const std::set<std::string> quotes = {"\"", "“", "”", "„", "‟", "«", "»", "＂"};
  return quotes.count(cluster) > 0;
}

bool is_asterisk(const std::string& cluster) {
  return cluster == "*" || cluster == "＊";
}

// A part of a query between spaces and quotation marks.
struct Part {
  std::deque<std::string> clusters;
  bool is_quoted = false;
  bool follows_quotation = false;
};

std::vector<Part> parts_of(const std::string& query) {
  std::vector<Part> parts(1);
  const std::vector<std::size_t> borders = cluster_borders(query);
  for (std::size_t i = 0; i + 1 < borders.size(); ++i) {
    const std::string cluster = query.substr(borders[i], borders[i + 1] - borders[i]);
    const bool was_quoted = parts.back().is_quoted;
    if (is_quote(cluster)) {
      parts.push_back({{}, !was_quoted, was_quoted});
    } else if (is_space(cluster) && !was_quoted) {
      parts.emplace_back();
    } else {
      parts.back().clusters.push_back(cluster);
    }
  }
  return parts;
}

// Removes asterisks at one end.
bool strip_last(std::deque<std::string>& clusters) {
  const std::size_t size = clusters.size();
  while (!clusters.empty() && is_asterisk(clusters.back())) clusters.pop_back();
  return clusters.size() < size;
}

bool strip_first(std::deque<std::string>& clusters) {
  const std::size_t size = clusters.size();
  while (!clusters.empty() && is_asterisk(clusters.front())) clusters.pop_front();
  return clusters.size() < size;
}

std::vector<Term> terms_of(const std::string& query) {
  std::vector<Term> terms;
  for (Part& part : parts_of(query)) {
    if (part.follows_quotation && strip_first(part.clusters)) terms.back().is_prefix = true;
    const bool is_prefix = !part.is_quoted && strip_last(part.clusters);
    Units units;
    for (const std::string& cluster : part.clusters) units.add(cluster);
    terms.push_back({units.units, is_prefix});
  }
  const auto is_empty = [](const Term& term) { return term.units.empty(); };
  terms.erase(std::remove_if(terms.begin(), terms.end(), is_empty), terms.end());
  return terms;
}

}  // namespace

void utf8_append(std::string& text, char32_t point) {
  utf8proc_uint8_t encoded[4];
  const utf8proc_ssize_t size = utf8proc_encode_char(static_cast<int32_t>(point), encoded);
  text.append(reinterpret_cast<char*>(encoded), static_cast<std::size_t>(size));
}

std::vector<std::size_t> cluster_borders(const std::string& text) {
  std::vector<std::size_t> borders;
  int32_t before = -1;
  int32_t state = 0;
  for (const Point& point : points_of(text)) {
    const bool joins = before >= 0 && point.value >= 0 &&
                       !utf8proc_grapheme_break_stateful(before, point.value, &state);
    if (!joins) {
      borders.push_back(point.at);
      state = 0;
    }
    before = point.value;
  }
  borders.push_back(text.size());
  return borders;
}

std::vector<Unit> units_of(const std::string& text) {
  Units units;
  const std::vector<std::size_t> borders = cluster_borders(text);
  for (std::size_t i = 0; i + 1 < borders.size(); ++i) {
    units.add(text.substr(borders[i], borders[i + 1] - borders[i]));
  }
  return units.units;
}

bool reference_matches(const std::string& query, const std::string& text) {
  const std::vector<Term> terms = terms_of(query);
  const std::vector<Unit> units = units_of(text);
  for (const Term& term : terms) {
    if (!is_in(term, units)) return false;
  }
  return !terms.empty();
}

}  // namespace corvan_test
