#include "tools/store/store_copy.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <thread>
#include <vector>

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

// `to` lies in a folder that goes with the copy; the one around it is what lacks room.
[[noreturn]] void fail_to_copy(const std::string& from, const std::string& to) {
  const std::string why = std::strerror(errno);
  const std::filesystem::path folder = std::filesystem::path(to).parent_path().parent_path();
  throw ToolError(from + ": cannot be copied to " + (folder.empty() ? "." : folder.string()) +
                  ": " + why +
                  "; make room there, or for temporary copies name another folder in TMPDIR");
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// What was copied of a file. Holes stay holes: they may be larger than any disk.
struct Copied {
  std::uint64_t size = 0;
  std::vector<ReadOnlyFile::Stretch> data;
};

// Calls `take` with block after block of these stretches: where it begins, and its size.
template <typename Take>
void each_block(const std::vector<ReadOnlyFile::Stretch>& data, const Take& take) {
  for (const auto& [begin, end] : data) {
    for (std::uint64_t at = begin; at < end; at += kCopyBlock) {
      take(at, static_cast<std::size_t>(std::min<std::uint64_t>(kCopyBlock, end - at)));
    }
  }
}

// Copies a file as it is now, or nothing when there is no such file. Of one that grows meanwhile
// what it has at the beginning is copied.
std::optional<Copied> copy_file(const std::string& from, const std::string& to,
                                Progress& progress) {
  const ReadOnlyFile in(from, true);
  if (!in.is_there()) {
    unlink(to.c_str());
    return std::nullopt;
  }
  const std::unique_ptr<std::FILE, CloseFile> out(std::fopen(to.c_str(), "wb"));
  if (out == nullptr) fail_to_copy(from, to);
  std::vector<char> block(kCopyBlock);
  std::uint64_t done = 0;
  Copied copied = {in.size(), in.data()};
  each_block(copied.data, [&](std::uint64_t at, std::size_t wanted) {
    const std::size_t size = in.read_some(at, wanted, block.data());  // less when it was cut off
    if (fseeko(out.get(), static_cast<off_t>(at), SEEK_SET) != 0 ||
        std::fwrite(block.data(), 1, size, out.get()) != size) {
      fail_to_copy(from, to);
    }
    done += size;
    progress.show(done >> 20);
  });
  if (std::fflush(out.get()) != 0 ||
      ftruncate(fileno(out.get()), static_cast<off_t>(copied.size)) != 0) {
    fail_to_copy(from, to);
  }
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

// Whether the file still holds what was copied from it; of a file that grows only the beginning
// counts.
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
  // What has become a hole since reads as zeros.
  const ReadOnlyFile copy(to, false);
  return are_equal(now, copy, data) && (data == copied->data || are_equal(now, copy, copied->data));
}

// Copies the files of one moment: their sizes, or nothing when they changed meanwhile. The index of
// the log is not copied: SQLite makes it anew. What is appended to the log after its copy does not
// matter: the copy then is of the moment before. The main file is rewritten only after the log
// holds its new content, so the two agree as soon as neither copy was overtaken.
std::optional<StoreSizes> copy_files(const std::string& from, const std::string& to) {
  Progress progress("MiB copied");
  const auto main = copy_file(from, to, progress);
  if (!main) fail_without_store(from);
  const auto log = copy_file(from + kLogSuffix, to + kLogSuffix, progress);
  const auto journal = copy_file(from + kJournalSuffix, to + kJournalSuffix, progress);
  const bool is_of_one_moment =
      still_holds(from, to, main, kWhole) &&
      still_holds(from + kLogSuffix, to + kLogSuffix, log, kBeginning) &&
      still_holds(from + kJournalSuffix, to + kJournalSuffix, journal, kWhole);
  if (!is_of_one_moment) return std::nullopt;
  return StoreSizes{static_cast<int64_t>(main->size), static_cast<int64_t>(log ? log->size : 0)};
}

int64_t size_of(const std::string& path) {
  std::error_code missing;
  const auto size = std::filesystem::file_size(path, missing);
  return missing ? 0 : static_cast<int64_t>(size);
}

// What stands in the place of one of a store's files and is none.
constexpr const char* kMoveAway = "; move it away and try again";

constexpr std::string_view kJournalMagic = "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";

// Whether the journal may hold pages that SQLite would give back to a file. That of a transaction
// that began with an empty file holds none.
bool may_hold_pages(const std::string& journal) {
  constexpr std::size_t kPagesBefore = 16;  // their number's place
  const ReadOnlyFile file(journal, true);
  std::string header;
  if (file.size() == 0) return false;
  if (!file.read(0, kPagesBefore + 4, header)) return true;
  const bool is_journal = header.compare(0, kJournalMagic.size(), kJournalMagic) == 0;
  const bool is_begun = header[0] == '\0';  // the magic comes with the first sync
  return (!is_journal && !is_begun) || header.substr(kPagesBefore) != std::string(4, '\0');
}

// Throws ToolError if SQLite would roll the journal back together with others: it opens the file
// that such a journal names last, anywhere on the disk, and deletes it. `name` is the journal's
// name in the error. A journal that begins with a zero byte is not rolled back.
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

// The file itself where `file` is a link to it.
std::string real_file(const std::string& file) {
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(file, error);
  return error ? file : real.string();
}

}  // namespace

std::string store_file(const std::string& folder) {
  return (std::filesystem::path(folder) / kStoreName).string();
}

StoreSizes store_sizes(const std::string& file) {
  const std::string real = real_file(file);
  return {size_of(real), size_of(real + kLogSuffix)};
}

bool has_log(const std::string& file) {
  const std::string real = real_file(file);
  return size_of(real + kLogSuffix) > 0 || size_of(real + kJournalSuffix) > 0;
}

void require_regular_files(const std::string& folder) {
  const std::string file = store_file(folder);
  require_regular_or_missing(file);
  const std::string real = real_file(file);
  for (const char* suffix : {kLogSuffix, kIndexSuffix, kJournalSuffix}) {
    require_regular_or_missing(real + suffix, kMoveAway);
  }
  require_no_super_journal(real + kJournalSuffix, real + kJournalSuffix);
}

void require_no_lone_log(const std::string& folder) {
  const std::string real = real_file(store_file(folder));
  const StoreSizes sizes = store_sizes(real);
  if (sizes.file > 0) return;
  if (sizes.log > 0) {
    throw ToolError(real + kLogSuffix +
                    ": a log whose store is gone; 'corvan salvage' brings out what it holds" +
                    kMoveAway);
  }
  if (may_hold_pages(real + kJournalSuffix)) {
    throw ToolError(real + kJournalSuffix + ": a journal whose store is gone" + kMoveAway);
  }
}

StoreSizes copy_store(const std::string& folder, const std::string& to) {
  const std::string from = store_file(folder);
  struct stat status = {};
  if (stat(from.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) fail_without_store(from);
    fail(from);
  }
  if (!S_ISREG(status.st_mode)) throw ToolError(from + ": not a file");
  const std::string real = real_file(from);
  for (const char* suffix : {kLogSuffix, kJournalSuffix}) {
    require_regular_or_missing(real + suffix, kMoveAway);
  }
  for (int attempt = 0;; ++attempt) {
    if (const auto sizes = copy_files(real, to)) {
      // In the copy: the journal itself may be replaced meanwhile.
      require_no_super_journal(to + kJournalSuffix, real + kJournalSuffix);
      return *sizes;
    }
    if (attempt == kCopyAttempts) {
      throw ToolError(from + ": written to all the time; try again when its writer rests");
    }
    std::this_thread::sleep_for(kPause);
  }
}

StoreCopy::StoreCopy(const std::string& folder)
    : sizes_(copy_store(folder, folder_.path() + kStoreName)) {}

}  // namespace corvan_tool
