#include "addons/encryption/file_kind.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <string_view>

namespace Corvan::encryption {

namespace {

using FirstPage = std::array<unsigned char, 4096>;

constexpr std::string_view kPlainHeader("SQLite format 3\0", 16);

// Whether any block consists of random bytes: part of a page may have been overwritten.
bool has_random_block(const unsigned char* bytes, std::size_t count) {
  constexpr std::size_t kBlock = 512;
  if (count < kBlock) return is_random(bytes, count);
  for (std::size_t i = 0; i + kBlock <= count; i += kBlock) {
    if (is_random(bytes + i, kBlock)) return true;
  }
  return false;
}

FileKind kind_of(const unsigned char* bytes, std::size_t count) {
  if (count == 0) return FileKind::kEmpty;
  const std::string_view begin(reinterpret_cast<const char*>(bytes), count);
  const std::size_t header = std::min(count, kPlainHeader.size());
  if (begin.substr(0, header) == kPlainHeader.substr(0, header)) return FileKind::kPlain;
  return has_random_block(bytes, count) ? FileKind::kRandom : FileKind::kOther;
}

}  // namespace

FileKind main_file_kind(sqlite3* connection) {
  sqlite3_file* file = nullptr;
  sqlite3_file_control(connection, "main", SQLITE_FCNTL_FILE_POINTER, &file);
  if (file == nullptr || file->pMethods == nullptr) return FileKind::kUnreadable;
  sqlite3_int64 size = 0;
  if (file->pMethods->xFileSize(file, &size) != SQLITE_OK) return FileKind::kUnreadable;
  FirstPage page{};
  const auto count = static_cast<int>(std::min<sqlite3_int64>(size, page.size()));
  if (count > 0 && file->pMethods->xRead(file, page.data(), count, 0) != SQLITE_OK) {
    return FileKind::kUnreadable;
  }
  return kind_of(page.data(), static_cast<std::size_t>(count));
}

// Pearson's chi-squared statistic of the bytes' values. For random bytes it is about 255, with a
// standard deviation of 23. Text, zeros and SQLite's pages are far beyond the limit.
bool is_random(const unsigned char* bytes, std::size_t count) {
  constexpr double kValues = 256;
  constexpr double kLimit = 255 + 12 * 23;
  std::array<double, 256> seen{};
  for (std::size_t i = 0; i < count; ++i) ++seen[bytes[i]];
  double squares = 0;
  for (const double value : seen) squares += value * value;
  return squares * kValues / static_cast<double>(count) - static_cast<double>(count) < kLimit;
}

}  // namespace Corvan::encryption
