#include "tools/import/log_reader.h"

#include <fmt/format.h>

#include <algorithm>
#include <iostream>
#include <optional>

#include "tools/ui/error.h"
#include "tools/ui/json.h"
#include "tools/ui/terminal_text.h"

namespace corvan_tool {

namespace {

constexpr std::size_t kLongestLine = 64;  // MiB

}  // namespace

LogReader::LogReader(const ImportOptions& options, Progress& progress)
    : options_(options), progress_(progress), source_(options.files, kLongestLine) {}

void LogReader::read(ImportBatch& batch) {
  const std::size_t wanted = std::max<std::size_t>(options_.batch_size, 1);
  std::size_t filled = 0;
  while (filled < wanted && next_line()) {
    // The entries of the last batch are filled again, so that their texts keep their memory.
    if (filled == batch.size()) batch.emplace_back();
    if (read_entry(batch[filled])) ++filled;
  }
  batch.resize(filled);
}

void LogReader::skip(const std::string& place, const std::string& why) {
  progress_.clear();
  std::cerr << "corvan: " << printable(place + ": " + why) << " (skipped)\n";
  ++skipped_;
}

// Returns false if the line is bad and was skipped.
bool LogReader::read_entry(ImportEntry& entry) {
  entry.place = source_.place();
  const std::optional<std::string> error = parser_.parse(line_, entry.message);
  name_unknown_keys();
  if (!error) return true;
  if (!options_.skip_bad) throw ToolError(entry.place + ": " + *error);
  skip(entry.place, *error);
  return false;
}

// Reads the next line that is not blank. Returns false after the last line.
bool LogReader::next_line() {
  while (source_.next(line_)) {
    if (line_.find_first_not_of(" \t\r") != std::string::npos) return true;
  }
  return false;
}

void LogReader::name_unknown_keys() {
  for (; named_keys_ < parser_.unknown_keys().size(); ++named_keys_) {
    progress_.clear();
    const std::string key = Json(parser_.unknown_keys()[named_keys_])
                                .dump(-1, ' ', true, Json::error_handler_t::replace);
    std::cerr << fmt::format("corvan: {}: unknown key {} is ignored, here and in later lines\n",
                             printable(source_.place()), key);
  }
}

}  // namespace corvan_tool
