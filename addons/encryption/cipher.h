// The cipher that SQLite has built in, on one connection. Only statements are used: the functions
// of a cipher would not link with an SQLite that has none.

#ifndef ADDONS_ENCRYPTION_CIPHER_H_
#define ADDONS_ENCRYPTION_CIPHER_H_

#include "addons/encryption/store_keys.h"

struct sqlite3;

namespace Corvan::encryption {

// What became of a file: kNone if it is open, otherwise why it is not and SQLite's result code.
struct Unlocking {
  KeyRefusal refusal = KeyRefusal::kNone;
  int code = 0;
};

// How a file begins.
enum class FileKind { kEmpty, kPlain, kRandom, kOther, kUnreadable };

// Reads up to the first page through the connection's own handle, because closing another one would
// release SQLite's locks. The connection must not have a key yet.
FileKind main_file_kind(sqlite3* connection);

// Whether SQLite has a cipher. Without one it would accept a key and store plain text.
bool has_cipher(sqlite3* connection);

// Gives the connection, which has not accessed its file yet, the key, keeps its temporary files in
// memory, and reads the whole schema. Refuses a file that is not encrypted. If that fails, the
// connection must be closed.
Unlocking unlock(sqlite3* connection, const StoreKey& key);

// Writes the line in the log that says why a file was refused.
void log_refusal(const char* file, const Unlocking& result);

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_CIPHER_H_
