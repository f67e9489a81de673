// Why a row is doubtful. Doubtful rows are left out of the new store unless the user asks for them.

#ifndef TOOLS_SALVAGE_RESCUE_DOUBT_H_
#define TOOLS_SALVAGE_RESCUE_DOUBT_H_

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tools/salvage/file/record.h"
#include "tools/salvage/known_schema.h"

namespace corvan_tool {

// If several reasons apply, the first one counts.
enum class Doubt {
  kNone,
  kFree,       // on a page that the file lists as free: the row was deleted
  kUnreached,  // on a page that nothing points to, or in no index, although both could be read
  kLog,        // only in the log, after a damaged commit
  kVersions,   // different rows have the same id or key
  kPlace,      // the id does not fit between its neighbours on the page
  kText,       // a text is not UTF-8, or contains a zero byte
  kValue,      // a value does not have its column's type, or the store never writes it
};
constexpr std::size_t kDoubts = 8;

// The reason's key in JSON.
const char* doubt_word(Doubt doubt);
// The text that follows the number of rows: "on pages ...".
const char* doubt_text(Doubt doubt);

// Returns kText, kValue or kNone. `values` must have the shape of the table's records.
Doubt doubt_about(const KnownTable& table, std::int64_t row_id, const std::vector<Value>& values);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_RESCUE_DOUBT_H_
