#include "addons/encryption/old_contents.h"

namespace Corvan::encryption {

// Windows does not replace open files, and a file that was replaced can no longer be opened, so
// nothing can be overwritten.
struct OldContents::Files {};

OldContents::OldContents() = default;
OldContents::~OldContents() = default;

void OldContents::add(const std::string& /*path*/) {}

void OldContents::overwrite() const {}

}  // namespace Corvan::encryption
