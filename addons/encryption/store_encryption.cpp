#include "addons/encryption/store_encryption.h"

#include <initializer_list>
#include <mutex>
#include <string>

#include "addons/encryption/content.h"
#include "addons/encryption/database.h"
#include "addons/encryption/file_kind.h"
#include "addons/encryption/file_system.h"
#include "addons/encryption/key_table.h"
#include "addons/encryption/log_line.h"
#include "addons/encryption/old_contents.h"
#include "addons/encryption/store_file.h"

namespace Corvan {

namespace {

using encryption::ConversionFailure;
using encryption::Database;
using encryption::OldContents;
using encryption::StoreFile;

// Whether the copy replaces bytes that must not be found again.
enum class OldBytes { kKeep, kOverwrite };

// Removes the remains of an earlier conversion and looks for room, under the writer's lock, so that
// no conversion by another process is disturbed.
void prepare(const Database& store, const StoreFile& file) {
  store.run("begin immediate");
  file.remove_copy();
  file.require_space();
  store.run("commit");
}

// Writes the log back to the file and removes it, which fails if anybody else has the store open,
// and locks the file.
void close_log(const Database& store) {
  store.run("pragma synchronous=full");
  store.run("pragma fullfsync=on");
  store.run("pragma checkpoint_fullfsync=on");
  if (store.value("pragma journal_mode=delete") != "delete") {
    throw ConversionFailure(ConversionResult::kInUse);
  }
  store.run("begin exclusive");
  if (store.has_moved()) {
    throw ConversionFailure(ConversionResult::kInUse, "another process has replaced the file");
  }
}

// Until the copy is whole it is worthless, and it is synced as a file afterwards.
void fill_copy(const Database& store, const StoreFile& file, const StoreKey& key) {
  file.create_copy();
  const Database copy(file.copy(), key);
  copy.run("pragma page_size=4096");
  copy.run("pragma temp_store=2");
  copy.run("pragma journal_mode=off");
  copy.run("pragma synchronous=off");
  encryption::copy_content(store, copy);
  // The store would do this at its next opening, with a rollback journal.
  copy.run("pragma journal_mode=wal");
}

// Opens the copy again, as a store is opened.
void check_copy(const Database& store, const StoreFile& file, const StoreKey& key) {
  const Database copy(file.copy(), key);
  copy.run("pragma temp_store=2");
  encryption::require_equal(store, copy);
}

// Closes the store first if an open file cannot be replaced. If another process opens the store in
// between, the replacement fails, unless that process has closed it again.
void replace(Database* store, const StoreFile& file) {
  if (!encryption::kReplacesOpenFiles) store->close();
  file.replace();
}

void replace_by_copy(Database* store, const StoreFile& file, const StoreKey& key) {
  try {
    fill_copy(*store, file, key);
    check_copy(*store, file, key);
    file.require_no_copy_log();
    file.sync_copy();
    replace(store, file);
  } catch (const ConversionFailure&) {
    file.remove_copy();
    throw;
  }
}

// Replaces the store, whose key is `from`, by a copy with the key `to`. A key that is not valid
// stands for a plain file.
Conversion convert(const StoreFile& file, const StoreKey& from, const StoreKey& to, OldBytes old) {
  OldContents contents;  // outlives the connection, whose locks it would release
  Database store(file.path(), from);
  store.run("pragma temp_store=2");
  prepare(store, file);
  if (old == OldBytes::kOverwrite) contents.add(file.log());
  close_log(store);
  // Only now: while other connections have the file open, their locks would be released.
  if (old == OldBytes::kOverwrite) contents.add(file.path());
  replace_by_copy(&store, file, to);
  const std::string failure = file.sync_folder();
  if (failure.empty()) contents.overwrite();
  return {ConversionResult::kDone, failure};
}

// For a store that is already as it should become.
Conversion already_done(const StoreFile& file, const StoreKey& key) {
  const Database store(file.path(), key);
  store.run("begin immediate");
  file.remove_copy();
  store.run("commit");
  return {ConversionResult::kAlreadyDone, std::string()};
}

bool is_plain(const StoreFile& file) {
  const Database store(file.path(), StoreKey());
  return encryption::main_file_kind(store.handle()) == encryption::FileKind::kPlain;
}

// Whether the encrypted file can be opened with this key. Throws if something else is wrong.
bool fits(const StoreFile& file, const StoreKey& key) {
  try {
    const Database store(file.path(), key);
    return true;
  } catch (const ConversionFailure& failure) {
    if (failure.conversion().result != ConversionResult::kWrongKey) throw;
    return false;
  }
}

Conversion encrypt(const StoreFile& file, const StoreKey& key) {
  if (is_plain(file)) return convert(file, StoreKey(), key, OldBytes::kOverwrite);
  if (fits(file, key)) return already_done(file, key);
  throw ConversionFailure(ConversionResult::kAlreadyEncrypted);
}

Conversion decrypt(const StoreFile& file) {
  if (is_plain(file)) return already_done(file, StoreKey());
  const StoreKey key = encryption::KeyTable::get().find(file.path()).value_or(StoreKey());
  if (!key.is_valid()) throw ConversionFailure(ConversionResult::kNoKey);
  return convert(file, key, StoreKey(), OldBytes::kKeep);
}

Conversion rekey(const StoreFile& file, const StoreKey& old_key, const StoreKey& new_key) {
  if (is_plain(file)) throw ConversionFailure(ConversionResult::kNotEncrypted);
  if (fits(file, old_key)) return convert(file, old_key, new_key, OldBytes::kOverwrite);
  if (fits(file, new_key)) return already_done(file, new_key);
  throw ConversionFailure(ConversionResult::kWrongKey);
}

// Afterwards the key can be set: nothing then stands between an encrypted store and a store that
// would take it for damaged.
void require_hook(const cvrtc::Pathname& folder) {
  if (folder.folder().empty()) {
    throw ConversionFailure(ConversionResult::kNoStore, "no folder is given");
  }
  if (!StoreKeys::install()) {
    throw ConversionFailure(ConversionResult::kFailed, "SQLite does not register extensions");
  }
}

void require_keys(std::initializer_list<const StoreKey*> keys) {
  if (!StoreKeys::has_cipher()) throw ConversionFailure(ConversionResult::kNoCipher);
  for (const StoreKey* const key : keys) {
    if (!key->is_valid()) throw ConversionFailure(ConversionResult::kNoKey);
  }
}

// Runs one conversion at a time and logs what went wrong.
template <typename Work>
Conversion run(const cvrtc::Pathname& folder, const Work& work) {
  static std::mutex mutex;
  const std::lock_guard<std::mutex> lock(mutex);
  Conversion conversion;
  try {
    require_hook(folder);
    conversion = work();
  } catch (const ConversionFailure& failure) {
    conversion = failure.conversion();
  }
  const bool is_done = conversion.result == ConversionResult::kDone ||
                       conversion.result == ConversionResult::kAlreadyDone;
  if (!is_done || !conversion.detail.empty()) {
    const char* const separator = conversion.detail.empty() ? "" : "; ";
    encryption::log_line(folder.folder(), "corvan: ", to_text(conversion.result), separator,
                         conversion.detail);
  }
  return conversion;
}

}  // namespace

Conversion encrypt_store(const cvrtc::Pathname& folder, const StoreKey& key) {
  return run(folder, [&] {
    require_keys({&key});
    Conversion conversion = encrypt(StoreFile(folder), key);
    StoreKeys::set(folder, key);
    return conversion;
  });
}

Conversion decrypt_store(const cvrtc::Pathname& folder) {
  return run(folder, [&] {
    Conversion conversion = decrypt(StoreFile(folder));
    StoreKeys::forget(folder);
    return conversion;
  });
}

Conversion rekey_store(const cvrtc::Pathname& folder, const StoreKey& old_key,
                       const StoreKey& new_key) {
  return run(folder, [&] {
    require_keys({&old_key, &new_key});
    Conversion conversion = rekey(StoreFile(folder), old_key, new_key);
    StoreKeys::set(folder, new_key);
    return conversion;
  });
}

const char* to_text(ConversionResult result) {
  switch (result) {
    case ConversionResult::kDone:
      return "the store is converted";
    case ConversionResult::kAlreadyDone:
      return "the store was converted already";
    case ConversionResult::kNoStore:
      return "there is no store, or it is empty";
    case ConversionResult::kNoKey:
      return "there is no valid key";
    case ConversionResult::kNoCipher:
      return "this SQLite or its VFS has no cipher";
    case ConversionResult::kWrongKey:
      return "the key is wrong, or the beginning of the file is damaged";
    case ConversionResult::kNotEncrypted:
      return "the store is not encrypted";
    case ConversionResult::kAlreadyEncrypted:
      return "the store is encrypted with another key, or damaged";
    case ConversionResult::kInUse:
      return "the store is open elsewhere";
    case ConversionResult::kNoSpace:
      return "there is too little room for a second copy of the store";
    case ConversionResult::kDamaged:
      return "the store is damaged";
    case ConversionResult::kFailed:
      return "the store could not be converted";
  }
  return "unknown";
}

}  // namespace Corvan
