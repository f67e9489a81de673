#ifndef ADDONS_STATEMENT_CACHE_KEPT_TEXT_H_
#define ADDONS_STATEMENT_CACHE_KEPT_TEXT_H_

#include <cstddef>
#include <string_view>

namespace Corvan::statement_cache {

// The length of the longest text that is kept.
constexpr std::size_t kLongestKept = 2048;

// What the cache does with a statement.
enum class TextKind {
  kKept,      // keeps it
  kBegin,     // keeps it; what was changed before can no longer be rolled back
  kRollback,  // keeps it; it may undo a change of the schema
  kTooLong,   // does not keep it: usually an id list, which rarely recurs
  kOther,  // does not keep it: it may change the schema, or a setting that affects other statements
};

// The kind of the statement with this text. Its first word decides, in upper or lower case, and its
// length. White space before the word is skipped.
TextKind kind_of(std::string_view sql);

}  // namespace Corvan::statement_cache

#endif  // ADDONS_STATEMENT_CACHE_KEPT_TEXT_H_
