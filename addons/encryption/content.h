// A database's content, table by table.

#ifndef ADDONS_ENCRYPTION_CONTENT_H_
#define ADDONS_ENCRYPTION_CONTENT_H_

#include "addons/encryption/database.h"

namespace Corvan::encryption {

// Fills an empty database with the schema, the rows and their row ids, and the settings of another,
// in one transaction. Throws ConversionFailure.
void copy_content(const Database& from, const Database& to);

// Compares the schema, the settings, and every value of every row, and runs SQLite's integrity
// check on `copy`. Throws ConversionFailure if anything differs.
void require_equal(const Database& original, const Database& copy);

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_CONTENT_H_
