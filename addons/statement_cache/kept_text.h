#ifndef ADDONS_STATEMENT_CACHE_KEPT_TEXT_H_
#define ADDONS_STATEMENT_CACHE_KEPT_TEXT_H_

#include <string_view>

namespace Corvan::statement_cache {

// What happens to a statement with a text when it is finalised.
enum class TextKind {
  kKept,     // it is kept
  kTooLong,  // it is not kept: it contains a list of ids, which rarely comes again
  kOther,    // it may change the schema or a setting that other statements were prepared under
};

// Decides by the first word, in upper or lower case, and the length. White space before the word is
// skipped.
TextKind kind_of(std::string_view sql);

}  // namespace Corvan::statement_cache

#endif  // ADDONS_STATEMENT_CACHE_KEPT_TEXT_H_
