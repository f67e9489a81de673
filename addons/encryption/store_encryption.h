/// @file
/// Encrypts existing stores, decrypts them, and gives them another key.
///
/// Each function works on a closed store. It makes a complete copy of the file beside it, under the
/// name `corvan.converting`, compares the copy with the store row by row, syncs it, and renames it
/// into place. A process that is killed and a machine that loses power leave either the old store
/// or the new one. Call the function again afterwards: it removes an unfinished copy and starts
/// anew, or returns kAlreadyDone.

#ifndef ADDONS_ENCRYPTION_STORE_ENCRYPTION_H_
#define ADDONS_ENCRYPTION_STORE_ENCRYPTION_H_

#include <cstdint>
#include <string>

#include "addons/encryption/store_keys.h"
#include "base/pathname.h"

namespace Corvan {

/// How a conversion ended. After anything but kDone and kAlreadyDone, the store holds what it held,
/// with the same key.
enum class ConversionResult : int32_t {
  kDone = 0,
  kAlreadyDone = 1,       ///< the store is already as it should become
  kNoStore = 2,           ///< there is no file `corvan` in the folder, or it is empty
  kNoKey = 3,             ///< a key is not valid, or decrypt_store() finds none for the folder
  kNoCipher = 4,          ///< SQLite has no cipher
  kWrongKey = 5,          ///< the present key is wrong, or the beginning of the file is damaged
  kNotEncrypted = 6,      ///< rekey_store(): the store is not encrypted
  kAlreadyEncrypted = 7,  ///< encrypt_store(): encrypted with another key, or not a database
  kInUse = 8,             ///< a connection of this or another process has the store open
  kNoSpace = 9,           ///< the file system has no room for a second copy
  kDamaged = 10,          ///< the store cannot be read whole, or breaks rules of its own schema
  kFailed = 11,           ///< the system or SQLite failed otherwise
};

/// The result in words, such as "the store is open elsewhere". Static text.
const char* to_text(ConversionResult result);

/// What a conversion returns.
struct Conversion {
  ConversionResult result = ConversionResult::kDone;  ///< how it ended
  /// What SQLite or the system said, without any key or row of the store; may be empty.
  std::string detail;
};

/// Encrypts the folder's store with this key, and sets the key as StoreKeys::set() does.
///
/// The file system needs room for a second copy, and the process as much memory as the largest
/// index takes. The copy has the old file's permissions and, as far as the system allows, its
/// owner. Where the file system writes in place (ext2, ext3, ext4, FAT), the old file's blocks and
/// those of its log are overwritten: with zeros, and the first page with that of an empty database.
/// On flash memory, the device may keep older versions of them nevertheless.
///
/// On Windows, the copy has the old file's access list, and nothing is overwritten. An open file
/// cannot be replaced there, so the store is closed, without a lock, for the moment before it is
/// replaced. If a process opens the store in that moment, the conversion fails with kInUse. If it
/// also closes the store in that moment, what it wrote is lost.
///
/// Anything but kDone and kAlreadyDone is logged in one line. So is kDone with a detail, which says
/// that the folder could not be synced: after a power loss, the name may lead to the old store.
/// Throws std::bad_alloc if memory runs out; the store is then as after a killed process.
Conversion encrypt_store(const cvrtc::Pathname& folder, const StoreKey& key);

/// Decrypts the folder's store with the key that StoreKeys has for it, and removes this key and the
/// mark as StoreKeys::forget() does. Otherwise as encrypt_store(), but overwrites nothing.
Conversion decrypt_store(const cvrtc::Pathname& folder);

/// Encrypts the folder's store, whose present key is `old_key`, with `new_key`, and sets `new_key`.
/// Otherwise as encrypt_store().
Conversion rekey_store(const cvrtc::Pathname& folder, const StoreKey& old_key,
                       const StoreKey& new_key);

}  // namespace Corvan

#endif  // ADDONS_ENCRYPTION_STORE_ENCRYPTION_H_
