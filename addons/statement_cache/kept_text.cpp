#include "addons/statement_cache/kept_text.h"

#include <algorithm>
#include <array>

namespace Corvan::statement_cache {

namespace {

struct Word {
  std::string_view word;
  TextKind kind;
};

constexpr std::array<Word, 8> kWords = {{{"select", TextKind::kKept},
                                         {"insert", TextKind::kKept},
                                         {"update", TextKind::kKept},
                                         {"delete", TextKind::kKept},
                                         {"replace", TextKind::kKept},
                                         {"begin", TextKind::kBegin},
                                         {"commit", TextKind::kKept},
                                         {"rollback", TextKind::kRollback}}};

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
  const auto* const found = std::find_if(kWords.begin(), kWords.end(), [sql](const Word& each) {
    return begins_with_word(sql, each.word);
  });
  if (found == kWords.end()) return TextKind::kOther;
  return sql.size() <= kLongestKept ? found->kind : TextKind::kTooLong;
}

}  // namespace Corvan::statement_cache
