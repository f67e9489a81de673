// Reading the schema and the settings of a file that may be damaged.

#ifndef TOOLS_VERIFY_FILE_READER_H_
#define TOOLS_VERIFY_FILE_READER_H_

#include <string>
#include <utility>

#include "tools/store/connection.h"
#include "tools/verify/findings.h"

namespace corvan_tool {

// The connection and the findings must live longer.
class FileReader {
 public:
  // `name` is the file's name in errors.
  FileReader(const Connection& connection, std::string name, Findings& findings)
      : connection_(connection), name_(std::move(name)), findings_(findings) {}

  // Returns whether `rc`, the result of a statement, is SQLITE_DONE. Damage is the finding
  // "file-damaged". Throws ToolError after any other failure.
  bool accept(int rc);

  void add_damage(const std::string& detail);
  bool is_damaged() const { return is_damaged_; }

  const Connection& connection() const { return connection_; }
  Findings& findings() { return findings_; }

 private:
  const Connection& connection_;
  const std::string name_;
  Findings& findings_;
  bool is_damaged_ = false;
};

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_FILE_READER_H_
