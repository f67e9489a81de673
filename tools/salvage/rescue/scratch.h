// The temporary database "scratch", attached to the new store's file while rows come in, and the
// SQL that names its tables.

#ifndef TOOLS_SALVAGE_RESCUE_SCRATCH_H_
#define TOOLS_SALVAGE_RESCUE_SCRATCH_H_

#include <cstddef>
#include <string>
#include <vector>

#include "tools/salvage/known_schema.h"
#include "tools/salvage/rescue/rescue_file.h"

namespace corvan_tool {

// Doubtful rows: row_id, reason (a Doubt), and the table's columns.
std::string doubtful_table(const KnownTable& table);
// Row ids that an index or a page names, and the columns that index entries hold. Of t_message only
// the ids are kept.
std::string named_table(const KnownTable& table);
// The ids of rows in the new store that are from pages that no tree leads to.
std::string unreached_table(const KnownTable& table);

// Attaches the database and creates these tables for all tables but sqlite_sequence.
void create_scratch(const RescueFile& file, const KnownSchema& schema);

// Each column formatted by `format`, in which {0} stands for its name.
std::string column_list(const std::vector<std::string>& columns, const std::string& format = "{0}",
                        const std::string& separator = ",");

// As many parameters.
std::string parameter_list(std::size_t count);

}  // namespace corvan_tool

#endif  // TOOLS_SALVAGE_RESCUE_SCRATCH_H_
