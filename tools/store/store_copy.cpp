#include "tools/store/store_copy.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <optional>
#include <thread>
#include <vector>

#include "tools/platform/file_system.h"
#include "tools/platform/files.h"
#include "tools/store/file_names.h"
#include "tools/store/regular_file.h"
#include "tools/ui/error.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

namespace {

constexpr int kCopyAttempts = 20;
constexpr std::chrono::milliseconds kPause{50};
constexpr std::size_t kCopyBlock = std::size_t{64} << 10;

[[noreturn]] void fail(const std::string& path) {
  throw ToolError(path + ": " + std::strerror(errno));
}

[[noreturn]] void fail_without_store(const std::string& file) {
  throw ToolError(file + ": no store here; name the folder that holds the file \"corvan\"");
}

// Names the parent of the copy's folder: the folder itself is temporary and will be removed.
[[noreturn]] void fail_to_copy(const std::string& from, const std::string& to) {
  const std::string why = std::strerror(errno);
  const std::filesystem::path folder = std::filesystem::u8path(to).parent_path().parent_path();
  throw ToolError(fmt::format(
      "{}: cannot be copied to {}: {}; make room there, or name another folder for temporary copies "
      "in TMPDIR",
      from, folder.empty() ? "." : path_text(folder), why));
}

// A new or emptied file.
class WrittenFile {
 public:
  explicit WrittenFile(const std::string& path) : file_(create_or_empty_file(path)) {}
  WrittenFile(const WrittenFile&) = delete;
  WrittenFile& operator=(const WrittenFile&) = delete;
  ~WrittenFile() {
    if (file_ >= 0) close_file(file_);
  }

  // Below 0 if the file cannot be written.
  int descriptor() const { return file_; }

 private:
  const int file_;
};

// The part of a file that was copied. Holes stay holes: they may be larger than any disk.
struct Copied {
  std::uint64_t size = 0;
  std::vector<ReadOnlyFile::Stretch> data;
};

// Calls `take` with the offset and size of each block of these stretches.
template <typename Take>
void each_block(const std::vector<ReadOnlyFile::Stretch>& data, const Take& take) {
  for (const auto& [begin, end] : data) {
    for (std::uint64_t at = begin; at < end; at += kCopyBlock) {
      take(at, static_cast<std::size_t>(std::min<std::uint64_t>(kCopyBlock, end - at)));
    }
  }
}

// Copies a file. Returns nothing if there is none. If the file grows meanwhile, only its size at
// the beginning is copied.
std::optional<Copied> copy_file(const std::string& from, const std::string& to,
                                Progress& progress) {
  const ReadOnlyFile in(from, true);
  if (!in.is_there()) {
    remove_file(to);
    return std::nullopt;
  }
  const WrittenFile out(to);
  if (out.descriptor() < 0) fail_to_copy(from, to);
  std::vector<char> block(kCopyBlock);
  std::uint64_t done = 0;
  Copied copied = {in.size(), in.data()};
  each_block(copied.data, [&](std::uint64_t at, std::size_t wanted) {
    const std::size_t size = in.read_some(at, wanted, block.data());  // less if it was truncated
    if (!write_at(out.descriptor(), at, block.data(), size)) fail_to_copy(from, to);
    done += size;
    progress.show(done >> 20);
  });
  if (!set_file_size(out.descriptor(), copied.size)) fail_to_copy(from, to);
  return copied;
}

enum Comparison { kWhole, kBeginning };

// Whether the files are equal in these stretches.
bool are_equal(const ReadOnlyFile& one, const ReadOnlyFile& other,
               const std::vector<ReadOnlyFile::Stretch>& data) {
  std::vector<char> block(kCopyBlock);
  std::vector<char> other_block(kCopyBlock);
  bool equal = true;
  each_block(data, [&](std::uint64_t at, std::size_t size) {
    equal = equal && one.read_some(at, size, block.data()) == size &&
            other.read_some(at, size, other_block.data()) == size &&
            std::memcmp(block.data(), other_block.data(), size) == 0;
  });
  return equal;
}

// Whether the file still holds what was copied from it. With kBeginning the file may have grown.
bool still_holds(const std::string& from, const std::string& to,
                 const std::optional<Copied>& copied, Comparison comparison) {
  const ReadOnlyFile now(from, true);
  if (!copied) return !now.is_there() || comparison == kBeginning;
  if (now.size() < copied->size || (comparison == kWhole && now.size() > copied->size)) {
    return false;
  }
  std::vector<ReadOnlyFile::Stretch> data;
  for (const auto& [begin, end] : now.data()) {
    if (begin < copied->size) data.push_back({begin, std::min(end, copied->size)});
  }
  // Holes read as zeros, and data may have become a hole.
  const ReadOnlyFile copy(to, false);
  return are_equal(now, copy, data) && (data == copied->data || are_equal(now, copy, copied->data));
}

// Copies the files, and returns their sizes; nothing if they changed meanwhile. The index of the
// log is not copied, because SQLite rebuilds it. Appending to the log during the copy is harmless:
// the copy holds the state before. The main file is rewritten only after the log holds its new
// content, so the two copies agree if neither file changed otherwise.
std::optional<StoreSizes> copy_files(const std::string& from, const std::string& to) {
  Progress progress("MiB copied");
  const auto main = copy_file(from, to, progress);
  if (!main) fail_without_store(from);
  const auto log = copy_file(from + kLogSuffix, to + kLogSuffix, progress);
  const auto journal = copy_file(from + kJournalSuffix, to + kJournalSuffix, progress);
  const bool is_consistent =
      still_holds(from, to, main, kWhole) &&
      still_holds(from + kLogSuffix, to + kLogSuffix, log, kBeginning) &&
      still_holds(from + kJournalSuffix, to + kJournalSuffix, journal, kWhole);
  if (!is_consistent) return std::nullopt;
  return StoreSizes{static_cast<int64_t>(main->size), static_cast<int64_t>(log ? log->size : 0)};
}

void require_store_file(const std::string& file) {
  FileStatus status;
  if (!read_status(file, status)) {
    if (errno == ENOENT || errno == ENOTDIR) fail_without_store(file);
    fail(file);
  }
  if (status.kind != FileKind::kRegular) throw ToolError(file + ": not a file");
}

}  // namespace

StoreSizes copy_database(const std::string& from, const std::string& to) {
  const std::string real = real_file(from);
  require_regular_beside(real, {kLogSuffix, kJournalSuffix});
  for (int attempt = 0;; ++attempt) {
    if (const auto sizes = copy_files(real, to)) {
      // Examines the copy, because the journal itself may be replaced meanwhile.
      require_no_super_journal(to + kJournalSuffix, real + kJournalSuffix);
      return *sizes;
    }
    if (attempt == kCopyAttempts) {
      throw ToolError(from +
                      ": changes too often to be copied; try again while the client is idle");
    }
    std::this_thread::sleep_for(kPause);
  }
}

StoreSizes copy_store(const std::string& folder, const std::string& to) {
  const std::string from = store_file(folder);
  require_store_file(from);
  return copy_database(from, to);
}

StoreCopy::StoreCopy(const std::string& folder)
    : sizes_(copy_store(folder, folder_.path() + kStoreName)) {}

}  // namespace corvan_tool
