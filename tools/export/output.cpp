#include "tools/export/output.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <utility>

#include "tools/store/interrupt.h"
#include "tools/ui/error.h"

namespace corvan_tool {

void fail_to_write(const std::string& path, const std::string& error) {
  throw ToolError(fmt::format("{}: {}; nothing was kept; name a place with room in --output",
                              kept_name(path), error));
}

ExportOutput::ExportOutput(std::string path, Kind kind, ExportCounts& counts)
    : path_(std::move(path)), counts_(counts), stream_(path_.empty() ? std::cout : file_) {
  // std::ios::in keeps open() from creating the file.
  const std::ios::openmode more = kind == kPresent ? std::ios::in : std::ios::openmode();
  if (!path_.empty())
    file_.open(std::filesystem::u8path(path_), std::ios::binary | std::ios::out | more);
  require_good();
  ++counts_.files;
}

void ExportOutput::write(std::string_view text) {
  stream_.write(text.data(), static_cast<std::streamsize>(text.size()));
  require_good();
  counts_.bytes += static_cast<int64_t>(text.size());
}

void ExportOutput::close() {
  stream_.flush();
  require_good();
  if (!path_.empty()) file_.close();
  require_good();
}

void ExportOutput::require_good() const {
  if (stream_) return;
  const std::string error = std::strerror(errno);
  if (path_.empty()) throw ToolError("standard output: cannot be written: " + error);
  fail_to_write(path_, error);
}

}  // namespace corvan_tool
