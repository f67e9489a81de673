// What the store asks of the file system.

#ifndef BASE_FILESYSTEM_H_
#define BASE_FILESYSTEM_H_

#include "base/pathname.h"

namespace cvrtc {

class Filesystem {
 public:
  // Whether a regular file, or a link to one, exists at `path`. A path that cannot be examined
  // counts as none.
  static bool IsFile(const Pathname& path);
};

}  // namespace cvrtc

#endif  // BASE_FILESYSTEM_H_
