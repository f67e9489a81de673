// The tokenizer of the index, for SQLite's FTS5.

#ifndef ADDONS_SEARCH_TOKENIZER_H_
#define ADDONS_SEARCH_TOKENIZER_H_

#include <string>

#include "addons/search/common_pairs.h"

struct sqlite3;

namespace Corvan::search {

constexpr const char* kTokenizer = "corvan";

// Makes the tokenizer known to this connection; the last call counts. Texts get the tokens of the
// pairs at `*pairs`, too, unless one of the pointers is null. `pairs` must stay valid until the
// last text is added. Returns SQLite's result code; SQLITE_ERROR if SQLite has no FTS5.
int register_tokenizer(sqlite3* connection, const CommonPairs* const* pairs = nullptr);

// Names the rules of the tokenizer and the Unicode data that it uses. An index with another version
// must be created again.
std::string tokenizer_version();

}  // namespace Corvan::search

#endif  // ADDONS_SEARCH_TOKENIZER_H_
