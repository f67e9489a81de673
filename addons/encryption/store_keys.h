/// @file
/// Encryption at rest: the keys of stores, by folder.
///
/// The store itself knows nothing of keys. StoreKeys looks at each database that the process opens
/// with SQLite. If it is the store of a folder with a key, it is unlocked with that key before the
/// store's first statement. If that fails, so does the opening: `CvDbSingleton::init_open_db()`
/// returns false, and nothing is changed or deleted.
///
/// SQLite must have a cipher built in; docs/encryption.md says how to get one.

#ifndef ADDONS_ENCRYPTION_STORE_KEYS_H_
#define ADDONS_ENCRYPTION_STORE_KEYS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "base/pathname.h"

struct sqlite3;

namespace Corvan {

namespace encryption {
class Secret;
}

/// The key of a store: 32 bytes, or a passphrase from which the cipher derives them. Copies share
/// the secret, which is overwritten when the last of them is gone. It is in memory that, where
/// the system allows it, is neither swapped nor part of a core dump.
class StoreKey {
 public:
  static constexpr std::size_t kSize = 32;         ///< bytes
  using Bytes = std::array<unsigned char, kSize>;  ///< a raw key

  /// The longest passphrase, in bytes.
  static constexpr std::size_t kLongestPassphrase = 1024;

  /// No key: is_valid() is false.
  StoreKey() = default;

  /// Takes 32 random bytes, and overwrites them with zeros. The usual form: opening a store derives
  /// nothing. Throws std::bad_alloc, with `bytes` unchanged, if memory runs out.
  explicit StoreKey(Bytes& bytes);

  /// Takes a passphrase, and overwrites its characters with zeros. Slow: the cipher derives the
  /// bytes again for every connection, which takes 17 ms and 19 MiB of memory on a fast machine.
  ///
  /// is_valid() is false if the passphrase is empty, longer than kLongestPassphrase, contains a
  /// zero byte, or begins with "raw:" or "x'", which ciphers take for raw bytes. Throws
  /// std::bad_alloc, with `text` unchanged, if memory runs out.
  static StoreKey from_passphrase(std::string& text);

  /// Whether there is a key.
  bool is_valid() const { return secret_ != nullptr; }

  /// The key as the cipher's statement takes it, for this library's own use.
  const encryption::Secret& secret() const { return *secret_; }

 private:
  std::shared_ptr<const encryption::Secret> secret_;
};

/// Why a file was not opened.
enum class KeyRefusal : int32_t {
  kNone = 0,          ///< it was not refused
  kNoKey = 1,         ///< the file is encrypted or expected to be, and its folder has no key
  kWrongKey = 2,      ///< the key is wrong, or the beginning of the file is damaged
  kNotEncrypted = 3,  ///< the folder has a key, and the file is not encrypted
  kNoCipher = 4,      ///< there is a key, and SQLite or the VFS in use has no cipher
  kDamaged = 5,       ///< the key is right, and the file is damaged or was cut off
  kUnreadable = 6,    ///< the file is locked, cannot be read, or memory ran out
};

/// The keys that this process has for its stores.
///
/// A folder is given as to `CvDbSingleton::init_open_db()`: only `folder.folder()` counts. It may
/// be written differently, or be reached by a symbolic link; what counts is the folder itself. It
/// does not need to exist yet.
///
/// A key applies to the file `corvan` in its folder and to the files of add-ons, whose names begin
/// with `corvan-`, for every connection that is opened from then on, no matter which code opens it.
/// All other connections of the process stay as they are, with one exception: a file `corvan` whose
/// first page consists of random bytes, at least in part, or cannot be read, in a folder that has
/// neither a key nor a mark, is not opened, because the store would take it for damaged and delete
/// it.
///
/// A refusal is an error from sqlite3_open_v2() and one line in the log with the file's path and
/// the reason. No line, error or message ever contains a key.
///
/// All members may be called from any thread. If memory runs out, std::bad_alloc is thrown and
/// nothing is changed.
class StoreKeys {
 public:
  StoreKeys() = delete;

  /// Whether the SQLite that this process uses has a cipher.
  static bool has_cipher();

  /// Registers this library with SQLite for all connections that are opened later. Call it when the
  /// process starts, before any store is opened: it also protects encrypted stores whose keys are
  /// not set yet. set() and expect() call it. Calling it again does nothing; call it again after
  /// sqlite3_reset_auto_extension() or sqlite3_shutdown(), which undo it.
  ///
  /// True if SQLite accepted it. Otherwise false, with a line in the log.
  static bool install();

  /// From now on, the folder's files are encrypted with this key. Open connections keep theirs. A
  /// file that does not exist is created encrypted.
  ///
  /// True if the key is set. False, with a line in the log and nothing changed, if the key is not
  /// valid, the folder is empty, or install() fails. Whether the key is right shows when the store
  /// is opened.
  static bool set(const cvrtc::Pathname& folder, const StoreKey& key);

  /// Marks the folder as encrypted: until it has a key, its files are not opened, and nothing is
  /// written to them; a missing file is at most created empty. A folder that has a key keeps it.
  /// Results as for set().
  static bool expect(const cvrtc::Pathname& folder);

  /// Removes the folder's key, for example when the user signs out. The folder stays marked as
  /// encrypted. Does nothing if it has no key.
  static void clear(const cvrtc::Pathname& folder);

  /// Removes the folder's key and its mark, for example after its files were deleted.
  static void forget(const cvrtc::Pathname& folder);

  /// Unlocks a connection that the caller has just opened, for example to a copy of a store under
  /// another name. The connection must not have run a statement, and the file must be encrypted
  /// with this key or be empty. A file that has a key by its folder is unlocked already.
  ///
  /// kNone if the file can be read. Otherwise the reason, with a line in the log; close the
  /// connection then, because a later statement could store plain text.
  static KeyRefusal unlock(sqlite3* connection, const StoreKey& key);

  /// Why the last file that the calling thread opened in a folder with a key or a mark, or that
  /// looked encrypted, was refused; kNone if it was opened, or if there was none.
  static KeyRefusal last_refusal();
};

/// The refusal in words, such as "the key is wrong, or the beginning of the file is damaged".
/// Static text.
const char* to_text(KeyRefusal refusal);

}  // namespace Corvan

#endif  // ADDONS_ENCRYPTION_STORE_KEYS_H_
