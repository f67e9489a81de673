// What the beginning of a database file shows without its key.

#ifndef ADDONS_ENCRYPTION_FILE_KIND_H_
#define ADDONS_ENCRYPTION_FILE_KIND_H_

#include <cstddef>

struct sqlite3;

namespace Corvan::encryption {

enum class FileKind {
  kEmpty,
  kPlain,   // it begins like a database that is not encrypted
  kRandom,  // at least a part of its first page consists of random bytes
  kOther,
  kUnreadable,
};

// Reads up to the first page through the connection's own handle, because closing another one would
// release SQLite's locks. The connection must not have a key yet.
FileKind main_file_kind(sqlite3* connection);

// Whether the values of the bytes are as evenly distributed as those of encrypted bytes.
bool is_random(const unsigned char* bytes, std::size_t count);

}  // namespace Corvan::encryption

#endif  // ADDONS_ENCRYPTION_FILE_KIND_H_
