// A table with the tokenizer of the search, in memory.

#ifndef TESTS_ADDONS_SEARCH_TOKEN_TABLE_H_
#define TESTS_ADDONS_SEARCH_TOKEN_TABLE_H_

#include <cstdint>
#include <string>
#include <vector>

#include "addons/search/query.h"

struct sqlite3;

namespace corvan_test {

class TokenTable {
 public:
  TokenTable();
  ~TokenTable();
  TokenTable(const TokenTable&) = delete;
  TokenTable& operator=(const TokenTable&) = delete;

  // Empty if the tokenizer could be used, else what failed.
  const std::string& error() const { return error_; }

  void clear();
  void add(int64_t id, const std::string& text);

  // The ids of the texts that have the query's tokens.
  std::vector<int64_t> find(const Corvan::search::Query& query);

  // The tokens of all texts, sorted, each once.
  std::vector<std::string> tokens();

 private:
  void run(const std::string& sql);

  sqlite3* connection_ = nullptr;
  std::string error_;
};

}  // namespace corvan_test

#endif  // TESTS_ADDONS_SEARCH_TOKEN_TABLE_H_
