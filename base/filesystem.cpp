#include "base/filesystem.h"

#include <sys/stat.h>

namespace cvrtc {

bool Filesystem::IsFile(const Pathname& path) {
  struct stat status = {};
  return stat(path.pathname().c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace cvrtc
