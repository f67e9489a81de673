// The pages of SQLite's file format, parsed without trusting a byte of them.

#ifndef TOOLS_SALVAGE_FILE_PAGE_H_
#define TOOLS_SALVAGE_FILE_PAGE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace corvan_tool {

using PageNumber = std::uint32_t;  // counts from 1; 0 is no page

constexpr std::size_t kFileHeader = 100;  // bytes at the start of page 1

constexpr std::size_t kSmallestPage = 512;
constexpr std::size_t kLargestPage = 65536;

constexpr bool is_page_size(std::size_t size) {
  return size >= kSmallestPage && size <= kLargestPage && (size & (size - 1)) == 0;
}

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

// One entry of a page. Members that the page's type does not have are 0.
struct Cell {
  PageNumber child = 0;         // inner pages
  std::int64_t key = 0;         // tables: the row id; on inner pages the largest one below `child`
  std::uint64_t size = 0;       // of the whole record
  std::size_t at = 0;           // where the record begins on the page
  std::size_t held = 0;         // how many bytes of it are on the page
  PageNumber continuation = 0;  // the first overflow page; 0 if there is none
};

struct Page {
  PageType type = PageType::kTableLeaf;
  std::vector<Cell> cells;    // in the page's order, without cells that extend beyond the page
  PageNumber last_child = 0;  // inner pages
  // All cells are within the page, and cells and free space fill it exactly.
  bool sound = false;
};

// Returns nothing if `bytes` is not a page of a tree. `usable` is the page size without the bytes
// reserved at the page's end. If the page was cut off, `bytes` is the part that is left: cells
// beyond it are left out, and the page is not sound.
std::optional<Page> parse_page(std::string_view bytes, std::size_t usable, bool is_first);

// For each cell whether its key fits between the others: the fewest possible are false so that the
// keys of the rest ascend strictly.
std::vector<bool> keys_in_order(const std::vector<Cell>& cells);

// The part of the cell's record that is on its page.
inline std::string_view held_part(std::string_view page, const Cell& cell) {
  return page.substr(cell.at, cell.held);
}

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_FILE_PAGE_H_
