// Checks the file as a whole: its integrity, the schema's version and the settings.

#ifndef TOOLS_VERIFY_FILE_CHECKS_H_
#define TOOLS_VERIFY_FILE_CHECKS_H_

#include "tools/verify/store_reader.h"

namespace corvan_tool {

void check_integrity(StoreReader& store);
void check_version(StoreReader& store);
void check_settings(StoreReader& store);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_FILE_CHECKS_H_
