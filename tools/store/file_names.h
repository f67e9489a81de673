// The names of a store's files.

#ifndef TOOLS_STORE_FILE_NAMES_H_
#define TOOLS_STORE_FILE_NAMES_H_

#include "addons/search/message_search.h"

namespace corvan_tool {

constexpr const char* kStoreName = "corvan";

// The search index of the store in the same folder.
constexpr const char* kSearchIndexName = Corvan::MessageSearch::kFileName;

// The suffixes of the files beside them.
constexpr const char* kLogSuffix = "-wal";
constexpr const char* kIndexSuffix = "-shm";
constexpr const char* kJournalSuffix = "-journal";

}  // namespace corvan_tool

#endif  // TOOLS_STORE_FILE_NAMES_H_
