#include "tools/salvage/file/page_size.h"

#include <algorithm>
#include <cstdint>

#include "tools/salvage/file/record.h"
#include "tools/store/regular_file.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kStorePage = 4096;
constexpr std::size_t kSmallestPage = 512;
constexpr std::size_t kLargestPage = 65536;

double share_at_size(const ReadOnlyFile& file, std::size_t page_size) {
  const auto pages =
      static_cast<PageNumber>(std::min<std::uint64_t>(file.size() / page_size, UINT32_MAX - 1));
  return share_of_sound_pages(pages, page_size, [&](PageNumber page, std::string& bytes) {
    return file.read((page - std::uint64_t{1}) * page_size, page_size, bytes);
  });
}

}  // namespace

bool is_page_size(std::size_t size) {
  return size >= kSmallestPage && size <= kLargestPage && (size & (size - 1)) == 0;
}

std::size_t stated_page_size(std::string_view header) {
  if (header.size() < kFileHeader || header.substr(21, 3) != "@  ") return 0;
  const auto code = static_cast<std::size_t>(number_at(header, 16, 2));
  const std::size_t size = code == 1 ? kLargestPage : code;
  return is_page_size(size) ? size : 0;
}

double share_of_sound_pages(PageNumber pages, std::size_t usable, const ReadPage& read) {
  constexpr PageNumber kSamples = 256;
  const PageNumber step = std::max<PageNumber>(1, pages / kSamples);
  std::uint64_t tried = 0;
  std::uint64_t sound = 0;
  std::string bytes;
  for (std::uint64_t number = 2; number <= pages; number += step) {
    ++tried;
    if (!read(static_cast<PageNumber>(number), bytes)) continue;
    const auto page = parse_page(bytes, usable, false);
    if (page && page->sound && !page->cells.empty()) ++sound;
  }
  return tried == 0 ? 0 : static_cast<double>(sound) / static_cast<double>(tried);
}

std::size_t guess_page_size(const ReadOnlyFile& file, std::size_t stated) {
  std::size_t best = stated == 0 ? kStorePage : stated;
  double best_share = share_at_size(file, best);
  for (std::size_t size = kSmallestPage; size <= kLargestPage; size *= 2) {
    const double share = share_at_size(file, size);
    if (share > best_share) {
      best = size;
      best_share = share;
    }
  }
  return best;
}

}  // namespace corvan_tool
