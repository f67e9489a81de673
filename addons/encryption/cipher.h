// Opens encrypted files on connections that were just made.

#ifndef ADDONS_ENCRYPTION_CIPHER_H_
#define ADDONS_ENCRYPTION_CIPHER_H_

#include "addons/encryption/keying.h"
#include "addons/encryption/store_keys.h"

struct sqlite3;

namespace Corvan::encryption {

// As give_key(), and reads the whole schema. Refuses a file that is not encrypted. If that fails,
// the connection must be closed.
Unlocking unlock(sqlite3* connection, const StoreKey& key);

// Writes the line in the log that says why a file was refused.
void log_refusal(const char* file, const Unlocking& result);

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_CIPHER_H_
