#include "addons/statement_cache/kept_text.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace Corvan::statement_cache {

namespace {

constexpr std::size_t kLongest = 2048;

// Not rollback: it can undo a change of the schema that other statements were prepared after.
constexpr std::array<std::string_view, 7> kWords = {"select",  "insert", "update", "delete",
                                                    "replace", "begin",  "commit"};

char lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool is_part_of_word(char c) {
  return (lower(c) >= 'a' && lower(c) <= 'z') || (c >= '0' && c <= '9') || c == '_';
}

bool begins_with_word(std::string_view sql, std::string_view word) {
  if (sql.size() < word.size()) return false;
  if (!std::equal(word.begin(), word.end(), sql.begin(),
                  [](char a, char b) { return a == lower(b); })) {
    return false;
  }
  return sql.size() == word.size() || !is_part_of_word(sql[word.size()]);
}

}  // namespace

TextKind kind_of(std::string_view sql) {
  sql.remove_prefix(std::min(sql.find_first_not_of(" \t\n\f\r"), sql.size()));
  const bool listed = std::any_of(kWords.begin(), kWords.end(), [sql](std::string_view word) {
    return begins_with_word(sql, word);
  });
  if (!listed) return TextKind::kOther;
  return sql.size() <= kLongest ? TextKind::kKept : TextKind::kTooLong;
}

}  // namespace Corvan::statement_cache
