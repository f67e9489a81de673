#include "tools/export_output.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <utility>

#include "tools/tool_error.h"
#include "tools/unfinished.h"

namespace corvan_tool {

ExportOutput::ExportOutput(std::string path, ExportCounts& counts)
    : path_(std::move(path)), counts_(counts), stream_(path_.empty() ? std::cout : file_) {
  if (!path_.empty()) file_.open(path_, std::ios::binary | std::ios::trunc);
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
  if (path_.empty()) throw ToolError("standard output: cannot be written");
  throw ToolError(kept_name(path_) + ": " + std::strerror(errno) +
                  "; nothing was kept; name a place with room in --output");
}

}  // namespace corvan_tool
