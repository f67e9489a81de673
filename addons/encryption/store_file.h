// The file of a store that is being converted.

#ifndef ADDONS_ENCRYPTION_STORE_FILE_H_
#define ADDONS_ENCRYPTION_STORE_FILE_H_

#include <string>

#include "base/pathname.h"

namespace Corvan::encryption {

// The store's file and its unfinished copy. All members throw ConversionFailure if the system
// refuses a call.
class StoreFile {
 public:
  // The file `corvan` of a folder; if that is a symbolic link, the file to which it leads. Throws
  // if there is none, if it is empty, or if hard links give it other names.
  explicit StoreFile(const cvrtc::Pathname& folder);

  const std::string& path() const { return path_; }
  std::string log() const { return path_ + "-wal"; }
  std::string copy() const { return path_ + ".converting"; }

  // Removes an unfinished copy of an earlier conversion.
  void remove_copy() const;

  // Throws if the file system has too little room for a second copy of the file and its log.
  void require_space() const;

  // Creates the empty copy with the file's permissions and, if the system allows it, its owner.
  void create_copy() const;

  // Throws if the copy has a log, without which it would not be whole.
  void require_no_copy_log() const;

  // Syncs the copy, and the folder, so that the old file's log, which must have been removed,
  // cannot come back beside the new file.
  void sync_copy() const;

  // Puts the copy, which must have been synced, in the file's place.
  void replace() const;

  // Syncs the folder. Empty if that succeeded, otherwise what the system said; after a power loss,
  // the name may then lead to the old file.
  std::string sync_folder() const;

 private:
  std::string path_;
};

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_STORE_FILE_H_
