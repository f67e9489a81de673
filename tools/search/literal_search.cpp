#include "tools/search/literal_search.h"

#include <sqlite3.h>
#include <utf8proc.h>

#include <cstdlib>
#include <memory>
#include <new>
#include <string_view>

#include "tools/store/snapshot.h"
#include "tools/ui/error.h"
#include "tools/ui/terminal_text.h"
#include "tools/ui/utf8.h"

namespace corvan_tool {

namespace {

// `text` in the form by which texts are compared regardless of letter case: with Unicode case
// folding, composed letters in one form, and U+FFFD for bytes that are not UTF-8.
std::string folded(std::string_view text) {
  const std::string valid = valid_utf8(text);
  utf8proc_uint8_t* result = nullptr;
  const utf8proc_ssize_t size = utf8proc_map(
      reinterpret_cast<const utf8proc_uint8_t*>(valid.data()),
      static_cast<utf8proc_ssize_t>(valid.size()), &result,
      static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD));
  const std::unique_ptr<utf8proc_uint8_t, void (*)(void*)> owner(result, std::free);
  if (size < 0) throw std::bad_alloc();
  return {reinterpret_cast<const char*>(result), static_cast<std::size_t>(size)};
}

// The SQL function folded(TEXT).
void fold_value(sqlite3_context* context, int /*count*/, sqlite3_value** values) {
  const unsigned char* const text = sqlite3_value_text(values[0]);
  if (text == nullptr) return;
  try {
    const std::string result = folded({reinterpret_cast<const char*>(text),
                                       static_cast<std::size_t>(sqlite3_value_bytes(values[0]))});
    sqlite3_result_text64(context, result.data(), result.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
  } catch (const std::bad_alloc&) {
    sqlite3_result_error_nomem(context);
  }
}

void add_folded(const Snapshot& store) {
  const int rc = sqlite3_create_function_v2(store.connection().handle(), "folded", 1,
                                            SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr, fold_value,
                                            nullptr, nullptr, nullptr);
  if (rc != SQLITE_OK) throw ToolError(store.name() + ": " + store.connection().error());
}

// Converts a position in the folded form of `text` to the position in `text`.
std::size_t unfolded_place(std::string_view text, std::size_t place) {
  std::string_view rest = text;
  for (std::size_t size = 0; !rest.empty();) {
    const std::string_view before = rest;
    size += folded(take_cluster(rest).text).size();
    if (size > place) return text.size() - before.size();
  }
  return text.size();
}

}  // namespace

LiteralSearch::LiteralSearch(const std::string& text, LetterCase letter_case)
    : letter_case_(letter_case), text_(letter_case == kIgnored ? folded(text) : text) {}

FoundMessages LiteralSearch::find(const Snapshot& store, const SearchCriteria& criteria) const {
  if (letter_case_ == kExact) return select_messages(store, criteria, "instr(content,?1)>0", text_);
  add_folded(store);
  return select_messages(store, criteria, "instr(folded(content),?1)>0", text_);
}

std::size_t LiteralSearch::hit_in(const std::string& content) const {
  if (letter_case_ == kExact) return content.find(text_);
  return unfolded_place(content, folded(content).find(text_));
}

}  // namespace corvan_tool
