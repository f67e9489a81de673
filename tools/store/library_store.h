// A store, opened through the library.

#ifndef TOOLS_STORE_LIBRARY_STORE_H_
#define TOOLS_STORE_LIBRARY_STORE_H_

#include <string>

#include "db/cv_db_singleton.h"
#include "tools/store/key.h"

namespace corvan_tool {

// From now on, the libraries' log lines are dropped: errors carry what is in them.
void silence_library();

// Opens the library's only instance for its own lifetime. Warnings and errors that the library logs
// are collected here. The store is encrypted with used_key(), if that is valid.
class LibraryStore {
 public:
  // Throws ToolError if the store cannot be opened. If it opens with a failure, as a damaged store
  // may, failure() is not empty.
  LibraryStore(const std::string& folder, const std::string& user);
  LibraryStore(const LibraryStore&) = delete;
  LibraryStore& operator=(const LibraryStore&) = delete;
  ~LibraryStore();

  Corvan::CvDbSingleton* operator->() const { return Corvan::CvDbSingleton::get_instance(); }

  // The first failure that the library has logged, as SQLite's text if there is one; empty if there
  // was no failure.
  const std::string& failure() const { return failure_; }

 private:
  const FolderKey key_;
  std::string failure_;
};

}  // namespace corvan_tool

#endif  // TOOLS_STORE_LIBRARY_STORE_H_
