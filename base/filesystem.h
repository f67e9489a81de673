/// @file
/// The file-system query that the store needs.

#ifndef BASE_FILESYSTEM_H_
#define BASE_FILESYSTEM_H_

#include "base/pathname.h"

namespace cvrtc {

/// The file-system query that the store needs.
class Filesystem {
 public:
  /// Whether a regular file, or a link to one, exists at `path`. False also if `path` cannot be
  /// examined.
  ///
  /// On Windows, the path is UTF-8, whatever the code page of the process is; false if it is not
  /// valid UTF-8. False for devices, such as NUL. A file counts although another program has locked
  /// it.
  static bool IsFile(const Pathname& path);
};

}  // namespace cvrtc

#endif  // BASE_FILESYSTEM_H_
