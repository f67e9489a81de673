// Checks the file itself: integrity, the schema's version, settings.

#ifndef TOOLS_VERIFY_FILE_CHECKS_H_
#define TOOLS_VERIFY_FILE_CHECKS_H_

#include "tools/verify/file_reader.h"

namespace corvan_tool {

void check_integrity(FileReader& file);
void check_version(FileReader& file);
void check_settings(FileReader& file);

}  // namespace corvan_tool

#endif  // TOOLS_VERIFY_FILE_CHECKS_H_
