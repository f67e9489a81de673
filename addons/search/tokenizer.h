// The tokenizer of the index, for SQLite's FTS5.

#ifndef ADDONS_SEARCH_TOKENIZER_H_
#define ADDONS_SEARCH_TOKENIZER_H_

#include <string>

struct sqlite3;

namespace Corvan::search {

constexpr const char* kTokenizer = "corvan";

// Makes the tokenizer known to this connection. Returns SQLite's result code; SQLITE_ERROR if
// SQLite has no FTS5.
int register_tokenizer(sqlite3* connection);

// Names the rules of the tokenizer and the Unicode data that it uses. An index with another version
// must be created again.
std::string tokenizer_version();

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_TOKENIZER_H_
