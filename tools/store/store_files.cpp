#include "tools/store/store_files.h"

#include <cstddef>
#include <filesystem>
#include <string_view>
#include <system_error>

#include "tools/platform/file_system.h"
#include "tools/store/regular_file.h"
#include "tools/ui/error.h"

namespace corvan_tool {

namespace {

namespace fs = std::filesystem;

constexpr const char* kMoveAway = "; move it away and try again";

constexpr std::string_view kJournalMagic = "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";

// Keeps the folder as the user wrote it.
std::string file_in(const std::string& folder, const char* name) {
  const bool is_complete = folder.empty() || is_path_delimiter(folder.back());
  return folder + (is_complete ? "" : "/") + name;
}

int64_t size_of(const std::string& path) {
  std::error_code missing;
  const auto size = fs::file_size(fs::u8path(path), missing);
  return missing ? 0 : static_cast<int64_t>(size);
}

// Whether the journal may hold pages that SQLite would restore. The journal of a transaction that
// began with an empty file holds none.
bool may_hold_pages(const std::string& journal) {
  constexpr std::size_t kPagesBefore = 16;  // offset of the page count
  const ReadOnlyFile file(journal, true);
  std::string header;
  if (file.size() == 0) return false;
  if (!file.read(0, kPagesBefore + 4, header)) return true;
  const bool is_journal = header.compare(0, kJournalMagic.size(), kJournalMagic) == 0;
  const bool is_begun = header[0] == '\0';  // the magic is written by the first sync
  return (!is_journal && !is_begun) || header.substr(kPagesBefore) != std::string(4, '\0');
}

}  // namespace

std::string store_file(const std::string& folder) {
  return file_in(folder, kStoreName);
}

std::string search_index_file(const std::string& folder) {
  return file_in(folder, kSearchIndexName);
}

bool has_search_index(const std::string& folder) {
  std::error_code ignored;
  const auto status = fs::symlink_status(fs::u8path(search_index_file(folder)), ignored);
  return fs::exists(status);
}

bool is_plain_database(const std::string& file) {
  constexpr std::string_view kBegin = "SQLite format 3";
  std::error_code ignored;
  if (!fs::is_regular_file(fs::u8path(file), ignored)) return false;
  try {
    std::string bytes;
    return ReadOnlyFile(file, false).read(0, kBegin.size(), bytes) && bytes == kBegin;
  } catch (const ToolError&) {
    return false;  // it cannot be opened
  }
}

std::string real_file(const std::string& file) {
  std::error_code error;
  const fs::path real = fs::canonical(fs::u8path(file), error);
  return error ? file : path_text(real);
}

StoreSizes store_sizes(const std::string& file) {
  const std::string real = real_file(file);
  return {size_of(real), size_of(real + kLogSuffix)};
}

bool has_log(const std::string& file) {
  const std::string real = real_file(file);
  return size_of(real + kLogSuffix) > 0 || size_of(real + kJournalSuffix) > 0;
}

void require_regular_beside(const std::string& file, std::initializer_list<const char*> suffixes) {
  for (const char* const suffix : suffixes) require_regular_or_missing(file + suffix, kMoveAway);
}

void require_no_super_journal(const std::string& journal, const std::string& name) {
  constexpr std::size_t kLeast = 16;  // magic, checksum and length of the name
  const ReadOnlyFile file(journal, true);
  std::string first;
  std::string last;
  if (file.size() < kLeast || !file.read(0, 1, first) || first[0] == '\0' ||
      !file.read(file.size() - kJournalMagic.size(), kJournalMagic.size(), last) ||
      last != kJournalMagic) {
    return;
  }
  throw ToolError(name +
                  ": belongs to a transaction over several databases; open them with the program "
                  "that wrote it, or move it away and try again");
}

void require_regular_files(const std::string& file) {
  require_regular_or_missing(file);
  const std::string real = real_file(file);
  require_regular_beside(real, {kLogSuffix, kIndexSuffix, kJournalSuffix});
  require_no_super_journal(real + kJournalSuffix, real + kJournalSuffix);
}

void require_no_lone_log(const std::string& folder) {
  const std::string real = real_file(store_file(folder));
  const StoreSizes sizes = store_sizes(real);
  if (sizes.file > 0) return;
  if (sizes.log > 0) {
    throw ToolError(real + kLogSuffix +
                    ": a log without its store; 'corvan salvage' rescues what can be read" +
                    kMoveAway);
  }
  if (may_hold_pages(real + kJournalSuffix)) {
    throw ToolError(real + kJournalSuffix + ": a journal without its store" + kMoveAway);
  }
}

}  // namespace corvan_tool
