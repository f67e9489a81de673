// The names of a store's files.

#ifndef TOOLS_STORE_FILE_NAMES_H_
#define TOOLS_STORE_FILE_NAMES_H_

namespace corvan_tool {

constexpr const char* kStoreName = "corvan";

// The suffixes of the files beside it.
constexpr const char* kLogSuffix = "-wal";
constexpr const char* kIndexSuffix = "-shm";
constexpr const char* kJournalSuffix = "-journal";

}  // namespace corvan_tool

#endif  // TOOLS_STORE_FILE_NAMES_H_
