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

constexpr const char* kRules = "1";  // change it when a text gets other tokens than before

using TakeToken = int (*)(void*, int, const char*, int, int, int);

// FTS5 needs an address for each tokenizer; this one has no state.
int create_tokenizer(void* /*context*/, const char** /*arguments*/, int /*count*/,
                     Fts5Tokenizer** tokenizer) {
  static char instance = 0;
  *tokenizer = reinterpret_cast<Fts5Tokenizer*>(&instance);
  return SQLITE_OK;
}

void delete_tokenizer(Fts5Tokenizer* /*tokenizer*/) {}

// The index has no positions, so that FTS5 needs no offsets.
int give_token(std::string_view token, TakeToken take, void* context) {
  return take(context, 0, token.data(), static_cast<int>(token.size()), 0, 0);
}

int give_tokens(std::string_view text, TakeToken take, void* context) {
  int result = SQLITE_OK;
  for_each_token(FoldedText(text).text(), [&](std::string_view token) {
    result = give_token(token, take, context);
    return result == SQLITE_OK;
  });
  return result;
}

int tokenize(Fts5Tokenizer* /*tokenizer*/, void* context, int flags, const char* text, int size,
             TakeToken take) {
  if (text == nullptr || size <= 0) return SQLITE_OK;
  const std::string_view given(text, static_cast<std::size_t>(size));
  if ((flags & FTS5_TOKENIZE_QUERY) != 0) return give_token(given, take, context);
  try {
    return give_tokens(given, take, context);
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

int register_tokenizer(sqlite3* connection) {
  fts5_api* api = nullptr;
  const int result = find_fts5(connection, &api);
  if (result != SQLITE_OK) return result;
  if (api == nullptr) return SQLITE_ERROR;
  fts5_tokenizer functions{create_tokenizer, delete_tokenizer, tokenize};
  return api->xCreateTokenizer(api, kTokenizer, nullptr, &functions, nullptr);
}

std::string tokenizer_version() {
  return std::string(kRules) + ' ' + unspaced_characters_version() + ' ' +
         utf8proc_unicode_version();
}

}  // namespace Corvan::search
