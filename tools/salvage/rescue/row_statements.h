// The statements that RescuedStore runs for each row of a table.

#ifndef TOOLS_SALVAGE_RESCUE_ROW_STATEMENTS_H_
#define TOOLS_SALVAGE_RESCUE_ROW_STATEMENTS_H_

#include <memory>

#include "tools/salvage/known_schema.h"
#include "tools/salvage/rescue/rescue_file.h"

namespace corvan_tool {

// "Values" are those of the table's columns.
struct RowStatements {
  RowStatements(const RescueFile& file, const KnownTable& table);

  RowStatement insert;            // id, values; does nothing if there is such an id or key
  RowStatement find_id;           // id: the id, if there is such a row
  RowStatement find_key;          // values of the key: the id of its row
  RowStatement find_equal;        // id, values: a row if there is such a row
  RowStatement remove;            // id
  RowStatement add_doubtful;      // id, Doubt, values
  RowStatement find_doubtful;     // id, Doubt: a row if there is such a row
  RowStatement move_to_doubtful;  // Doubt, id: copies the row
  RowStatement add_unreached;     // id
  RowStatement find_unreached;    // id: a row if it is there
  RowStatement name;              // id
};

// Notes an entry of an index: the values of its columns, then the row id.
std::unique_ptr<RowStatement> name_by_index(const RescueFile& file, const KnownTable& table,
                                            const KnownIndex& index);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_RESCUE_ROW_STATEMENTS_H_
