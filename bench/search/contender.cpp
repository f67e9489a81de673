#include "bench/search/contender.h"

#include <filesystem>
#include <system_error>

namespace corvan_bench {

double bytes_of_files(const std::string& file) {
  double bytes = 0;
  for (const char* const ending : {"", "-wal", "-shm"}) {
    std::error_code missing;
    const auto size = std::filesystem::file_size(file + ending, missing);
    if (!missing) bytes += static_cast<double>(size);
  }
  return bytes;
}

}  // namespace corvan_bench
