#include <string>
#include <vector>

#include "addons/search/code_point.h"
#include "addons/search/query.h"
#include "addons/search/tokens.h"
#include "tests/addons/search/token_table.h"
#include "tests/fuzz/targets.h"

namespace corvan_test {

namespace {

// The number of code points; 0 if the token is empty, or not valid UTF-8.
std::size_t code_points(const std::string& token) {
  std::size_t count = 0;
  char32_t point = 0;
  for (std::size_t at = 0; at < token.size(); ++count) {
    const std::size_t size = Corvan::search::decode(token.substr(at), point);
    if (size == 0) return 0;
    at += size;
  }
  return count;
}

std::string check_token(const std::string& token) {
  const std::size_t count = code_points(token);
  if (count == 0) return "A token is not valid UTF-8: " + token;
  if (token.size() > Corvan::search::kMostTokenBytes) return "A token is too long: " + token;
  if (token.find('\0') != std::string::npos) return "A token has a zero byte.";
  if (!Corvan::search::is_word(token) && count > 2) return "A token is too long: " + token;
  return "";
}

}  // namespace

std::string check_search_tokenizer(const uint8_t* data, std::size_t size) {
  static TokenTable table;
  const std::string text(reinterpret_cast<const char*>(data), size);
  table.clear();
  table.add(1, text);
  const std::vector<std::string> tokens = table.tokens();
  for (const std::string& token : tokens) {
    const std::string wrong = check_token(token);
    if (!wrong.empty()) return wrong;
  }
  const Corvan::search::Query query(text);
  if (tokens.empty() && !query.is_empty()) return "There are no tokens.";
  const bool found = !query.is_empty() && !table.find(query).empty();
  if (!table.error().empty()) return "SQLite fails: " + table.error();
  return found == query.is_empty() ? "The text is not found." : "";
}

}  // namespace corvan_test
