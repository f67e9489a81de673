// The store that 'corvan restore' creates.

#ifndef TOOLS_IMPORT_RESTORED_STORE_H_
#define TOOLS_IMPORT_RESTORED_STORE_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/import/record_line.h"
#include "tools/store/connection.h"
#include "tools/store/export_format.h"

namespace corvan_tool {

// Inserts rows into a new store and creates the indexes at the end. Nothing is durable before
// finish(). Each function throws ToolError if the store cannot be written.
class RestoredStore {
 public:
  // Creates `file`. `name` is the folder's name in errors.
  RestoredStore(const std::string& file, std::string name, int64_t user_version);

  // Inserts the record's row into the table at this position of export_tables(). Throws LineError
  // if a value does not fit its column or the row's key is already there.
  void insert(std::size_t table, const Record& record);

  // Empties sqlite_sequence, which SQLite filled during the inserts. The export has its own rows
  // for this table.
  void clear_sequence();

  void finish();

 private:
  void run_schema(const std::string& beginning) const;
  void prepare(std::size_t table);
  bool bind(const ExportTable& table, const Record& record);
  void step();
  void check_types(const ExportTable& table, const Record& record) const;
  std::string stored_type(const ExportTable& table, const ExportColumn& column,
                          int64_t row_id) const;
  void require(int rc) const;

  const Connection connection_;
  const std::string name_;
  std::optional<Statement> insert_;
  std::size_t prepared_ = static_cast<std::size_t>(-1);  // the table that insert_ is for
};

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_RESTORED_STORE_H_
