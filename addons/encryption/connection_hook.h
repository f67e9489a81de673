// The function that SQLite calls for each new connection of the process.

#ifndef ADDONS_ENCRYPTION_CONNECTION_HOOK_H_
#define ADDONS_ENCRYPTION_CONNECTION_HOOK_H_

#include "addons/encryption/store_keys.h"

namespace Corvan::encryption {

// Registers it, and returns SQLite's result code.
int install_hook();

// Why the calling thread's last connection to one of our files was refused; kNone if it was not.
KeyRefusal last_hook_refusal();

// While it exists, connections that the calling thread opens are left alone.
class HookPause {
 public:
  HookPause();
  HookPause(const HookPause&) = delete;
  HookPause& operator=(const HookPause&) = delete;
  ~HookPause();

 private:
  const bool was_paused_;
};

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_CONNECTION_HOOK_H_
