// SQL on the file of the new store while it is being made, and the temporary tables attached to it.

#ifndef TOOLS_SALVAGE_RESCUE_RESCUE_FILE_H_
#define TOOLS_SALVAGE_RESCUE_RESCUE_FILE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/salvage/file/record.h"
#include "tools/salvage/known_schema.h"
#include "tools/store/connection.h"

namespace corvan_tool {

// Each function throws ToolError if SQLite fails.
class RescueFile {
 public:
  // `name` is the new store's name in errors. The file must exist.
  RescueFile(const std::string& path, std::string name);

  void run(const std::string& sql) const;
  // As run(). Returns the number of changed rows.
  std::int64_t change(const std::string& sql) const;
  // The first column of the first row; 0 if there is none.
  std::int64_t number(const std::string& sql) const;
  // The first column of all rows.
  std::vector<std::string> texts(const std::string& sql) const;

  [[noreturn]] void fail(const std::string& why) const;
  const Connection& connection() const { return connection_; }

 private:
  const Connection connection_;
  const std::string name_;
};

// A statement that is prepared once and run for many rows.
class RowStatement {
 public:
  // The file must live longer.
  RowStatement(const RescueFile& file, const std::string& sql);

  // Binds integers, values and lists of values, from parameter 1 on. Returns the first column of
  // the first row; nothing if there is no row.
  template <typename... Arguments>
  std::optional<std::int64_t> run(const Arguments&... arguments) {
    [[maybe_unused]] int parameter = 0;
    (bind(parameter, arguments), ...);
    return step();
  }

 private:
  void bind(int& parameter, std::int64_t number) { statement_.bind(++parameter, number); }
  void bind(int& parameter, const Value& value);
  void bind(int& parameter, const std::vector<Value>& values);
  void bind(int& parameter, const std::vector<const Value*>& values);
  std::optional<std::int64_t> step();

  const RescueFile& file_;
  Statement statement_;
};

// Tables of the temporary database "scratch", which create_scratch() attaches, one for each table
// of the store except sqlite_sequence. Doubtful rows: row_id, reason (a Doubt), and the table's
// columns.
std::string doubtful_table(const KnownTable& table);
// Row ids that an index or a page names, and the columns that index entries hold. For t_message,
// only the ids are kept.
std::string named_table(const KnownTable& table);
// The ids of rows in the new store that come from pages that no tree leads to.
std::string unreached_table(const KnownTable& table);

void create_scratch(const RescueFile& file, const KnownSchema& schema);

// Each column formatted by `format`, in which {0} stands for its name.
std::string column_list(const std::vector<std::string>& columns, const std::string& format = "{0}",
                        const std::string& separator = ",");

// `count` parameters, as "?,?,?".
std::string parameter_list(std::size_t count);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_RESCUE_RESCUE_FILE_H_
