#include "tools/salvage/record_reader.h"

#include <algorithm>
#include <limits>

#include "tools/salvage/file/record.h"

namespace corvan_tool {

namespace {

constexpr std::uint64_t kLongestRow = std::numeric_limits<std::int32_t>::max();  // SQLite's limit
constexpr const char* kWhat = "the continuation of a row";

}  // namespace

RecordReader::RecordReader(const DamagedFile& file, PageMap& pages, Progress& progress)
    : file_(file),
      pages_(pages),
      progress_(progress),
      readings_left_(kMostReadings * file.pages_there().count() + kSomePages) {}

bool RecordReader::read(std::string_view page, const Cell& cell, Origin origin,
                        std::string& record) {
  record.assign(held_part(page, cell));
  if (cell.continuation == 0 && cell.held == cell.size) return true;
  const std::uint64_t most = std::uint64_t{file_.pages_there().count()} * file_.page_size();
  if (cell.size > std::min<std::uint64_t>(most, kLongestRow)) return false;
  std::vector<PageNumber> chain;
  if (!append(cell.size, cell.continuation, origin, record, chain)) return false;
  for (const PageNumber overflow : chain) pages_.set_use(overflow, PageMap::Use::kOverflow);
  progress_.advance(chain.size());
  return true;
}

bool RecordReader::is_taken(PageNumber page, Origin origin) const {
  const PageMap::Use use = pages_.use(page);
  return use == PageMap::Use::kTree || (origin == Origin::kTree && use == PageMap::Use::kOverflow);
}

// Appends the content of overflow pages, from `next` on, until the record has its size. Adds the
// pages to `chain`.
bool RecordReader::append(std::uint64_t size, PageNumber next, Origin origin, std::string& record,
                          std::vector<PageNumber>& chain) {
  std::string bytes;
  while (record.size() < size) {
    const auto part =
        static_cast<std::size_t>(std::min<std::uint64_t>(file_.usable() - 4, size - record.size()));
    if (readings_left_ == 0) return false;
    --readings_left_;
    const bool is_page = file_.is_page(next);
    const bool belongs_to_other = is_page && is_taken(next, origin);
    if (!is_page || belongs_to_other || file_.held(next) < 4 + part || !file_.read(next, bytes)) {
      pages_.note(belongs_to_other ? 0 : next, 0, kWhat);
      return false;
    }
    chain.push_back(next);
    record.append(bytes, 4, part);
    next = static_cast<PageNumber>(number_at(bytes, 0, 4));
  }
  if (next != 0) pages_.note(chain.back(), 0, kWhat);
  return next == 0;
}

}  // namespace corvan_tool
