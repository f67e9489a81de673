// The messages that are saved in one transaction.

#ifndef TOOLS_IMPORT_BATCH_H_
#define TOOLS_IMPORT_BATCH_H_

#include <string>
#include <vector>

#include "tools/import/log_line.h"

namespace corvan_tool {

struct ImportEntry {
  ImportMessage message;
  std::string place;  // its line, as "file:line"
};

using ImportBatch = std::vector<ImportEntry>;

}  // namespace corvan_tool

#endif  // TOOLS_IMPORT_BATCH_H_
