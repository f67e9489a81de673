#include "addons/encryption/old_contents.h"

namespace Corvan::encryption {

// A file that is open cannot be replaced on Windows, and one that was replaced cannot be opened.
struct OldContents::Files {};

OldContents::OldContents() = default;
OldContents::~OldContents() = default;

void OldContents::add(const std::string& /*path*/) {}

void OldContents::overwrite() const {}

}  // namespace Corvan::encryption
