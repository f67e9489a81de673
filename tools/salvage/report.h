// The result of a salvage, and its printing.

#ifndef TOOLS_SALVAGE_REPORT_H_
#define TOOLS_SALVAGE_REPORT_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/salvage/file/wal.h"
#include "tools/salvage/page_map.h"
#include "tools/salvage/rescue/losses.h"

namespace corvan_tool {

struct SalvageReport {
  std::string file;            // the damaged file
  std::string folder;          // the new store's place
  bool is_kept = false;        // whether the new store was made: only if a row was recovered
  bool with_doubtful = false;  // doubtful rows were asked for

  std::vector<std::string> tables;  // names, by place in `results`
  std::vector<TableResult> results;
  std::optional<std::int64_t> sequence;  // the largest message id assigned so far

  std::size_t page_size = 0;
  PageNumber pages = 0;
  PageNumber declared_pages = 0;  // 0 if the file does not state it
  bool header_is_sound = false;
  std::vector<BadPages> bad_pages;
  std::uint64_t zero_pages = 0;  // that nothing points to
  std::vector<std::string> left_out;

  WalSummary log;
  bool log_is_read = true;
  double seconds = 0;

  std::int64_t recovered() const;
  std::int64_t doubtful() const;
  // Whether no row is or may be lost, and none is doubtful.
  bool is_lossless() const;
};

// Whether no commit of the log is or may be lost.
bool is_whole(const WalSummary& log);

// Both write to standard output.
void print_salvage_text(const SalvageReport& report);
void print_salvage_json(const SalvageReport& report);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_REPORT_H_
