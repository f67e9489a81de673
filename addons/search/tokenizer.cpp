#include "addons/search/tokenizer.h"

#include <sqlite3.h>
#include <utf8proc.h>

#include <new>
#include <string_view>

#include "addons/search/code_point.h"
#include "addons/search/folded_text.h"
#include "addons/search/tokens.h"

namespace Corvan::search {

namespace {

constexpr const char* kRules = "2";  // change it when a text gets other tokens than before

using TakeToken = int (*)(void*, int, const char*, int, int, int);

const CommonPairs* const kNoPairs = nullptr;

// The only state of a tokenizer is where the pairs are.
int create_tokenizer(void* context, const char** /*arguments*/, int /*count*/,
                     Fts5Tokenizer** tokenizer) {
  *tokenizer = static_cast<Fts5Tokenizer*>(context);
  return SQLITE_OK;
}

const CommonPairs* pairs_of(const Fts5Tokenizer* tokenizer) {
  return *reinterpret_cast<const CommonPairs* const*>(tokenizer);
}

void delete_tokenizer(Fts5Tokenizer* /*tokenizer*/) {}

// The index has no positions, so that FTS5 needs no offsets.
int give_token(std::string_view token, TakeToken take, void* context) {
  return take(context, 0, token.data(), static_cast<int>(token.size()), 0, 0);
}

int give_pairs(std::string_view folded, const CommonPairs& pairs, TakeToken take, void* context) {
  std::string_view before;
  HashedShare last;
  for (std::size_t at = 0;;) {
    const std::string_view chunk = next_chunk(folded, at);
    if (chunk.empty()) return SQLITE_OK;
    const auto word = is_word(chunk) ? pairs.word(chunk) : HashedShare();
    if (last.share > 0 && word.share > 0 && pairs.has(last, word)) {
      const int result = give_token(pair_token(before, chunk), take, context);
      if (result != SQLITE_OK) return result;
    }
    before = chunk;
    last = word;
  }
}

int give_tokens(std::string_view text, const CommonPairs* pairs, TakeToken take, void* context) {
  const FoldedText folded(text);
  int result = SQLITE_OK;
  for_each_token(folded.text(), [&](std::string_view token) {
    result = give_token(token, take, context);
    return result == SQLITE_OK;
  });
  if (result != SQLITE_OK || pairs == nullptr || pairs->is_empty()) return result;
  return give_pairs(folded.text(), *pairs, take, context);
}

int tokenize(Fts5Tokenizer* tokenizer, void* context, int flags, const char* text, int size,
             TakeToken take) {
  if (text == nullptr || size <= 0) return SQLITE_OK;
  const std::string_view given(text, static_cast<std::size_t>(size));
  if ((flags & FTS5_TOKENIZE_QUERY) != 0) return give_token(given, take, context);
  try {
    return give_tokens(given, pairs_of(tokenizer), take, context);
  } catch (const std::bad_alloc&) {
    return SQLITE_NOMEM;
  } catch (...) {
    return SQLITE_ERROR;
  }
}

// FTS5 gives its interface to a statement with a pointer to a place for it.
int find_fts5(sqlite3* connection, fts5_api** api) {
  sqlite3_stmt* statement = nullptr;
  const int result = sqlite3_prepare_v2(connection, "select fts5(?1)", -1, &statement, nullptr);
  if (result != SQLITE_OK) return result;
  sqlite3_bind_pointer(statement, 1, api, "fts5_api_ptr", nullptr);
  sqlite3_step(statement);
  return sqlite3_finalize(statement);
}

}  // namespace

int register_tokenizer(sqlite3* connection, const CommonPairs* const* pairs) {
  fts5_api* api = nullptr;
  const int result = find_fts5(connection, &api);
  if (result != SQLITE_OK) return result;
  if (api == nullptr) return SQLITE_ERROR;
  fts5_tokenizer functions{create_tokenizer, delete_tokenizer, tokenize};
  const void* const context = pairs == nullptr ? &kNoPairs : pairs;
  return api->xCreateTokenizer(api, kTokenizer, const_cast<void*>(context), &functions, nullptr);
}

std::string tokenizer_version() {
  return std::string(kRules) + ' ' + unspaced_characters_version() + ' ' +
         utf8proc_unicode_version();
}

}  // namespace Corvan::search
