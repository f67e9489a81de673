// The contents of files that are being replaced or removed.

#ifndef ADDONS_ENCRYPTION_OLD_CONTENTS_H_
#define ADDONS_ENCRYPTION_OLD_CONTENTS_H_

#include <memory>
#include <string>

namespace Corvan::encryption {

// On Windows it does nothing.
class OldContents {
 public:
  OldContents();
  OldContents(const OldContents&) = delete;
  OldContents& operator=(const OldContents&) = delete;
  // Releases all locks that the process has on the files.
  ~OldContents();

  // Remembers a file, also after it is renamed or removed. Does nothing if it does not exist, or if
  // its file system would write new bytes to other blocks.
  void add(const std::string& path);

  // Overwrites the files, which must have been removed, with zeros as far as the system allows it.
  // The first page of a database that is not encrypted becomes that of an empty database: another
  // process that has just opened the file would otherwise find it damaged, and the store would then
  // delete what has the file's name now.
  void overwrite() const;

 private:
  struct Files;
  const std::unique_ptr<Files> files_;
};

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_OLD_CONTENTS_H_
