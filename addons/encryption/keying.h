// Gives a connection its key.

#ifndef ADDONS_ENCRYPTION_KEYING_H_
#define ADDONS_ENCRYPTION_KEYING_H_

#include <cstddef>

#include "addons/encryption/store_keys.h"

struct sqlite3;

namespace Corvan::encryption {

// The result of unlocking a file: kNone, or why it was refused, with SQLite's result code.
struct Unlocking {
  KeyRefusal refusal = KeyRefusal::kNone;
  int code = 0;
};

// Runs a statement, ignores its rows, and returns SQLite's result code.
int run(sqlite3* connection, const char* sql);

// Whether SQLite has a cipher. Without one it would accept a key and store plain text.
bool has_cipher(sqlite3* connection);

// Gives the connection, which has not accessed its file yet, the key, and keeps its temporary files
// in memory. Does not find out whether the key is right. If it fails, the connection must be
// closed.
Unlocking give_key(sqlite3* connection, const StoreKey& key);

// Wipes memory that SQLite has released, as far as blocks of this size are likely to be in the
// places where earlier ones were.
void wipe_released(std::size_t size);

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_KEYING_H_
