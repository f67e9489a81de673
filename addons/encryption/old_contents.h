// The contents of files that are being removed.

#ifndef ADDONS_ENCRYPTION_OLD_CONTENTS_H_
#define ADDONS_ENCRYPTION_OLD_CONTENTS_H_

#include <string>
#include <vector>

#include "addons/encryption/descriptor.h"

namespace Corvan::encryption {

class OldContents {
 public:
  // Remembers a file, whatever becomes of its name. Does nothing if it does not exist, or if its
  // file system would write new bytes to other blocks. Destroying this object, like closing any
  // file, releases the process's locks on the file.
  void add(const std::string& path);

  // Overwrites the files with zeros as far as the system allows it. They must have been removed.
  void overwrite() const;

 private:
  std::vector<Descriptor> files_;
};

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_OLD_CONTENTS_H_
