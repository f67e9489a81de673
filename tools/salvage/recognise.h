// Which table or index a page belongs to when nothing points to it.

#ifndef TOOLS_SALVAGE_RECOGNISE_H_
#define TOOLS_SALVAGE_RECOGNISE_H_

#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "tools/salvage/coverage.h"
#include "tools/salvage/file/page.h"
#include "tools/salvage/file/record.h"
#include "tools/salvage/known_schema.h"

namespace corvan_tool {

constexpr std::size_t kAnyNumber = std::numeric_limits<std::size_t>::max();

enum class Match {
  kLoose,  // values may have the wrong type, except that an alias of the row id is NULL
  kExact,
};

// Whether the values can be those of a record of this shape. Up to `added` more may follow: columns
// that were added to the table later.
bool has_shape(const std::vector<Value>& values, const std::string& shape, Match match,
               std::size_t added = 0);

// The same for a cell's record, as far as it is on its page.
bool starts_with_shape(std::string_view page, const Cell& cell, const std::string& shape,
                       Match match, std::size_t added);

// The table whose shape most records of a leaf page have; nothing if none has any.
std::optional<std::size_t> table_of_page(const Page& page, std::string_view bytes,
                                         const KnownSchema& schema, const Coverage& coverage);

// The index that a page is from, by its first entry. Null if several are possible, or if the rows
// of its table or the index itself were read whole, so that the page is not needed.
const KnownIndex* index_of_page(const Page& page, std::string_view bytes, const KnownSchema& schema,
                                const Coverage& coverage);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_RECOGNISE_H_
