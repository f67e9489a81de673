#include "tools/salvage/page.h"

#include <algorithm>
#include <array>

namespace corvan_tool {

namespace {

constexpr std::size_t kSmallestCell = 4;  // what a page gives to a shorter one as well

// Cells that overlap are taken, since one of them may be right, but not so many that a page gives
// a multiple of its size.
constexpr std::size_t kMostOverlap = 8;

// SQLite can be built for no more columns.
constexpr std::size_t kMostValues = 32767;

// Where the header of a page's tree begins, and what it says.
struct PageHeader {
  std::size_t begin = 0;
  std::size_t end = 0;  // behind it come the places of the cells
  std::size_t cells = 0;
  std::size_t places_end = 0;
  std::size_t content = 0;  // cells and the free space between them begin here
};

std::optional<PageType> type_of(unsigned char byte) {
  for (const PageType type :
       {PageType::kIndexInner, PageType::kTableInner, PageType::kIndexLeaf, PageType::kTableLeaf}) {
    if (static_cast<unsigned char>(type) == byte) return type;
  }
  return std::nullopt;
}

// How much of a record of that size lies on the page itself.
std::size_t held_on_page(std::uint64_t size, std::size_t usable, PageType type) {
  const std::size_t most =
      type == PageType::kTableLeaf ? usable - 35 : (usable - 12) * 64 / 255 - 23;
  if (size <= most) return static_cast<std::size_t>(size);
  const std::size_t least = (usable - 12) * 32 / 255 - 23;
  const std::size_t wanted = least + static_cast<std::size_t>((size - least) % (usable - 4));
  return wanted <= most ? wanted : least;
}

// Nothing when the cell is not within `bytes`. `end` receives where it ends.
std::optional<Cell> parse_cell(std::string_view bytes, std::size_t at, PageType type,
                               std::size_t usable, std::size_t& end) {
  Cell cell;
  if (is_inner(type)) {
    if (at + 4 > bytes.size()) return std::nullopt;
    cell.child = static_cast<PageNumber>(number_at(bytes, at, 4));
    at += 4;
  }
  const bool has_record = type != PageType::kTableInner;
  if (has_record) {
    const auto size = take_number(bytes, at);
    if (!size) return std::nullopt;
    cell.size = *size;
  }
  if (is_table(type)) {
    const auto key = take_number(bytes, at);
    if (!key) return std::nullopt;
    cell.key = static_cast<std::int64_t>(*key);
  }
  end = at;
  if (!has_record) return cell;
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

// The bytes of the free blocks between cells; nothing when their chain is broken.
std::optional<std::size_t> free_blocks(std::string_view bytes, std::size_t usable,
                                       const PageHeader& header) {
  std::size_t total = 0;
  auto block = static_cast<std::size_t>(number_at(bytes, header.begin + 1, 2));
  while (block != 0) {
    if (block < header.content || block + 4 > usable) return std::nullopt;
    const auto next = static_cast<std::size_t>(number_at(bytes, block, 2));
    const auto size = static_cast<std::size_t>(number_at(bytes, block + 2, 2));
    // The chain rises, so it ends.
    if (size < 4 || block + size > usable || (next != 0 && next < block + size)) {
      return std::nullopt;
    }
    total += size;
    block = next;
  }
  return total;
}

bool is_filled(std::string_view bytes, std::size_t usable, const PageHeader& header,
               std::size_t of_cells) {
  if (header.content < header.places_end || header.content > usable) return false;
  const auto blocks = free_blocks(bytes, usable, header);
  const auto fragments = static_cast<unsigned char>(bytes[header.begin + 7]);
  return blocks && of_cells + *blocks + fragments == usable - header.content;
}

Value value_of(std::uint64_t type, std::string_view bytes) {
  Value value;
  if (type >= 12) {
    value.kind = type % 2 == 0 ? Value::kBlob : Value::kText;
    value.bytes = bytes;
  } else if (type == 8 || type == 9) {
    value.kind = Value::kInteger;
    value.integer = type == 9 ? 1 : 0;
  } else if (type != 0) {
    value.kind = type == 7 ? Value::kReal : Value::kInteger;
    std::uint64_t number = number_at(bytes, 0, bytes.size());
    const std::size_t bits = 8 * bytes.size();
    const bool is_negative = bits > 0 && (number >> (bits - 1) & 1U) != 0;
    if (is_negative && bits < 64) number |= ~std::uint64_t{0} << bits;
    value.integer = static_cast<std::int64_t>(number);
  }
  return value;
}

}  // namespace

std::uint64_t number_at(std::string_view bytes, std::size_t at, std::size_t count) {
  std::uint64_t value = 0;
  for (const char byte : bytes.substr(at, count)) {
    value = value << 8 | static_cast<unsigned char>(byte);
  }
  return value;
}

std::optional<std::uint64_t> take_number(std::string_view bytes, std::size_t& at) {
  std::uint64_t value = 0;
  for (int i = 0; i < 9; ++i) {
    if (at >= bytes.size()) return std::nullopt;
    const auto byte = static_cast<unsigned char>(bytes[at++]);
    if (i == 8) return value << 8 | byte;
    value = value << 7 | (byte & 0x7FU);
    if ((byte & 0x80U) == 0) return value;
  }
  return std::nullopt;
}

std::optional<Page> parse_page(std::string_view bytes, std::size_t usable, bool is_first) {
  bytes = bytes.substr(0, usable);
  PageHeader header;
  header.begin = is_first ? kFileHeader : 0;
  if (bytes.size() < header.begin + 12) return std::nullopt;
  const auto type = type_of(static_cast<unsigned char>(bytes[header.begin]));
  if (!type) return std::nullopt;

  Page page;
  page.type = *type;
  header.end = header.begin + (is_inner(*type) ? 12 : 8);
  header.cells = static_cast<std::size_t>(number_at(bytes, header.begin + 3, 2));
  header.places_end = header.end + 2 * header.cells;
  header.content = static_cast<std::size_t>(number_at(bytes, header.begin + 5, 2));
  if (header.content == 0) header.content = 65536;
  if (header.places_end > bytes.size()) return std::nullopt;
  if (is_inner(*type)) {
    page.last_child = static_cast<PageNumber>(number_at(bytes, header.begin + 8, 4));
  }

  std::size_t of_cells = 0;
  const std::size_t most = kMostOverlap * usable;
  for (std::size_t place = header.end; place < header.places_end && of_cells < most; place += 2) {
    const auto at = static_cast<std::size_t>(number_at(bytes, place, 2));
    std::size_t end = 0;
    if (at < header.places_end || at >= bytes.size()) continue;
    const auto cell = parse_cell(bytes, at, *type, usable, end);
    if (!cell) continue;
    page.cells.push_back(*cell);
    of_cells += std::max(end - at, kSmallestCell);
  }
  page.sound = bytes.size() == usable && page.cells.size() == header.cells &&
               is_filled(bytes, usable, header, of_cells);
  return page;
}

bool parse_record(std::string_view record, std::uint64_t size, std::vector<Value>& values) {
  values.clear();
  std::size_t at = 0;
  const auto header_size = take_number(record, at);
  if (!header_size || *header_size < at || *header_size > record.size()) return false;
  const std::string_view header = record.substr(0, static_cast<std::size_t>(*header_size));
  std::uint64_t body = header.size();
  while (at < header.size()) {
    const auto type = take_number(header, at);
    if (!type || *type == 10 || *type == 11 || values.size() == kMostValues) return false;
    static constexpr std::array<std::size_t, 10> kSizes = {0, 1, 2, 3, 4, 6, 8, 8, 0, 0};
    const std::uint64_t value_size =
        *type >= 12 ? (*type - 12) / 2 : kSizes.at(static_cast<std::size_t>(*type));
    if (value_size > size - body) return false;
    const auto begin = static_cast<std::size_t>(std::min<std::uint64_t>(body, record.size()));
    values.push_back(value_of(*type, record.substr(begin, static_cast<std::size_t>(value_size))));
    body += value_size;
  }
  return body == size;
}

std::vector<std::size_t> out_of_order(const std::vector<std::int64_t>& keys) {
  std::vector<std::size_t> ends;  // by length less one: where the row with the smallest end ends
  std::vector<std::size_t> before(keys.size(), keys.size());
  for (std::size_t i = 0; i < keys.size(); ++i) {
    const auto place =
        std::lower_bound(ends.begin(), ends.end(), keys[i],
                         [&keys](std::size_t end, std::int64_t key) { return keys[end] < key; });
    if (place != ends.begin()) before[i] = *(place - 1);
    if (place == ends.end()) {
      ends.push_back(i);
    } else {
      *place = i;
    }
  }
  std::vector<bool> in_order(keys.size(), false);
  if (!ends.empty()) {
    for (std::size_t i = ends.back(); i < keys.size(); i = before[i]) in_order[i] = true;
  }
  std::vector<std::size_t> result;
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (!in_order[i]) result.push_back(i);
  }
  return result;
}

}  // namespace corvan_tool
