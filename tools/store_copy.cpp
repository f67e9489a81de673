#include "tools/store_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

#include "tools/progress.h"
#include "tools/tool_error.h"

namespace corvan_tool {

namespace {

constexpr const char* kStoreName = "corvan";
// What belongs to a store beside its main file. The index of the log (-shm) is not copied: SQLite
// makes it anew.
constexpr const char* kLogSuffix = "-wal";
constexpr const char* kJournalSuffix = "-journal";

constexpr int kAttempts = 20;
constexpr std::chrono::milliseconds kPause{50};
constexpr std::size_t kCopyBlock = std::size_t{64} << 10;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

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

// Null when there is no such file.
File open_for_reading(const std::string& path) {
  File file(std::fopen(path.c_str(), "rb"));
  if (file == nullptr && errno != ENOENT) fail(path);
  return file;
}

std::size_t read_block(std::FILE* file, std::vector<char>& block, const std::string& path) {
  const std::size_t size = std::fread(block.data(), 1, block.size(), file);
  if (size < block.size() && std::ferror(file) != 0) fail(path);
  return size;
}

// Copies a file as it is now: the bytes copied, or nothing when there is no such file.
std::optional<std::uint64_t> copy_file(const std::string& from, const std::string& to,
                                       Progress& progress) {
  const File in = open_for_reading(from);
  if (in == nullptr) {
    unlink(to.c_str());
    return std::nullopt;
  }
  const File out(std::fopen(to.c_str(), "wb"));
  if (out == nullptr) fail_to_copy(from, to);
  std::vector<char> block(kCopyBlock);
  std::uint64_t copied = 0;
  while (const std::size_t size = read_block(in.get(), block, from)) {
    if (std::fwrite(block.data(), 1, size, out.get()) != size) fail_to_copy(from, to);
    copied += size;
    progress.show(copied >> 20);
  }
  if (std::fflush(out.get()) != 0) fail_to_copy(from, to);
  return copied;
}

enum Comparison { kWhole, kBeginning };

// Whether the file still holds what was copied from it; of a file that grows only the beginning
// counts.
bool still_holds(const std::string& from, const std::string& to,
                 const std::optional<std::uint64_t>& copied, Comparison comparison) {
  const File now = open_for_reading(from);
  if (!copied) return now == nullptr || comparison == kBeginning;
  const File copy = open_for_reading(to);
  if (now == nullptr || copy == nullptr) return false;
  std::vector<char> now_block(kCopyBlock);
  std::vector<char> copy_block(kCopyBlock);
  while (const std::size_t size = read_block(copy.get(), copy_block, to)) {
    const std::size_t now_size = read_block(now.get(), now_block, from);
    if (now_size < size || std::memcmp(now_block.data(), copy_block.data(), size) != 0) {
      return false;
    }
    if (now_size > size) return comparison == kBeginning;
  }
  return comparison == kBeginning || std::fgetc(now.get()) == EOF;
}

// Copies the files of one moment: their sizes, or nothing when they changed meanwhile. What is
// appended to the log after its copy does not matter: the copy then is of the moment before. The
// main file is rewritten only after the log holds its new content, so the two agree as soon as
// neither copy was overtaken.
std::optional<StoreSizes> copy_files(const std::string& from, const std::string& to) {
  Progress progress("MiB copied");
  const auto main_size = copy_file(from, to, progress);
  if (!main_size) fail_without_store(from);
  const auto log_size = copy_file(from + kLogSuffix, to + kLogSuffix, progress);
  const auto journal_size = copy_file(from + kJournalSuffix, to + kJournalSuffix, progress);
  const bool is_of_one_moment =
      still_holds(from, to, main_size, kWhole) &&
      still_holds(from + kLogSuffix, to + kLogSuffix, log_size, kBeginning) &&
      still_holds(from + kJournalSuffix, to + kJournalSuffix, journal_size, kWhole);
  if (!is_of_one_moment) return std::nullopt;
  return StoreSizes{static_cast<int64_t>(*main_size), static_cast<int64_t>(log_size.value_or(0))};
}

int64_t size_of(const std::string& path) {
  std::error_code missing;
  const auto size = std::filesystem::file_size(path, missing);
  return missing ? 0 : static_cast<int64_t>(size);
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

StoreSizes copy_store(const std::string& folder, const std::string& to) {
  const std::string from = store_file(folder);
  struct stat status = {};
  if (stat(from.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) fail_without_store(from);
    fail(from);
  }
  if (!S_ISREG(status.st_mode)) throw ToolError(from + ": not a file");
  const std::string real = real_file(from);
  for (int attempt = 0;; ++attempt) {
    if (const auto sizes = copy_files(real, to)) return *sizes;
    if (attempt == kAttempts) {
      throw ToolError(from + ": written to all the time; try again when its writer rests");
    }
    std::this_thread::sleep_for(kPause);
  }
}

StoreCopy::StoreCopy(const std::string& folder)
    : sizes_(copy_store(folder, folder_.path() + kStoreName)) {}

}  // namespace corvan_tool
