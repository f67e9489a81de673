#include "tools/store_copy.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>
#include <thread>
#include <vector>

#include "tools/tool_error.h"

namespace corvan_tool {

namespace {

constexpr const char* kStoreName = "corvan";
// What belongs to a store beside its main file. The index of the log (-shm) is not copied: SQLite
// makes it anew.
constexpr const char* kLogSuffix = "-wal";
constexpr const char* kJournalSuffix = "-journal";
// All that can be in a copy's folder.
constexpr std::array<const char*, 4> kSuffixes = {"", kLogSuffix, kJournalSuffix, "-shm"};

constexpr int kAttempts = 20;
constexpr std::chrono::milliseconds kPause{50};
constexpr std::size_t kBlock = std::size_t{64} << 10;

// The folder that an interrupt must remove; an empty text for none. Fixed storage: a signal handler
// reads it.
std::array<char, 512> copy_in_use = {};

void remove_copy(const char* folder) {
  std::array<char, 600> path = {};
  for (const char* suffix : kSuffixes) {
    std::strncpy(path.data(), folder, path.size() - 32);
    std::strncat(path.data(), kStoreName, 16);
    std::strncat(path.data(), suffix, 15);
    unlink(path.data());
  }
  rmdir(folder);
}

extern "C" void remove_copy_and_die(int signal_number) {
  if (copy_in_use[0] != '\0') remove_copy(copy_in_use.data());
  std::signal(signal_number, SIG_DFL);
  std::raise(signal_number);
}

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

[[noreturn]] void fail(const std::string& path) {
  throw ToolError(path + ": " + std::strerror(errno));
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
std::optional<std::uint64_t> copy_file(const std::string& from, const std::string& to) {
  const File in = open_for_reading(from);
  if (in == nullptr) {
    unlink(to.c_str());
    return std::nullopt;
  }
  const File out(std::fopen(to.c_str(), "wb"));
  if (out == nullptr) fail(to);
  std::vector<char> block(kBlock);
  std::uint64_t copied = 0;
  while (const std::size_t size = read_block(in.get(), block, from)) {
    if (std::fwrite(block.data(), 1, size, out.get()) != size) fail(to);
    copied += size;
  }
  if (std::fflush(out.get()) != 0) fail(to);
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
  std::vector<char> now_block(kBlock);
  std::vector<char> copy_block(kBlock);
  while (const std::size_t size = read_block(copy.get(), copy_block, to)) {
    const std::size_t now_size = read_block(now.get(), now_block, from);
    if (now_size < size || std::memcmp(now_block.data(), copy_block.data(), size) != 0) {
      return false;
    }
    if (now_size > size) return comparison == kBeginning;
  }
  return comparison == kBeginning || std::fgetc(now.get()) == EOF;
}

// Copies the files of one moment; false when they changed meanwhile. What is appended to the log
// after its copy does not matter: the copy then is of the moment before. The main file is rewritten
// only after the log holds its new content, so the two agree as soon as neither copy was overtaken.
bool copy_files(const std::string& from, const std::string& to) {
  const auto main_size = copy_file(from, to);
  if (!main_size) throw ToolError(from + ": no store here");
  const auto log_size = copy_file(from + kLogSuffix, to + kLogSuffix);
  const auto journal_size = copy_file(from + kJournalSuffix, to + kJournalSuffix);
  return still_holds(from, to, main_size, kWhole) &&
         still_holds(from + kLogSuffix, to + kLogSuffix, log_size, kBeginning) &&
         still_holds(from + kJournalSuffix, to + kJournalSuffix, journal_size, kWhole);
}

}  // namespace

std::string store_file(const std::string& folder) {
  return (std::filesystem::path(folder) / kStoreName).string();
}

StoreCopy::StoreCopy(const std::string& folder) {
  const std::string from = store_file(folder);
  struct stat status = {};
  if (stat(from.c_str(), &status) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) throw ToolError(from + ": no store here");
    fail(from);
  }
  if (!S_ISREG(status.st_mode)) throw ToolError(from + ": not a file");
  // The log lies beside the file itself, not beside a link to it.
  const std::string real = std::filesystem::canonical(from).string();

  std::error_code error;
  const std::filesystem::path temporary = std::filesystem::temp_directory_path(error);
  if (error) throw ToolError("the folder for temporary files (TMPDIR): " + error.message());
  std::string name = (temporary / "corvan-look-XXXXXX").string();
  if (name.size() + 2 > copy_in_use.size()) throw ToolError(name + ": the name is too long");
  if (mkdtemp(name.data()) == nullptr) fail(name);
  folder_ = name + "/";
  copy_in_use[folder_.copy(copy_in_use.data(), copy_in_use.size() - 1)] = '\0';
  for (const int signal_number : {SIGHUP, SIGINT, SIGTERM}) {
    if (std::signal(signal_number, remove_copy_and_die) == SIG_IGN) {
      std::signal(signal_number, SIG_IGN);  // as under nohup
    }
  }

  try {
    for (int attempt = 0; !copy_files(real, folder_ + kStoreName); ++attempt) {
      if (attempt == kAttempts) {
        throw ToolError(from + ": written to all the time; try again when its writer rests");
      }
      std::this_thread::sleep_for(kPause);
    }
  } catch (...) {
    remove_copy(folder_.c_str());
    throw;
  }
}

StoreCopy::~StoreCopy() {
  remove_copy(folder_.c_str());
  copy_in_use[0] = '\0';
}

}  // namespace corvan_tool
