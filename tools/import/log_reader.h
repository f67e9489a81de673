// Reads conversation logs in batches.

#ifndef TOOLS_IMPORT_LOG_READER_H_
#define TOOLS_IMPORT_LOG_READER_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "tools/import/batch.h"
#include "tools/import/line_source.h"
#include "tools/import/log_line.h"
#include "tools/import/options.h"
#include "tools/ui/progress.h"

namespace corvan_tool {

// Turns lines into messages. Reports unknown keys, and bad lines if they are skipped, on standard
// error.
class LogReader {
 public:
  // Opens the files. `options` and `progress` must outlive the object.
  LogReader(const ImportOptions& options, Progress& progress);

  // Fills the batch with the messages of the next good lines. The batch is empty after the last
  // line. Throws ToolError if a file cannot be read, and at a bad line unless bad lines are
  // skipped.
  void read(ImportBatch& batch);

  // Reports and counts a line as skipped.
  void skip(const std::string& place, const std::string& why);

  std::uint64_t skipped() const { return skipped_; }

 private:
  bool read_entry(ImportEntry& entry);
  bool next_line();
  void name_unknown_keys();

  const ImportOptions& options_;
  Progress& progress_;
  LineSource source_;
  LineParser parser_;
  std::string line_;
  std::size_t named_keys_ = 0;  // of the parser's unknown keys
  std::uint64_t skipped_ = 0;
};

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_LOG_READER_H_
