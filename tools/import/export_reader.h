// Reads an export in JSON Lines.

#ifndef TOOLS_IMPORT_EXPORT_READER_H_
#define TOOLS_IMPORT_EXPORT_READER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "tools/import/line_source.h"
#include "tools/import/record_line.h"

namespace corvan_tool {

class RestoredStore;

// Checks that the lines are one whole export, and inserts its rows into a store. The functions
// throw ToolError, which names the line.
class ExportReader {
 public:
  // Reads the header. "-" is standard input.
  explicit ExportReader(const std::string& file);

  const ExportHeader& header() const { return header_; }

  // The number of records that the header announces.
  std::uint64_t announced() const;

  // Reads the records, up to the end of the export. `advance` is called after each.
  void read_into(RestoredStore& store, const std::function<void()>& advance);

  // The records read so far.
  const RowCounts& counts() const { return counts_; }

 private:
  bool next_line();
  void take_record(RestoredStore& store);
  void take_row(RestoredStore& store, const Record& record, std::size_t table);
  void take_end(RestoredStore& store, const Record& record);
  void enter_table(RestoredStore& store, std::size_t table);
  void require_counts(const RowCounts& at_end) const;
  template <typename Read>
  void at_line(const Read& read) const;
  [[noreturn]] void fail_at_end() const;

  const std::string name_;
  LineSource source_;
  std::string line_;
  std::size_t lines_ = 0;
  ExportHeader header_;
  std::size_t table_ = 0;  // of the last record
  RowCounts counts_;
  bool is_at_end_ = false;
};

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_EXPORT_READER_H_
