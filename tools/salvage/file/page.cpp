#include "tools/salvage/file/page.h"

#include <algorithm>

#include "tools/salvage/file/record.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kSmallestCell = 4;  // the room that even a shorter cell takes

// Overlapping cells are kept, because one of them may be right. Their total size is limited to this
// multiple of the page size.
constexpr std::size_t kMostOverlap = 8;

struct PageHeader {
  PageType type = PageType::kTableLeaf;
  std::size_t begin = 0;
  std::size_t end = 0;    // the cell pointers begin here
  std::size_t cells = 0;  // the number of cells
  std::size_t pointers_end = 0;
  std::size_t content = 0;  // cells and the free space between them begin here
};

std::optional<PageType> type_of(unsigned char byte) {
  for (const PageType type :
       {PageType::kIndexInner, PageType::kTableInner, PageType::kIndexLeaf, PageType::kTableLeaf}) {
    if (static_cast<unsigned char>(type) == byte) return type;
  }
  return std::nullopt;
}

std::optional<PageHeader> parse_header(std::string_view bytes, bool is_first) {
  PageHeader header;
  header.begin = is_first ? kFileHeader : 0;
  if (bytes.size() < header.begin + 12) return std::nullopt;
  const auto type = type_of(static_cast<unsigned char>(bytes[header.begin]));
  if (!type) return std::nullopt;
  header.type = *type;
  header.end = header.begin + (is_inner(*type) ? 12 : 8);
  header.cells = static_cast<std::size_t>(number_at(bytes, header.begin + 3, 2));
  header.pointers_end = header.end + 2 * header.cells;
  header.content = static_cast<std::size_t>(number_at(bytes, header.begin + 5, 2));
  if (header.content == 0) header.content = kLargestPage;
  if (header.pointers_end > bytes.size()) return std::nullopt;
  return header;
}

// How many bytes of a record are on the page itself, by the rules of the file format.
std::size_t held_on_page(std::uint64_t size, std::size_t usable, PageType type) {
  const std::size_t most =
      type == PageType::kTableLeaf ? usable - 35 : (usable - 12) * 64 / 255 - 23;
  if (size <= most) return static_cast<std::size_t>(size);
  const std::size_t least = (usable - 12) * 32 / 255 - 23;
  const std::size_t wanted = least + static_cast<std::size_t>((size - least) % (usable - 4));
  return wanted <= most ? wanted : least;
}

// Parses a cell's child, size and key, and moves `at` past them. Returns false if they extend
// beyond `bytes`.
bool parse_cell_start(std::string_view bytes, PageType type, std::size_t& at, Cell& cell) {
  if (is_inner(type)) {
    if (at + 4 > bytes.size()) return false;
    cell.child = static_cast<PageNumber>(number_at(bytes, at, 4));
    at += 4;
  }
  if (type != PageType::kTableInner) {
    const auto size = take_varint(bytes, at);
    if (!size) return false;
    cell.size = *size;
  }
  if (!is_table(type)) return true;
  const auto key = take_varint(bytes, at);
  if (key) cell.key = static_cast<std::int64_t>(*key);
  return key.has_value();
}

// Returns nothing if the cell extends beyond `bytes`. Sets `end` to the cell's end.
std::optional<Cell> parse_cell(std::string_view bytes, std::size_t at, PageType type,
                               std::size_t usable, std::size_t& end) {
  Cell cell;
  if (!parse_cell_start(bytes, type, at, cell)) return std::nullopt;
  end = at;
  if (type == PageType::kTableInner) return cell;
  cell.at = at;
  cell.held = held_on_page(cell.size, usable, type);
  end += cell.held;
  if (cell.held < cell.size) {
    if (end + 4 > bytes.size()) return std::nullopt;
    cell.continuation = static_cast<PageNumber>(number_at(bytes, end, 4));
    end += 4;
  }
  if (end > bytes.size()) return std::nullopt;
  return cell;
}

// Fills page.cells. Returns the room that the cells take.
std::size_t parse_cells(std::string_view bytes, std::size_t usable, const PageHeader& header,
                        Page& page) {
  std::size_t room = 0;
  const std::size_t most = kMostOverlap * usable;
  for (std::size_t i = header.end; i < header.pointers_end && room < most; i += 2) {
    const auto at = static_cast<std::size_t>(number_at(bytes, i, 2));
    std::size_t end = 0;
    if (at < header.pointers_end || at >= bytes.size()) continue;
    const auto cell = parse_cell(bytes, at, header.type, usable, end);
    if (!cell) continue;
    page.cells.push_back(*cell);
    room += std::max(end - at, kSmallestCell);
  }
  return room;
}

// The total size of the free blocks between cells; nothing if their chain is broken.
std::optional<std::size_t> free_blocks(std::string_view bytes, std::size_t usable,
                                       const PageHeader& header) {
  std::size_t total = 0;
  auto block = static_cast<std::size_t>(number_at(bytes, header.begin + 1, 2));
  while (block != 0) {
    if (block < header.content || block + 4 > usable) return std::nullopt;
    const auto next = static_cast<std::size_t>(number_at(bytes, block, 2));
    const auto size = static_cast<std::size_t>(number_at(bytes, block + 2, 2));
    // Positions must ascend, so the chain ends.
    if (size < 4 || block + size > usable || (next != 0 && next < block + size)) {
      return std::nullopt;
    }
    total += size;
    block = next;
  }
  return total;
}

bool is_filled(std::string_view bytes, std::size_t usable, const PageHeader& header,
               std::size_t cells) {
  if (header.content < header.pointers_end || header.content > usable) return false;
  const auto blocks = free_blocks(bytes, usable, header);
  const auto fragments = static_cast<unsigned char>(bytes[header.begin + 7]);
  return blocks && cells + *blocks + fragments == usable - header.content;
}

}  // namespace

std::optional<Page> parse_page(std::string_view bytes, std::size_t usable, bool is_first) {
  bytes = bytes.substr(0, usable);
  const auto header = parse_header(bytes, is_first);
  if (!header) return std::nullopt;
  Page page;
  page.type = header->type;
  if (is_inner(page.type)) {
    page.last_child = static_cast<PageNumber>(number_at(bytes, header->begin + 8, 4));
  }
  const std::size_t room = parse_cells(bytes, usable, *header, page);
  page.sound = bytes.size() == usable && page.cells.size() == header->cells &&
               is_filled(bytes, usable, *header, room);
  return page;
}

std::vector<bool> keys_in_order(const std::vector<Cell>& cells) {
  // ends[n] is the position of the smallest key that ends an ascending subsequence of n + 1 keys.
  std::vector<std::size_t> ends;
  const std::size_t none = cells.size();
  std::vector<std::size_t> predecessor(cells.size(), none);
  for (std::size_t i = 0; i < cells.size(); ++i) {
    const auto end =
        std::lower_bound(ends.begin(), ends.end(), cells[i].key,
                         [&](std::size_t at, std::int64_t key) { return cells[at].key < key; });
    if (end != ends.begin()) predecessor[i] = *(end - 1);
    if (end == ends.end()) {
      ends.push_back(i);
    } else {
      *end = i;
    }
  }
  std::vector<bool> is_in_order(cells.size(), false);
  for (std::size_t i = ends.empty() ? none : ends.back(); i != none; i = predecessor[i]) {
    is_in_order[i] = true;
  }
  return is_in_order;
}

}  // namespace corvan_tool
