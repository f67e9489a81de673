// The pages and records of SQLite's file format, read without trusting a byte of them.

#ifndef TOOLS_SALVAGE_PAGE_H_
#define TOOLS_SALVAGE_PAGE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace corvan_tool {

using PageNumber = std::uint32_t;  // the first page is 1; 0 is none

constexpr std::size_t kFileHeader = 100;  // at the start of the first page

// The unsigned number in `count` bytes, the highest first. They must be within `bytes`.
std::uint64_t number_at(std::string_view bytes, std::size_t at, std::size_t count);

// A number of variable length, which `at` then stands behind; nothing when it does not end within
// `bytes`.
std::optional<std::uint64_t> take_number(std::string_view bytes, std::size_t& at);

enum class PageType : std::uint8_t {
  kIndexInner = 2,
  kTableInner = 5,
  kIndexLeaf = 10,
  kTableLeaf = 13,
};

constexpr bool is_inner(PageType type) {
  return type == PageType::kIndexInner || type == PageType::kTableInner;
}
constexpr bool is_table(PageType type) {
  return type == PageType::kTableInner || type == PageType::kTableLeaf;
}

// One entry of a page. What a page of its type does not have is 0.
struct Cell {
  PageNumber child = 0;         // inner pages
  std::int64_t key = 0;         // tables: the row id; on inner pages the largest below `child`
  std::uint64_t size = 0;       // of the record
  std::size_t at = 0;           // where the part of the record lies that the page holds
  std::size_t held = 0;         // its length
  PageNumber continuation = 0;  // the page that the rest begins on; 0 when there is no rest
};

struct Page {
  PageType type = PageType::kTableLeaf;
  std::vector<Cell> cells;    // in the page's order, without those that lie outside of it
  PageNumber last_child = 0;  // inner pages
  // Every cell is within the page, and cells and free space fill it exactly.
  bool sound = false;
};

// Nothing when `bytes` is no page of a tree. `usable` is the page's size without what is reserved
// at its end. Of a page that was cut off, `bytes` is what is there: cells beyond are left out, and
// the page is not sound.
std::optional<Page> parse_page(std::string_view bytes, std::size_t usable, bool is_first);

// A value of a record.
struct Value {
  enum Kind { kNull, kInteger, kReal, kText, kBlob };
  Kind kind = kNull;
  std::int64_t integer = 0;  // of kReal: its bits
  std::string_view bytes;    // of kText and kBlob, within the record
};

// The values of a record of `size` bytes, of which `record` has at least the header; what lies
// beyond it is cut off. False when it is no record, or its values do not fill it; `values` is then
// undefined.
bool parse_record(std::string_view record, std::uint64_t size, std::vector<Value>& values);

// The positions in `keys` that have to be left out for the rest to rise: the fewest.
std::vector<std::size_t> out_of_order(const std::vector<std::int64_t>& keys);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_PAGE_H_
